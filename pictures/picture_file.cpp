#include "pictures/picture_file.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "pictures/atomic_file.h"
#include "pictures/codec.h"
#include "pictures/color_profile.h"
#include "pictures/exif.h"
#include "pictures/text_blocks.h"

namespace qel::pictures {
namespace {

struct FormatRow {
  Format format;
  std::string_view name;
  std::array<std::string_view, 5> extensions;
  bool (*recognise)(Bytes file);
  PictureInfo (*read)(const Input& input);
  std::vector<uint8_t> (*encode)(const Output& output);  ///< null for formats that are only read
  void (*check_shape)(const OutputShape& shape) = nullptr;
};

constexpr FormatRow kFormats[] = {
    {Format::kPng, "PNG", {".png"}, &IsPng, &ReadPng, &EncodePng},
    {Format::kJpeg,
     "JPEG",
     {".jpg", ".jpeg", ".jpe"},
     &IsJpeg,
     &ReadJpeg,
     &EncodeJpeg,
     &CheckJpegShape},
    {Format::kTiff, "TIFF", {".tif", ".tiff"}, &IsTiff, &ReadTiff, &EncodeTiff},
    {Format::kWebp, "WebP", {".webp"}, &IsWebp, &ReadWebp, &EncodeWebp, &CheckWebpShape},
    {Format::kGif, "GIF", {".gif"}, &IsGif, &ReadGif, nullptr},
    {Format::kHeif, "HEIC/AVIF", {".heic", ".heif", ".avif"}, &IsHeif, &ReadHeif, nullptr},
    {Format::kJxl, "JPEG-XL", {".jxl"}, &IsJxl, &ReadJxl, nullptr},
    {Format::kBmp, "BMP", {".bmp", ".dib"}, &IsBmp, &ReadBmp, &EncodeBmp, &CheckBmpShape},
    {Format::kPnm,
     "PNM",
     {".pnm", ".pbm", ".pgm", ".ppm", ".pam"},
     &IsPnm,
     &ReadPnm,
     &EncodePnm,
     &CheckPnmShape},
};

void CheckShape(const FormatRow& row, const OutputShape& shape) {
  if (row.check_shape != nullptr) row.check_shape(shape);
}

/// Enough of a file's beginning to know every format by.
constexpr size_t kSignatureBytes = 64;

const FormatRow& RowOf(Format format) {
  return *std::ranges::find(kFormats, format, &FormatRow::format);
}

/// The format whose first bytes these are.
const FormatRow& RowOf(Bytes beginning, const std::string& name) {
  if (beginning.empty()) throw PictureError(PictureError::Kind::kBroken, name, "the file is empty");
  const auto* const row = std::ranges::find_if(
      kFormats, [&](const FormatRow& each) { return each.recognise(beginning); });
  if (row != std::end(kFormats)) return *row;
  std::string known;
  for (const FormatRow& each : kFormats) known.append(" ").append(each.name);
  throw PictureError(PictureError::Kind::kUnknownFormat, name,
                     "the content is of no known picture format; known are" + known);
}

/// A pipe may never end: its header is looked at before the rest is waited for.
void CheckPipe(ByteSource& source, const FormatRow& row, const std::string& name,
               const ReadOptions& options) {
  constexpr size_t kEnoughForHeaders = size_t{1} << 20;
  if (source.KnowsSize()) return;
  const Bytes beginning = source.Load(0, kEnoughForHeaders);
  if (source.KnowsSize()) return;
  ByteSource part(beginning);
  try {
    row.read({part, name, options, nullptr});
  } catch (const TruncatedPicture&) {
    // What is missing may come yet.
  }
}

PictureInfo Read(ByteSource& source, const std::string& name, const ReadOptions& options,
                 const Allocate* allocate) {
  const FormatRow& row = RowOf(source.Load(0, kSignatureBytes), name);
  CheckPipe(source, row, name, options);
  if (allocate == nullptr) return row.read({source, name, options, nullptr});
  PixelBuffer pixels;
  const Allocate keep_place = [&](const PictureInfo& info) { return pixels = (*allocate)(info); };
  PictureInfo info = row.read({source, name, options, &keep_place});
  ApplyProfile(options, pixels, info);
  return info;
}

/// What is written of the metadata: without what is not wanted, and with the sides of the picture.
Metadata Prepare(const Metadata& metadata, const PictureView& picture, Strip strip) {
  Metadata prepared = metadata;
  if (strip == Strip::kAll) {
    prepared.exif.clear();
    prepared.xmp.clear();
    prepared.iptc.clear();
  }
  if (strip == Strip::kPlaces) {
    DropXmpPlaces(prepared.xmp);
    prepared.iptc = WithoutIptcPlaces(prepared.iptc);
  }
  SetXmpSize(prepared.xmp, picture.width, picture.height);
  if (std::optional<Exif> exif = ParseExif(prepared.exif)) {
    exif->SetSize(picture.width, picture.height);
    if (exif->HasResolution() && metadata.dpi_x > 0 && metadata.dpi_y > 0) {
      exif->SetResolution(metadata.dpi_x, metadata.dpi_y);
    }
    if (strip == Strip::kPlaces) {
      exif->places.clear();
      // What the maker of a camera notes may be where it was.
      TakeEntry(exif->photo, kMakerNoteTag);
    }
    prepared.exif = SerializeExif(*exif);
  }
  return prepared;
}

}  // namespace

std::string_view NameOf(Format format) { return RowOf(format).name; }

Format FormatOfPath(const std::string& path) {
  const std::string extension = ExtensionOf(path);
  std::string known;
  for (const FormatRow& row : kFormats) {
    for (const std::string_view candidate : row.extensions) {
      if (candidate.empty()) continue;
      if (candidate == extension && row.encode == nullptr) {
        throw PictureError(PictureError::Kind::kUnknownFormat, path,
                           std::string(row.name) + " is read, not written; choose .png or .webp");
      }
      if (candidate == extension) return row.format;
      if (row.encode == nullptr) continue;
      known.append(" ").append(candidate);
    }
  }
  throw PictureError(PictureError::Kind::kUnknownFormat, path,
                     "the extension names no picture format; known are" + known);
}

std::vector<uint8_t> ReadFile(const std::string& path, const Limits& limits) {
  ByteSource source(path, limits);
  const Bytes content = source.All();
  return {content.begin(), content.end()};
}

void Recognise(ByteSource& source, const std::string& name, const ReadOptions& options) {
  CheckPipe(source, RowOf(source.Load(0, kSignatureBytes), name), name, options);
}

PictureInfo ReadPicture(const std::string& path, const ReadOptions& options,
                        const Allocate& allocate) {
  ByteSource source(path, options.limits);
  return Read(source, path, options, &allocate);
}

PictureInfo ReadPicture(ByteSource& source, const std::string& name, const ReadOptions& options,
                        const Allocate& allocate) {
  return Read(source, name, options, &allocate);
}

PictureInfo ReadPictureFromMemory(std::span<const uint8_t> file, const std::string& name,
                                  const ReadOptions& options, const Allocate& allocate) {
  ByteSource source(file);
  return Read(source, name, options, &allocate);
}

PictureInfo ReadPictureHeader(const std::string& path, const ReadOptions& options) {
  ByteSource source(path, options.limits);
  return Read(source, path, options, nullptr);
}

PictureInfo ReadPictureHeaderFromMemory(std::span<const uint8_t> file, const std::string& name,
                                        const ReadOptions& options) {
  ByteSource source(file);
  return Read(source, name, options, nullptr);
}

void CheckFits(const std::string& path, int width, int height, int bit_count,
               const std::string& extension) {
  const std::string& named = extension.empty() ? path : extension;
  CheckShape(RowOf(FormatOfPath(named)), {path, ExtensionOf(named), width, height, bit_count});
}

EncodedPicture EncodePicture(const std::string& name, const PictureView& picture,
                             const Metadata& metadata, const WriteOptions& options) {
  const std::string& named = options.extension.empty() ? name : options.extension;
  const FormatRow& row = RowOf(FormatOfPath(named));
  constexpr int kDepths[] = {1, 4, 8, 24, 32};
  EncodedPicture encoded;
  const Metadata prepared = Prepare(metadata, picture, options.strip);
  const Output output{name, picture, prepared, options, encoded.notes};
  if (picture.bits == nullptr || picture.width < 1 || picture.height < 1) {
    output.DoesNotFit("a picture without pixels cannot be written");
  }
  if (std::ranges::find(kDepths, picture.bit_count) == std::end(kDepths)) {
    output.DoesNotFit(std::to_string(picture.bit_count) +
                      " bits per pixel cannot be written; 1, 4, 8, 24 and 32 can");
  }
  CheckShape(row, {name, ExtensionOf(named), picture.width, picture.height, picture.bit_count});
  encoded.file = row.encode(output);
  return encoded;
}

std::vector<std::string> WritePicture(const std::string& path, const PictureView& picture,
                                      const Metadata& metadata, const WriteOptions& options) {
  EncodedPicture encoded = EncodePicture(path, picture, metadata, options);
  WriteFileAtomically(path, encoded.file);
  return std::move(encoded.notes);
}

}  // namespace qel::pictures
