#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "pictures/codec.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/sample_math.h"

namespace qel::pictures {
namespace {

enum Compression : uint32_t { kPlain = 0, kRle8 = 1, kRle4 = 2, kMasks = 3, kAlphaMasks = 6 };

constexpr size_t kFileHeaderBytes = 14;
constexpr uint32_t kCoreHeader = 12, kShortOs2Header = 16, kInfoHeader = 40, kOs2Header = 64,
                   kV4Header = 108, kV5Header = 124;
constexpr uint32_t kStandardColors = 0x73524742;  // "sRGB"

struct BmpHeader {
  uint32_t bytes = 0;  ///< of the header itself
  size_t pixels_at = 0;
  int64_t width = 0;
  int64_t height = 0;
  bool top_down = false;
  int depth = 0;
  uint32_t compression = kPlain;
  size_t colors = 0;       ///< palette entries, 0 for as many as there are indices
  uint32_t masks[4] = {};  ///< blue, green, red, alpha
  size_t palette_at = 0;

  bool Runs() const { return compression == kRle8 || compression == kRle4; }
  bool Indexed() const { return depth <= 8; }
  size_t PaletteEntryBytes() const { return bytes == kCoreHeader ? 3 : 4; }
  size_t RowBytes() const { return pictures::RowBytes(static_cast<int>(width), depth); }
  size_t Step() const { return (RowBytes() + 3) / 4 * 4; }
  /// Of all rows as they are stored without compression; the last may lack its padding.
  uint64_t PixelBytes() const { return static_cast<uint64_t>(height - 1) * Step() + RowBytes(); }
};

void ReadMasks(const ByteReader& reader, BmpHeader& header) {
  if (header.compression == kMasks || header.compression == kAlphaMasks) {
    // Red, green, blue (, alpha), inside newer headers or after the oldest one.
    for (size_t i = 0; i < 3; ++i) {
      header.masks[2 - i] = reader.U32(kFileHeaderBytes + kInfoHeader + 4 * i);
    }
    const bool alpha = header.compression == kAlphaMasks || header.bytes >= 56;
    if (alpha) header.masks[3] = reader.U32(kFileHeaderBytes + kInfoHeader + 12);
    if (header.bytes == kInfoHeader) header.palette_at += alpha ? 16 : 12;
  } else if (header.depth == 16) {
    header.masks[0] = 0x1F, header.masks[1] = 0x3E0, header.masks[2] = 0x7C00;
  } else if (header.depth == 32) {
    header.masks[0] = 0xFF, header.masks[1] = 0xFF00, header.masks[2] = 0xFF0000;
  }
}

BmpHeader ReadHeader(const Input& input, Metadata& metadata) {
  const ByteReader reader(input.source.Load(0, kFileHeaderBytes + kV5Header));
  BmpHeader header;
  header.pixels_at = reader.U32(10);
  header.bytes = reader.U32(kFileHeaderBytes);
  constexpr uint32_t kKnown[] = {kCoreHeader, kShortOs2Header, kInfoHeader, 52,
                                 56,          kOs2Header,      kV4Header,   kV5Header};
  if (std::ranges::find(kKnown, header.bytes) == std::end(kKnown)) {
    input.Unsupported("a BMP header of {} bytes is not known", header.bytes);
  }
  if (!reader.Holds(kFileHeaderBytes, header.bytes)) input.Truncated();
  header.palette_at = kFileHeaderBytes + header.bytes;
  if (header.bytes == kCoreHeader) {
    header.width = reader.U16(18);
    header.height = reader.U16(20);
    header.depth = reader.U16(24);
    return header;
  }
  const int64_t height = reader.S32(22);
  header.width = reader.S32(18);
  header.height = std::abs(height);
  header.top_down = height < 0;
  header.depth = reader.U16(28);
  if (header.bytes == kShortOs2Header) return header;
  header.compression = reader.U32(30);
  metadata.dpi_x = DpiFromMetre(std::max(reader.S32(38), 0));
  metadata.dpi_y = DpiFromMetre(std::max(reader.S32(42), 0));
  header.colors = reader.U32(46);
  ReadMasks(reader, header);
  return header;
}

void CheckVariety(const Input& input, const BmpHeader& header) {
  bool known = false;
  switch (header.compression) {
    case kPlain:
      known = std::ranges::count(std::initializer_list<int>{1, 2, 4, 8, 16, 24, 32}, header.depth);
      break;
    case kRle8:
      known = header.depth == 8;
      break;
    case kRle4:
      known = header.depth == 4;
      break;
    case kMasks:
    case kAlphaMasks:
      // OS/2 gives another meaning to the number.
      known = (header.depth == 16 || header.depth == 32) && header.bytes != kOs2Header;
      break;
    default:
      break;
  }
  if (!known) {
    input.Unsupported("a BMP of {} bits with compression {} is not read; save it uncompressed",
                      header.depth, header.compression);
  }
}

std::vector<PaletteEntry> ReadPalette(const Input& input, const BmpHeader& header) {
  const size_t most = size_t{1} << header.depth;
  const size_t entry_bytes = header.PaletteEntryBytes();
  size_t count = header.colors == 0 ? most : std::min(header.colors, most);
  // Some writers leave out what they do not use and let the pixels begin earlier.
  if (header.pixels_at > header.palette_at) {
    count = std::min(count, (header.pixels_at - header.palette_at) / entry_bytes);
  }
  const Bytes entries = input.source.Load(header.palette_at, count * entry_bytes);
  if (entries.size() < count * entry_bytes) input.Truncated();
  std::vector<PaletteEntry> palette;
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const entry = entries.data() + i * entry_bytes;
    palette.push_back({entry[0], entry[1], entry[2], 0});
  }
  return palette;
}

/// Throws when the file is too short for its pixels.
void CheckLength(const Input& input, const BmpHeader& header) {
  if (header.Runs()) {
    // A move of four bytes passes over 255 x 255 pixels at most.
    constexpr uint64_t kBestRatio = 255 * 255 / 4;
    input.CheckHolds(static_cast<uint64_t>(header.width * header.height), kBestRatio);
    return;
  }
  const size_t size = input.source.size();
  if (header.pixels_at > size || header.PixelBytes() > size - header.pixels_at) input.Truncated();
}

/// The rows as the file has them, the top one as row 0.
class StoredRows {
 public:
  StoredRows(const Input& input, const BmpHeader& header) : input_(input), header_(header) {}

  /// Calls `use(y, row)` for `count` rows from `top` down, until it returns false.
  template <typename Use>
  void ForEach(int top, int count, const Use& use) const {
    constexpr size_t kAtATime = size_t{1} << 20;
    const size_t step = header_.Step();
    const int most = static_cast<int>(std::max<size_t>(1, kAtATime / step));
    std::vector<uint8_t> bytes(static_cast<size_t>(std::min(most, count)) * step);
    for (int rows = 0; count > 0; top += rows, count -= rows) {
      rows = std::min(most, count);
      const int64_t first = header_.top_down ? top : header_.height - top - rows;
      const size_t at = header_.pixels_at + static_cast<size_t>(first) * step;
      const size_t wanted = static_cast<size_t>(rows - 1) * step + header_.RowBytes();
      if (input_.source.Copy(at, {bytes.data(), wanted}) < wanted) input_.Truncated();
      for (int i = 0; i < rows; ++i) {
        const auto stored = static_cast<size_t>(header_.top_down ? i : rows - 1 - i);
        if (!use(top + i, bytes.data() + stored * step)) return;
      }
    }
  }

 private:
  const Input& input_;
  const BmpHeader& header_;
};

/// Walks through run-length coded indices and hands out whole rows, in the order of the file.
/// Pixels that are skipped get index 0.
class RunReader {
 public:
  RunReader(const Input& input, const BmpHeader& header)
      : input_(input),
        file_(input.source.All()),
        packed_(header.compression == kRle4),
        width_(static_cast<size_t>(header.width)),
        at_(header.pixels_at) {}

  /// The next row.
  void ReadRow(std::vector<uint8_t>& row) {
    std::fill(row.begin(), row.end(), uint8_t{0});
    while (rows_to_skip_ == 0 && !ended_) {
      if (ReadCode(row)) return;
    }
    if (rows_to_skip_ > 0) --rows_to_skip_;
  }

 private:
  uint8_t Next() {
    if (at_ >= file_.size()) input_.Truncated();
    return file_[at_++];
  }

  void Put(std::vector<uint8_t>& row, uint8_t byte, unsigned i) {
    if (x_ >= width_) input_.Broken("a run-length coded row is longer than the picture is wide");
    row[x_++] = !packed_ ? byte : i % 2 == 0 ? byte >> 4 : byte & 15;
  }

  /// Reads one code; true when it ends the row.
  bool ReadCode(std::vector<uint8_t>& row) {
    enum Escape : uint8_t { kEndOfRow, kEndOfPicture, kMove };
    const unsigned count = Next();
    const uint8_t value = Next();
    if (count > 0) {
      for (unsigned i = 0; i < count; ++i) Put(row, value, i);
      return false;
    }
    switch (value) {
      case kEndOfRow:
        x_ = 0;
        return true;
      case kEndOfPicture:
        ended_ = true;
        return true;
      case kMove: {
        x_ += Next();
        rows_to_skip_ = Next();
        if (rows_to_skip_ == 0) return false;
        // This row is over; those between it and the one that is moved to stay empty.
        --rows_to_skip_;
        return true;
      }
      default:
        ReadLiteral(row, value);
        return false;
    }
  }

  void ReadLiteral(std::vector<uint8_t>& row, unsigned count) {
    uint8_t byte = 0;
    for (unsigned i = 0; i < count; ++i) {
      if (!packed_ || i % 2 == 0) byte = Next();
      Put(row, byte, i);
    }
    const unsigned bytes = packed_ ? (count + 1) / 2 : count;
    if (bytes % 2 != 0) Next();
  }

  const Input& input_;
  Bytes file_;
  bool packed_;
  size_t width_;
  size_t at_;
  size_t x_ = 0;
  unsigned rows_to_skip_ = 0;
  bool ended_ = false;
};

/// A channel of 16- or 32-bit pixels.
class MaskedChannel {
 public:
  MaskedChannel(const Input& input, uint32_t mask) : mask_(mask) {
    if (mask == 0) return;
    shift_ = std::countr_zero(mask);
    largest_ = mask >> shift_;
    if ((largest_ & (largest_ + uint64_t{1})) != 0) input.Broken("the channel masks have gaps");
  }
  uint8_t Of(uint32_t pixel) const {
    const uint32_t value = (pixel & mask_) >> shift_;
    return largest_ == 255 ? static_cast<uint8_t>(value) : ScaleToByte(value, largest_);
  }

 private:
  uint32_t mask_;
  int shift_ = 0;
  uint32_t largest_ = 1;
};

/// The fourth byte of plain 32-bit pixels has no meaning, but is alpha wherever a writer has used
/// it at all.
bool UsesFourthByte(const Input& input, const BmpHeader& header) {
  bool used = false;
  StoredRows(input, header)
      .ForEach(0, static_cast<int>(header.height), [&](int, const uint8_t* row) {
        for (ptrdiff_t x = 0; x < header.width && !used; ++x) used = row[4 * x + 3] != 0;
        return !used;
      });
  return used;
}

class BmpDecoder final : public RowDecoder {
 public:
  explicit BmpDecoder(const Input& input)
      : input_(input), header_(ReadHeader(input, info.metadata)) {
    CheckVariety(input, header_);
    CheckSize(input, header_.width, header_.height);
    CheckLength(input, header_);
    if (header_.Runs() || !input.source.CanReadAgain()) input.PlanFile();
    info.format = Format::kBmp;
    info.width = static_cast<int>(header_.width);
    info.height = static_cast<int>(header_.height);
    if (header_.Indexed()) {
      const std::vector<PaletteEntry> palette = ReadPalette(input, header_);
      // The format has no grey of its own: a full ramp from black to white means it.
      const auto meaning = palette == GrayRamp(header_.depth) ? IndexRows::Meaning::kGray
                                                              : IndexRows::Meaning::kColor;
      indices_.emplace(input.options, header_.depth, palette, meaning, info);
      streams = !header_.Runs();
      return;
    }
    if (header_.depth == 32 && header_.compression == kPlain && UsesFourthByte(input, header_)) {
      header_.masks[3] = 0xFF000000;
    }
    info.bit_count = header_.masks[3] != 0 ? 32 : 24;
    for (const uint32_t mask : header_.masks) channels_.emplace_back(input, mask);
  }

  void Read(const PixelBuffer& rows, int count) override {
    if (indices_) row_.resize(static_cast<size_t>(info.width));
    if (header_.Runs()) {
      RunReader runs(input_, header_);
      for (int i = 0; i < count; ++i) {
        runs.ReadRow(row_);
        const int y = header_.top_down ? i : count - 1 - i;
        indices_->Put(row_.data(), info.width, rows.bits + y * rows.stride, 0);
      }
      return;
    }
    const int top = next_;
    StoredRows(input_, header_).ForEach(top, count, [&](int y, const uint8_t* stored) {
      uint8_t* const row = rows.bits + (y - top) * rows.stride;
      if (indices_) {
        UnpackIndices(stored, header_.depth, info.width, row_.data());
        indices_->Put(row_.data(), info.width, row, 0);
      } else {
        StoreColors(stored, row);
      }
      return true;
    });
    next_ += count;
  }

 private:
  void StoreColors(const uint8_t* from, uint8_t* pixel) const {
    if (header_.depth == 24) {
      std::memcpy(pixel, from, header_.RowBytes());
      return;
    }
    const int stored_bytes = header_.depth / 8;
    const int bytes = info.bit_count / 8;
    for (int x = 0; x < info.width; ++x, from += stored_bytes, pixel += bytes) {
      uint32_t value = from[0] | static_cast<uint32_t>(from[1]) << 8;
      if (stored_bytes == 4) {
        value |= static_cast<uint32_t>(from[2]) << 16 | static_cast<uint32_t>(from[3]) << 24;
      }
      for (int c = 0; c < bytes; ++c) pixel[c] = channels_[static_cast<size_t>(c)].Of(value);
    }
  }

  const Input& input_;
  BmpHeader header_;
  std::optional<IndexRows> indices_;
  std::vector<MaskedChannel> channels_;
  std::vector<uint8_t> row_;  ///< of indices
  int next_ = 0;
};

class BmpEncoder final : public RowEncoder {
 public:
  explicit BmpEncoder(const Output& output)
      : RowEncoder(output),
        row_bytes_(RowBytes(output.shape.width, output.shape.bit_count)),
        step_((row_bytes_ + 3) / 4 * 4) {
    const std::vector<uint8_t> header = MakeHeader();
    end_ = header.size() + step_ * static_cast<uint64_t>(output.shape.height);
    output.NoteLostProfile("BMP");
    output.NoteLostTexts("BMP");
    output.sink.Write(header);
  }

  /// The last row of the picture is the first one of the file.
  void Write(const PictureView& rows) override {
    constexpr size_t kAtATime = size_t{1} << 18;
    const int most = static_cast<int>(std::max<size_t>(1, kAtATime / step_));
    for (int y = 0; y < rows.height; y += most) {
      const int count = std::min(most, rows.height - y);
      stored_.assign(static_cast<size_t>(count) * step_, 0);
      for (int i = 0; i < count; ++i) {
        std::copy_n(rows.Row(y + i), row_bytes_, stored_.end() - (i + 1) * ptrdiff_t(step_));
      }
      end_ -= stored_.size();
      output_.sink.WriteAt(end_, stored_);
    }
  }

 private:
  std::vector<uint8_t> MakeHeader() const {
    const PictureView& shape = output_.shape;
    const bool alpha = shape.bit_count == 32;
    const std::vector<PaletteEntry> palette =
        shape.bit_count <= 8 ? PaletteOf(shape) : std::vector<PaletteEntry>();
    const uint32_t header_bytes = alpha ? kV4Header : kInfoHeader;
    const uint64_t pixels_at = kFileHeaderBytes + header_bytes + 4 * palette.size();
    const uint64_t pixel_bytes = step_ * static_cast<uint64_t>(shape.height);
    std::vector<uint8_t> header{'B', 'M'};
    const auto put = [&](uint64_t value) { AppendLittle(header, static_cast<uint32_t>(value), 4); };
    put(pixels_at + pixel_bytes);
    put(0);
    put(pixels_at);
    put(header_bytes);
    put(static_cast<uint32_t>(shape.width));
    put(static_cast<uint32_t>(shape.height));
    AppendLittle(header, 1, 2);
    AppendLittle(header, static_cast<uint32_t>(shape.bit_count), 2);
    put(alpha ? kMasks : kPlain);
    put(pixel_bytes);
    put(DotsPerMetre(output_.metadata.dpi_x));
    put(DotsPerMetre(output_.metadata.dpi_y));
    put(palette.size());
    put(0);
    if (alpha) {
      for (const uint32_t mask : {0xFF0000u, 0xFF00u, 0xFFu, 0xFF000000u}) put(mask);
      put(kStandardColors);
      header.resize(pixels_at);
    }
    for (const PaletteEntry& entry : palette) {
      header.insert(header.end(), {entry.blue, entry.green, entry.red, 0});
    }
    return header;
  }

  size_t row_bytes_;
  size_t step_;                  ///< the same with padding
  std::vector<uint8_t> stored_;  ///< some rows
  uint64_t end_;                 ///< of the rows of the file that are not there yet
};

}  // namespace

bool IsBmp(Bytes file) { return StartsWith(file, "BM"); }

std::unique_ptr<RowDecoder> OpenBmp(const Input& input) {
  return std::make_unique<BmpDecoder>(input);
}

void CheckBmpShape(const OutputShape& shape) {
  constexpr uint64_t kLargestPalette = 1024;
  const uint64_t step = (RowBytes(shape.width, shape.bit_count) + 3) / 4 * 4;
  const uint64_t before = kFileHeaderBytes + kV4Header + kLargestPalette;
  if (before + step * static_cast<uint64_t>(shape.height) > UINT32_MAX) {
    shape.DoesNotFit("BMP holds at most 4 GiB; choose PNG or TIFF");
  }
}

std::unique_ptr<RowEncoder> StartBmp(const Output& output) {
  return std::make_unique<BmpEncoder>(output);
}

}  // namespace qel::pictures
