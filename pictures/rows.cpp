#include "pictures/rows.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "pictures/codec.h"
#include "pictures/exif.h"
#include "pictures/format_table.h"
#include "pictures/pixel_target.h"
#include "pictures/text_blocks.h"

namespace qel::pictures {
namespace {

/// What readers and writers hold besides what they say themselves: the part of the file that is
/// being worked on, and the state of a library.
constexpr uint64_t kAlwaysHeld = uint64_t{1} << 20;

/// A pipe may never end: its header is looked at before the rest is waited for.
void CheckPipe(ByteSource& source, const FormatRow& row, const std::string& name,
               const ReadOptions& options) {
  constexpr size_t kEnoughForHeaders = size_t{1} << 20;
  if (source.KnowsSize()) return;
  const Bytes beginning = source.Load(0, kEnoughForHeaders);
  if (source.KnowsSize()) return;
  ByteSource part(beginning);
  try {
    row.open({part, name, options});
  } catch (const TruncatedPicture&) {
    // What is missing may come yet.
  }
}

bool HasTransparency(const PictureView& rows) {
  for (int y = 0; y < rows.height; ++y) {
    const uint8_t* const row = rows.Row(y);
    for (int x = 0; x < rows.width; ++x) {
      if (row[4 * ptrdiff_t{x} + 3] != 255) return true;
    }
  }
  return false;
}

/// What is written of the metadata: without what is not wanted, and with the sides of the picture.
Metadata Prepare(const Metadata& metadata, const PictureView& shape, Strip strip) {
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

void CheckShape(const FormatRow& row, const OutputShape& shape) {
  if (row.check_shape != nullptr) row.check_shape(shape);
}

/// Throws for shapes that cannot be written.
void CheckOutput(const FormatRow& row, const std::string& path, const PictureView& shape,
                 const WriteOptions& options) {
  constexpr int kDepths[] = {1, 4, 8, 24, 32};
  const std::string& named = options.extension.empty() ? path : options.extension;
  const OutputShape output{path, ExtensionOf(named), shape.width, shape.height, shape.bit_count};
  if (shape.width < 1 || shape.height < 1) {
    output.DoesNotFit("a picture without pixels cannot be written");
  }
  if (std::ranges::find(kDepths, shape.bit_count) == std::end(kDepths)) {
    output.DoesNotFit("{} bits per pixel cannot be written; 1, 4, 8, 24 and 32 can",
                      shape.bit_count);
  }
  CheckShape(row, output);
}

}  // namespace

/// What a picture is opened for.
enum class Use { kHeader, kWhole, kRows };

class RowOpener {
 public:
  static std::unique_ptr<RowReader> Open(ByteSource& source, const std::string& name,
                                         const ReadOptions& options, Use use) {
    const FormatRow& row = RowOf(source.Load(0, kSignatureBytes), name);
    ReadOptions own = options;
    // Rows that stream are not held: the limit of pixels is not theirs.
    if (use == Use::kRows) own.limits.max_pixels = INT64_MAX;
    CheckPipe(source, row, name, own);
    std::unique_ptr<RowReader> reader(new RowReader());
    reader->input_.reset(new Input{source, name, own});
    const Input& input = *reader->input_;
    reader->decoder_ = row.open(input);
    const RowDecoder& decoder = *reader->decoder_;
    PictureInfo& info = reader->info_;
    info = decoder.info;
    info.orientation = decoder.orientation;
    const int orientation = reader->orientation_ = options.upright ? decoder.orientation : 1;
    MakeUpright(info, orientation);
    reader->streams_ = decoder.streams && KeepsRowOrder(orientation);
    const uint64_t rows = RowBytes(info.width, info.bit_count) * static_cast<uint64_t>(info.height);
    if (use == Use::kRows && reader->streams_) {
      reader->held_bytes_ = input.planned_bytes + kAlwaysHeld;
    } else {
      CheckSize({source, name, options}, info.width, info.height);
      input.Plan(NeedsBuffer(orientation) ? 2 * rows : rows);
      reader->held_bytes_ = input.planned_bytes - rows + kAlwaysHeld;
    }
    if (use != Use::kHeader) reader->colors_ = ColorConversion(options, info);
    return reader;
  }
};

RowReader::RowReader() = default;
RowReader::~RowReader() = default;

void RowReader::Read(const PixelBuffer& rows, int count) {
  const int left = info_.height - rows_read_;
  if (count < 1 || count > left || (!streams_ && count < left)) {
    throw std::logic_error(fmt::format("{} rows were asked for", count));
  }
  const PictureInfo& stored = decoder_->info;
  const int height = streams_ ? count : stored.height;
  const PixelTarget target(rows, stored.width, height, stored.bit_count, orientation_);
  const size_t notes = stored.notes.size();
  decoder_->Read(target.stored(), height);
  rows_read_ += count;
  if (count == left) decoder_->Finish();
  target.Finish();
  colors_.Convert(rows, info_.width, count);
  info_.notes.insert(info_.notes.end(), stored.notes.begin() + static_cast<ptrdiff_t>(notes),
                     stored.notes.end());
}

std::unique_ptr<RowReader> OpenRows(ByteSource& source, const std::string& name,
                                    const ReadOptions& options) {
  return RowOpener::Open(source, name, options, Use::kRows);
}

void Recognise(ByteSource& source, const std::string& name, const ReadOptions& options) {
  CheckPipe(source, RowOf(source.Load(0, kSignatureBytes), name), name, options);
}

PictureInfo ReadPicture(const std::string& path, const ReadOptions& options,
                        const Allocate& allocate) {
  ByteSource source(path, options.limits);
  return ReadPicture(source, path, options, allocate);
}

PictureInfo ReadPicture(ByteSource& source, const std::string& name, const ReadOptions& options,
                        const Allocate& allocate) {
  const auto reader = RowOpener::Open(source, name, options, Use::kWhole);
  const PictureInfo& info = reader->info();
  const PixelBuffer rows = allocate(info);
  const auto row_bytes = static_cast<ptrdiff_t>(RowBytes(info.width, info.bit_count));
  if (rows.bits == nullptr || (info.height > 1 && std::abs(rows.stride) < row_bytes)) {
    throw std::invalid_argument("the allocator of a picture gave no room for its rows");
  }
  reader->Read(rows, info.height);
  return info;
}

PictureInfo ReadPictureFromMemory(std::span<const uint8_t> file, const std::string& name,
                                  const ReadOptions& options, const Allocate& allocate) {
  ByteSource source(file);
  return ReadPicture(source, name, options, allocate);
}

PictureInfo ReadPictureHeader(ByteSource& source, const std::string& name,
                              const ReadOptions& options) {
  return RowOpener::Open(source, name, options, Use::kHeader)->info();
}

PictureInfo ReadPictureHeader(const std::string& path, const ReadOptions& options) {
  ByteSource source(path, options.limits);
  return ReadPictureHeader(source, path, options);
}

PictureInfo ReadPictureHeaderFromMemory(std::span<const uint8_t> file, const std::string& name,
                                        const ReadOptions& options) {
  ByteSource source(file);
  return ReadPictureHeader(source, name, options);
}

RowWriter::RowWriter() = default;
RowWriter::~RowWriter() = default;

void RowWriter::Write(const PictureView& rows) {
  const int left = output_->shape.height - rows_written_;
  if (rows.height < 1 || rows.height > left || (!streams_ && rows.height < left)) {
    throw std::logic_error(fmt::format("{} rows were given", rows.height));
  }
  const bool look = encoder_->alpha_lost_by != nullptr && output_->shape.bit_count == 32;
  if (look && !is_transparent_) is_transparent_ = HasTransparency(rows);
  encoder_->Write(rows);
  rows_written_ += rows.height;
}

std::vector<std::string> RowWriter::Finish() {
  if (rows_written_ != output_->shape.height) throw std::logic_error("rows are missing");
  encoder_->Finish();
  if (is_transparent_) {
    output_->Note("{} holds no alpha; it was left out", encoder_->alpha_lost_by);
  }
  return std::move(output_->notes);
}

std::unique_ptr<RowWriter> WriteByRows(ByteSink& sink, const std::string& path,
                                       const PictureView& shape, const Metadata& metadata,
                                       const WriteOptions& options) {
  const FormatRow& row = RowForWriting(path, options);
  CheckOutput(row, path, shape, options);
  std::unique_ptr<RowWriter> writer(new RowWriter());
  writer->palette_.assign(shape.palette.begin(), shape.palette.end());
  PictureView own = shape;
  own.bits = nullptr;
  own.palette = writer->palette_;
  writer->output_.reset(
      new Output{sink, path, own, Prepare(metadata, shape, options.strip), options});
  writer->encoder_ = row.start(*writer->output_);
  writer->streams_ = writer->encoder_->streams;
  writer->held_bytes_ = writer->encoder_->held_bytes + kAlwaysHeld;
  return writer;
}

void CheckFits(const std::string& path, int width, int height, int bit_count,
               const std::string& extension) {
  const std::string& named = extension.empty() ? path : extension;
  CheckShape(RowOf(FormatOfPath(named)), {path, ExtensionOf(named), width, height, bit_count});
}

EncodedPicture EncodePicture(const std::string& name, const PictureView& picture,
                             const Metadata& metadata, const WriteOptions& options) {
  EncodedPicture encoded;
  MemorySink sink;
  // Without memory a picture has no pixels, whatever its size.
  const PictureView& shape = picture.bits != nullptr ? picture : PictureView{};
  const auto writer = WriteByRows(sink, name, shape, metadata, options);
  writer->Write(picture);
  encoded.notes = writer->Finish();
  encoded.file = std::move(sink.file);
  return encoded;
}

}  // namespace qel::pictures
