#include "operations/engine.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <sstream>

#include "operations/errors.h"

namespace qel::operations {
namespace {

std::mutex& RandomMutex() {
  static std::mutex mutex;
  return mutex;
}

/// True when `bits` is in a list such as "8, 24, 32".
bool Lists(std::string_view depths, int bits) {
  std::istringstream words{std::string(depths)};
  for (std::string word; words >> word;) {
    if (std::stoi(word) == bits) return true;
  }
  return false;
}

/// What a result code means to somebody who wrote a step, and what would be right.
std::string Explain(const Operation& operation, result_t code, int bits) {
  char number[16];
  std::snprintf(number, sizeof(number), "0x%08X", static_cast<unsigned>(code));
  std::string text = std::string(operation.name) + ": failure " + number + ": ";
  if (!Lists(operation.depths, bits)) {
    text += "it works on " + std::string(operation.depths) + " bits per pixel, the picture has " +
            std::to_string(bits);
    if (bits < 32 && Lists(operation.depths, 32)) text += "; put increase-bpp before it";
    return text;
  }
  return text + (code == kFail              ? "the picture's shape does not fit"
                 : code == kInvalidArgument ? "an argument is not accepted"
                 : code == kNotMono         ? "the picture is not monochrome"
                                            : "see the result codes in qel/types.h");
}

}  // namespace

RandomNumbers::RandomNumbers() : lock_(RandomMutex()) { std::srand(1); }

SmartPtr<IQEL> Engine::RunStep(const Step& step, SmartPtr<IQEL> picture, PictureSource& pictures,
                               std::vector<std::string>& notes) const {
  const Operation& operation = *step.operation;
  SmartPtr<IQEL> result;
  Call call{{operation.name, step.arguments},
            components_,
            pictures,
            *host_.Get(),
            notes,
            picture.Get(),
            result.Put()};
  if (operation.composed()) {
    result = operation.compose(call);
  } else if (const result_t code = operation.call(call); Failed(code)) {
    throw CallError(Explain(operation, code, ShapeOf(*picture.Get()).bits), operation.name, code);
  }
  return result ? result : picture;
}

SmartPtr<IQEL> Engine::Run(std::span<const Step> steps, SmartPtr<IQEL> picture,
                           PictureSource& pictures, std::vector<std::string>& notes) const {
  std::optional<RandomNumbers> random_numbers;
  if (std::ranges::any_of(steps, [](const Step& step) { return step.operation->random; })) {
    random_numbers.emplace();
  }
  for (const Step& step : steps) {
    picture = RunStep(step, std::move(picture), pictures, notes);
  }
  return picture;
}

}  // namespace qel::operations
