#include "operations/engine.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "operations/errors.h"
#include "operations/shape_after.h"
#include "operations/transparency.h"

namespace qel::operations {
namespace {

std::mutex& RandomMutex() {
  static std::mutex mutex;
  return mutex;
}

/// What a result code means to somebody who wrote a step, and what would be right.
std::string Explain(const Operation& operation, result_t code) {
  char number[16];
  std::snprintf(number, sizeof(number), "0x%08X", static_cast<unsigned>(code));
  const std::string text = std::string(operation.name) + ": failure " + number + ": ";
  return text + (code == kFail              ? "the picture's shape does not fit"
                 : code == kInvalidArgument ? "an argument is not accepted"
                 : code == kNotMono         ? "the picture is not monochrome"
                                            : "see the result codes in qel/types.h");
}

}  // namespace

RandomNumbers::RandomNumbers() : lock_(RandomMutex()) { std::srand(1); }

void Check(const Operation& operation, result_t code) {
  if (Failed(code)) throw CallError(Explain(operation, code), operation.name, code);
}

SmartPtr<IQEL> Engine::RunStep(const Step& step, SmartPtr<IQEL> picture, PictureSource& pictures,
                               std::vector<std::string>& notes) const {
  const Shape shape = ShapeOf(*picture.Get());
  const Shape expected = ShapeAfter(step, shape, max_pixels_, [&](const std::string& name) {
    return ShapeOf(pictures.Get(name));
  });
  SmartPtr<IQEL> result =
      RunOnBand(step, {shape, 0, {0, expected.height}}, std::move(picture), pictures, notes);
  // Whoever goes on with it counts on the shape that was told.
  const Shape made = ShapeOf(*result.Get());
  if (made.width != expected.width || made.height != expected.height ||
      made.bits != expected.bits) {
    throw CallError(std::string(step.operation->name) + ": made " + made.Size() + " pixels, " +
                        made.Bits() + ", where " + expected.Size() + ", " + expected.Bits() +
                        " were expected",
                    step.operation->name, kFail);
  }
  return result;
}

SmartPtr<IQEL> Engine::RunOnBand(const Step& step, const Band& band, SmartPtr<IQEL> image,
                                 PictureSource& pictures, std::vector<std::string>& notes) const {
  const Operation& operation = *step.operation;
  SmartPtr<IQEL> result;
  Call call{{operation.name, step.arguments},
            components_,
            pictures,
            *host_.Get(),
            notes,
            image.Get(),
            band,
            result.Put()};
  if (operation.composed()) {
    result = operation.compose(call);
  } else {
    Check(operation, operation.Run(call));
  }
  if (!result) return image;
  // The module ignores it when the host can make no image.
  if (ShapeOf(*result.Get()).width < 1) {
    throw CallError(std::string(operation.name) + ": there is no memory for what it makes of " +
                        band.whole.Size() + " pixels",
                    operation.name, kFail);
  }
  return result;
}

SmartPtr<IQEL> Engine::Run(std::span<const Step> steps, SmartPtr<IQEL> picture,
                           PictureSource& pictures, std::vector<std::string>& notes) const {
  std::optional<RandomNumbers> random_numbers;
  if (std::ranges::any_of(steps, [](const Step& step) { return step.operation->random; })) {
    random_numbers.emplace();
  }
  Transparency before = TransparencyOf(*picture.Get());
  for (const Step& step : steps) {
    picture = RunStep(step, std::move(picture), pictures, notes);
    const Transparency after = TransparencyOf(*picture.Get());
    std::string note = TransparencyNote(*step.operation, before, after);
    if (!note.empty()) notes.push_back(std::move(note));
    before = after;
  }
  return picture;
}

}  // namespace qel::operations
