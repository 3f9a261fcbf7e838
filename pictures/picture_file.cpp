#include "pictures/picture_file.h"

#include <algorithm>

#include "pictures/atomic_file.h"
#include "pictures/codec.h"
#include "pictures/color_profile.h"
#include "pictures/exif.h"
#include "pictures/format_table.h"
#include "pictures/text_blocks.h"

namespace qel::pictures {
namespace {

void CheckShape(const FormatRow& row, const OutputShape& shape) {
  if (row.check_shape != nullptr) row.check_shape(shape);
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

}  // namespace

PictureInfo ReadAnyFormat(ByteSource& source, const std::string& name, const ReadOptions& options,
                          const Allocate* allocate, uint64_t* planned_bytes) {
  const FormatRow& row = RowOf(source.Load(0, kSignatureBytes), name);
  CheckPipe(source, row, name, options);
  PixelBuffer pixels;
  const Allocate keep_place = [&](const PictureInfo& info) { return pixels = (*allocate)(info); };
  const Input input{source, name, options, allocate == nullptr ? nullptr : &keep_place};
  PictureInfo info = row.read(input);
  if (planned_bytes != nullptr) *planned_bytes = input.planned_bytes;
  if (allocate != nullptr) ColorConversion(options, info).Run(pixels, info.width, info.height);
  return info;
}

Metadata PrepareMetadata(const Metadata& metadata, const PictureView& shape, Strip strip) {
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
  SetXmpSize(prepared.xmp, shape.width, shape.height);
  if (std::optional<Exif> exif = ParseExif(prepared.exif)) {
    exif->SetSize(shape.width, shape.height);
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
  return ReadAnyFormat(source, path, options, &allocate);
}

PictureInfo ReadPicture(ByteSource& source, const std::string& name, const ReadOptions& options,
                        const Allocate& allocate) {
  return ReadAnyFormat(source, name, options, &allocate);
}

PictureInfo ReadPictureFromMemory(std::span<const uint8_t> file, const std::string& name,
                                  const ReadOptions& options, const Allocate& allocate) {
  ByteSource source(file);
  return ReadAnyFormat(source, name, options, &allocate);
}

PictureInfo ReadPictureHeader(const std::string& path, const ReadOptions& options) {
  ByteSource source(path, options.limits);
  return ReadAnyFormat(source, path, options, nullptr);
}

PictureInfo ReadPictureHeaderFromMemory(std::span<const uint8_t> file, const std::string& name,
                                        const ReadOptions& options) {
  ByteSource source(file);
  return ReadAnyFormat(source, name, options, nullptr);
}

void CheckFits(const std::string& path, int width, int height, int bit_count,
               const std::string& extension) {
  const std::string& named = extension.empty() ? path : extension;
  CheckShape(RowOf(FormatOfPath(named)), {path, ExtensionOf(named), width, height, bit_count});
}

void CheckOutput(const FormatRow& row, const std::string& path, const PictureView& shape,
                 const WriteOptions& options) {
  constexpr int kDepths[] = {1, 4, 8, 24, 32};
  const std::string& named = options.extension.empty() ? path : options.extension;
  const OutputShape output{path, ExtensionOf(named), shape.width, shape.height, shape.bit_count};
  if (shape.width < 1 || shape.height < 1) {
    output.DoesNotFit("a picture without pixels cannot be written");
  }
  if (std::ranges::find(kDepths, shape.bit_count) == std::end(kDepths)) {
    output.DoesNotFit(std::to_string(shape.bit_count) +
                      " bits per pixel cannot be written; 1, 4, 8, 24 and 32 can");
  }
  CheckShape(row, output);
}

EncodedPicture EncodePicture(const std::string& name, const PictureView& picture,
                             const Metadata& metadata, const WriteOptions& options) {
  const FormatRow& row = RowForWriting(name, options);
  // Without memory a picture has no pixels, whatever its size.
  CheckOutput(row, name, picture.bits != nullptr ? picture : PictureView{}, options);
  EncodedPicture encoded;
  const Metadata prepared = PrepareMetadata(metadata, picture, options.strip);
  encoded.file = row.encode({name, picture, prepared, options, encoded.notes});
  return encoded;
}

std::vector<std::string> WritePicture(const std::string& path, const PictureView& picture,
                                      const Metadata& metadata, const WriteOptions& options) {
  EncodedPicture encoded = EncodePicture(path, picture, metadata, options);
  WriteFileAtomically(path, encoded.file);
  return std::move(encoded.notes);
}

}  // namespace qel::pictures
