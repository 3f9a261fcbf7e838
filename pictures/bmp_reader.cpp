#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <optional>

#include "pictures/bmp_header.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/sample_math.h"

namespace qel::pictures {
namespace {

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
        packed_(header.compression == BmpHeader::kRle4),
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
      : input_(input), header_(ReadBmpHeader(input, info.metadata)) {
    CheckSize(input, header_.width, header_.height);
    CheckBmpLength(input, header_);
    if (header_.Runs() || !input.source.CanReadAgain()) input.PlanFile();
    info.format = Format::kBmp;
    info.width = static_cast<int>(header_.width);
    info.height = static_cast<int>(header_.height);
    if (header_.Indexed()) {
      const std::vector<PaletteEntry> palette = ReadBmpPalette(input, header_);
      // The format has no grey of its own: a full ramp from black to white means it.
      const auto meaning = palette == GrayRamp(header_.depth) ? IndexRows::Meaning::kGray
                                                              : IndexRows::Meaning::kColor;
      indices_.emplace(input.options, header_.depth, palette, meaning, info);
      streams = !header_.Runs();
      return;
    }
    if (header_.depth == 32 && header_.compression == BmpHeader::kPlain &&
        UsesFourthByte(input, header_)) {
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

}  // namespace

bool IsBmp(Bytes file) { return StartsWith(file, "BM"); }

std::unique_ptr<RowDecoder> OpenBmp(const Input& input) {
  return std::make_unique<BmpDecoder>(input);
}

}  // namespace qel::pictures
