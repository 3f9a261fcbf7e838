#include "pictures/format_table.h"

#include <fmt/core.h>

#include <algorithm>

namespace qel::pictures {
namespace {

constexpr FormatRow kFormats[] = {
    {Format::kPng, "PNG", {".png"}, &IsPng, &OpenPng, &StartPng},
    {Format::kJpeg,
     "JPEG",
     {".jpg", ".jpeg", ".jpe"},
     &IsJpeg,
     &OpenJpeg,
     &StartJpeg,
     &CheckJpegShape},
    {Format::kTiff, "TIFF", {".tif", ".tiff"}, &IsTiff, &OpenTiff, &StartTiff},
    {Format::kWebp, "WebP", {".webp"}, &IsWebp, &OpenWebp, &StartWebp, &CheckWebpShape},
    {Format::kGif, "GIF", {".gif"}, &IsGif, &OpenGif, nullptr},
    {Format::kHeif, "HEIC/AVIF", {".heic", ".heif", ".avif"}, &IsHeif, &OpenHeif, nullptr},
    {Format::kJxl, "JPEG-XL", {".jxl"}, &IsJxl, &OpenJxl, nullptr},
    {Format::kBmp, "BMP", {".bmp", ".dib"}, &IsBmp, &OpenBmp, &StartBmp, &CheckBmpShape},
    {Format::kPnm,
     "PNM",
     {".pnm", ".pbm", ".pgm", ".ppm", ".pam"},
     &IsPnm,
     &OpenPnm,
     &StartPnm,
     &CheckPnmShape},
};

}  // namespace

const FormatRow& RowOf(Format format) {
  return *std::ranges::find(kFormats, format, &FormatRow::format);
}

const FormatRow& RowOf(Bytes beginning, const std::string& name) {
  if (beginning.empty()) throw PictureError(PictureError::Kind::kBroken, name, "the file is empty");
  const auto* const row = std::ranges::find_if(
      kFormats, [&](const FormatRow& each) { return each.recognise(beginning); });
  if (row != std::end(kFormats)) return *row;
  std::string known;
  for (const FormatRow& each : kFormats) known.append(" ").append(each.name);
  throw PictureError(PictureError::Kind::kUnknownFormat, name,
                     fmt::format("the content is of no known picture format; known are{}", known));
}

const FormatRow& RowForWriting(const std::string& path, const WriteOptions& options) {
  return RowOf(FormatOfPath(options.extension.empty() ? path : options.extension));
}

std::string_view NameOf(Format format) { return RowOf(format).name; }

Format FormatOfPath(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  std::string known;
  for (const FormatRow& row : kFormats) {
    for (const std::string_view candidate : row.extensions) {
      if (candidate.empty()) continue;
      if (candidate == extension && row.start == nullptr) {
        throw PictureError(PictureError::Kind::kUnknownFormat, path,
                           fmt::format("{} is read, not written; choose .png or .webp", row.name));
      }
      if (candidate == extension) return row.format;
      if (row.start == nullptr) continue;
      known.append(" ").append(candidate);
    }
  }
  throw PictureError(PictureError::Kind::kUnknownFormat, path,
                     fmt::format("the extension names no picture format; known are{}", known));
}

}  // namespace qel::pictures
