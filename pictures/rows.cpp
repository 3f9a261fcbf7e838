#include "pictures/rows.h"

#include <algorithm>
#include <stdexcept>

#include "pictures/format_table.h"
#include "pictures/pixel_target.h"

namespace qel::pictures {
namespace {

/// Any file, at once.
class WholeReader final : public RowReader {
 public:
  WholeReader(const RowInput& input, PictureInfo info, uint64_t held_bytes)
      : RowReader(std::move(info), false, held_bytes), input_(input) {}

 private:
  void ReadRows(const PixelBuffer& rows, int) override {
    const Allocate allocate = [&](const PictureInfo&) { return rows; };
    info_ = ReadAnyFormat(input_.source, input_.name, input_.options, &allocate);
  }

  const RowInput input_;
};

std::unique_ptr<RowReader> OpenWhole(const RowInput& input) {
  uint64_t planned = 0;
  PictureInfo info =
      ReadAnyFormat(input.source, input.name, input.options, nullptr, &planned);
  const uint64_t picture =
      RowBytes(info.width, info.bit_count) * static_cast<uint64_t>(info.height);
  const uint64_t file = input.source.KnowsSize() ? input.source.size() : 0;
  return std::make_unique<WholeReader>(input, std::move(info),
                                       planned - std::min(planned, picture) + file);
}

/// What encoding a picture at once takes, by the byte of its rows: the file with room to grow, and
/// what the format's library needs. Measured with noise, which compresses worst.
double EncoderShare(Format format) {
  switch (format) {
    case Format::kWebp:
      return 8;
    case Format::kJpeg:
      return 3;
    case Format::kPng:
    case Format::kTiff:
      return 2;
    case Format::kGif:
    case Format::kHeif:
    case Format::kJxl:
    case Format::kBmp:
    case Format::kPnm:
      break;
  }
  return 1.25;
}

uint64_t EncoderBytes(const FormatRow& row, const RowOutput& output) {
  const double bytes = static_cast<double>(RowBytes(output.width, output.bit_count)) *
                       output.height * EncoderShare(row.format);
  return static_cast<uint64_t>(bytes);
}

/// A file of any format, at once.
class WholeWriter final : public RowWriter {
 public:
  WholeWriter(const FormatRow& row, const RowOutput& output)
      : RowWriter(output.height, false, EncoderBytes(row, output)), row_(row), output_(output) {}

 private:
  void WriteRows(const PictureView& rows) override {
    PictureView picture = rows;
    picture.palette = output_.palette;
    output_.sink.Write(row_.encode({output_.path, picture, output_.metadata, output_.options,
                                    notes_}));
  }
  void FinishWriting() override {}

  const FormatRow& row_;
  const RowOutput output_;
};

}  // namespace

void RowReader::Read(const PixelBuffer& rows, int count) {
  const int left = info_.height - rows_read_;
  if (count < 1 || count > left || (!streams_ && count < left)) {
    throw std::logic_error(std::to_string(count) + " rows were asked for");
  }
  ReadRows(rows, count);
  colors_.Run(rows, info_.width, count);
  rows_read_ += count;
  if (rows_read_ == info_.height) FinishReading();
}

std::unique_ptr<RowReader> OpenRows(ByteSource& source, const std::string& name,
                                    const ReadOptions& options) {
  const FormatRow& row = RowOf(source.Load(0, kSignatureBytes), name);
  const RowInput input{source, name, options};
  std::unique_ptr<RowReader> reader;
  if (row.open_rows != nullptr) reader = row.open_rows(input);
  if (reader == nullptr) return OpenWhole(input);
  reader->colors_ = ColorConversion(options, reader->info_);
  return reader;
}

void RowWriter::Write(const PictureView& rows) {
  const int left = height_ - rows_written_;
  if (rows.height < 1 || rows.height > left || (!streams_ && rows.height < left)) {
    throw std::logic_error(std::to_string(rows.height) + " rows were given");
  }
  WriteRows(rows);
  rows_written_ += rows.height;
}

std::vector<std::string> RowWriter::Finish() {
  if (rows_written_ != height_) throw std::logic_error("rows are missing");
  FinishWriting();
  return std::move(notes_);
}

std::unique_ptr<RowWriter> WriteByRows(ByteSink& sink, const std::string& path,
                                       const PictureView& shape, const Metadata& metadata,
                                       const WriteOptions& options) {
  const FormatRow& row = RowForWriting(path, options);
  CheckOutput(row, path, shape, options);
  const RowOutput output{sink,
                         path,
                         shape.width,
                         shape.height,
                         shape.bit_count,
                         {shape.palette.begin(), shape.palette.end()},
                         PrepareMetadata(metadata, shape, options.strip),
                         options};
  std::unique_ptr<RowWriter> writer;
  if (row.make_rows != nullptr) writer = row.make_rows(output);
  if (writer == nullptr) writer = std::make_unique<WholeWriter>(row, output);
  return writer;
}

}  // namespace qel::pictures
