#include <fmt/core.h>

#include <algorithm>
#include <cstring>

#include "cli/commands/command_table.h"
#include "cli/drawing/picture_sheet.h"
#include "cli/operations.h"
#include "cli/session/limit_options.h"
#include "cli/session/session.h"
#include "cli/terminal/errors.h"

namespace qel::cli {
namespace {

constexpr int kColumns = 4;
constexpr int kStandardSize = 32;
constexpr int kStandardZoom = 6;

/// Pixels round the detail that are enlarged with it and cut off, so that no method shows what it
/// does at the border of a picture.
constexpr int kSurroundings = 8;

struct Rectangle {
  int left;
  int top;
  int width;
  int height;
};

/// A part of a picture at 24 bits: samples of transparent pictures would show their alpha instead
/// of the method.
SmartPtr<host::HostImage> Cut(const host::HostImage& picture, const Rectangle& part) {
  const SmartPtr<host::HostImage> color = AsColor(picture);
  SmartPtr<host::HostImage> cut = MakeImage(part.width, part.height, 24);
  for (int y = 0; y < part.height; ++y) {
    for (int x = 0; x < part.width; ++x) {
      std::memcpy(cut->Row(y) + int64_t{3} * x,
                  color->Row(part.top + y) + int64_t{4} * (part.left + x), 3);
    }
  }
  return cut;
}

/// `part` and its surroundings, as far as the picture has any.
Rectangle WithSurroundings(const Rectangle& part, const host::HostImage& picture) {
  const int left = std::max(0, part.left - kSurroundings);
  const int top = std::max(0, part.top - kSurroundings);
  return {left, top, std::min(picture.width(), part.left + part.width + kSurroundings) - left,
          std::min(picture.height(), part.top + part.height + kSurroundings) - top};
}

}  // namespace

int MethodsCommand(const Words& words) {
  const Options options(words, KnownOptions("methods"));
  if (options.Files().size() != 1 || !options.Has("-o")) {
    throw Failure(kUsage, "write qel methods PICTURE -o SHEET");
  }
  const int size = options.Number("--size", 2, 512, kStandardSize);
  const int zoom = options.Number("--zoom", 2, 32, kStandardZoom);
  const std::string output = options.Value("-o");
  CheckOutputName(output);
  CheckOutputIsApart(output, options.rest());

  const pictures::ReadOptions reading{.limits = LimitsFrom(options)};
  const Session session(options.Value("--module"), reading.limits);
  const Picture picture = LoadPicture(options.rest().front(), reading);
  const int last_left = std::max(0, picture.image->width() - size);
  const int last_top = std::max(0, picture.image->height() - size);
  const Rectangle detail = {options.Number("--left", 0, last_left, last_left / 2),
                            options.Number("--top", 0, last_top, last_top / 2),
                            std::min(size, picture.image->width()),
                            std::min(size, picture.image->height())};
  const Rectangle around = WithSurroundings(detail, *picture.image);
  const SmartPtr<host::HostImage> source = Cut(*picture.image, around);
  const int width = around.width * zoom, height = around.height * zoom;
  const Rectangle shown = {(detail.left - around.left) * zoom, (detail.top - around.top) * zoom,
                           detail.width * zoom, detail.height * zoom};

  std::vector<CaptionedPicture> enlarged;
  PictureFiles no_pictures;
  for (const Choice& method : InterpolationMethods()) {
    const std::string step =
        fmt::format("resample method={} width={} height={}", method.value, width, height);
    const auto result = session.Run(ParseSteps({step}), source, no_pictures);
    enlarged.push_back(
        {fmt::format("{} {}", method.value, method.label), AsColor(*Cut(*result, shown))});
  }
  SavePicture(output, *MakeSheet(enlarged, kColumns), {}, {});
  return kDone;
}

}  // namespace qel::cli
