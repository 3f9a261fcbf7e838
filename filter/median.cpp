#include "filter/median.h"

#include <cstring>
#include <memory>
#include <new>

#include "filter/filter_transform.h"
#include "filter/median_kernels.h"
#include "filter/neighbourhood.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "module/result_image.h"

namespace qel {
namespace {

// The sort by brightness keeps the order of visiting among equals. What it brings to the middle is
// found without sorting: by networks and by bits of the key for small windows, and with a histogram
// that slides along the row for large ones. Levels are their own keys; for colours the tap itself
// must be found, since colours of equal brightness differ.

/// The keys of `count` samples. Levels are their keys already.
void WriteKeys(uint8_t* keys, const uint8_t* samples, int sample_bytes, int64_t count) {
  const MedianKernels& kernels = ActiveMedianKernels();
  const auto pixels = static_cast<size_t>(count);
  if (sample_bytes == 4) {
    kernels.keys4(keys, samples, pixels);
  } else if (sample_bytes == 3) {
    kernels.keys3(keys, samples, pixels);
  } else {
    std::memcpy(keys, samples, pixels);
  }
}

/// Copies for each pixel of a row the sample at its tap. `at[t]` is tap t of the first pixel.
template <size_t kBytes>
void CopyTaps(uint8_t* dest, const uint8_t* const* at, const uint8_t* taps, int64_t count) {
  const auto last = static_cast<size_t>(count) - 1;
  // Whole words are quicker than three bytes; the last pixel must not touch what follows.
  for (size_t x = 0; x < last; ++x) std::memcpy(dest + x * kBytes, at[taps[x]] + x * kBytes, 4);
  std::memcpy(dest + last * kBytes, at[taps[last]] + last * kBytes, kBytes);
}

/// A tile of columns for windows up to `kMostSelected`.
class SelectionTile {
 public:
  SelectionTile(const SourceRows& source, int size, int64_t x, int64_t count)
      : source_(source),
        reach_(size),
        size_(static_cast<size_t>(size)),
        x_(x),
        count_(count),
        extended_(count + size - 1),
        key_pitch_(ScratchPitch(static_cast<size_t>(extended_))),
        sample_pitch_(ScratchPitch(static_cast<size_t>(extended_) * Bytes())) {
    samples_ = memory_ + size_ * key_pitch_;
  }

  /// Most columns of a tile.
  static int64_t Width(int sample_bytes, int size) {
    // Keys and, of colours, samples of every row, and one row of taps.
    const int64_t rows = sample_bytes == 1 ? size + 1 : 2 * size + 1;
    const int64_t bytes = kScratchBytes - static_cast<size_t>(rows) * (kRowSlack + 128);
    const int64_t each = sample_bytes == 1 ? size + 1 : size * (sample_bytes + 1) + 1;
    return bytes / each - size + 1;
  }

  void Run(DestRows& out, int64_t rows) {
    for (int64_t row = -reach_.before; row < reach_.after; ++row) Read(row);
    for (int64_t y = 0; y < rows; ++y) {
      Read(y + reach_.after);
      const uint8_t* keys[kMostSelected];
      for (size_t j = 0; j < size_; ++j) {
        keys[j] = memory_ + Slot(y - reach_.before + static_cast<int64_t>(j)) * key_pitch_;
      }
      Select(out.Open(y, x_), keys, y);
      out.Close(y, x_, count_);
    }
  }

 private:
  size_t Bytes() const { return static_cast<size_t>(source_.sample_bytes()); }
  bool Colours() const { return Bytes() > 1; }
  size_t Slot(int64_t row) const { return static_cast<size_t>(row + reach_.before) % size_; }

  void Read(int64_t row) {
    uint8_t* const keys = memory_ + Slot(row) * key_pitch_;
    uint8_t* const samples = Colours() ? samples_ + Slot(row) * sample_pitch_ : keys;
    source_.Fetch(row, x_ - reach_.before, extended_, samples);
    if (Colours()) WriteKeys(keys, samples, source_.sample_bytes(), extended_);
  }

  void Select(uint8_t* dest, const uint8_t* const* keys, int64_t y) {
    const auto count = static_cast<size_t>(count_);
    if (!Colours()) {
      ActiveMedianKernels().select_key(dest, keys, size_, count);
      return;
    }
    uint8_t* const taps = samples_ + size_ * sample_pitch_;
    ActiveMedianKernels().select_tap(taps, keys, size_, count);
    const uint8_t* at[kMostSelected * kMostSelected];
    for (size_t i = 0; i < size_; ++i) {
      for (size_t j = 0; j < size_; ++j) {
        const size_t slot = Slot(y - reach_.before + static_cast<int64_t>(j));
        at[i * size_ + j] = samples_ + slot * sample_pitch_ + i * Bytes();
      }
    }
    if (Bytes() == 4) {
      CopyTaps<4>(dest, at, taps, count_);
    } else {
      CopyTaps<3>(dest, at, taps, count_);
    }
  }

  const SourceRows& source_;
  const Reach reach_;
  const size_t size_;
  const int64_t x_;
  const int64_t count_;
  const int64_t extended_;
  const size_t key_pitch_;
  const size_t sample_pitch_;
  uint8_t* samples_;
  alignas(64) uint8_t memory_[kScratchBytes];
};

/// Windows of any size. Keys are kept column by column, so that a column enters and leaves the
/// histogram as one piece of memory.
class SlidingMedian {
 public:
  SlidingMedian(const ImageView& source, const ImageView& dest, int size)
      : source_(source),
        dest_(dest),
        reach_(size),
        size_(size),
        outside_(OutsideColor(source)),
        outside_key_(
            static_cast<uint8_t>(Brightness(BlueOf(outside_), GreenOf(outside_), RedOf(outside_)))),
        ring_(static_cast<size_t>(std::min<int64_t>(size, source.Rows()))) {
    // Each key is stored twice, a ring apart: the rows of a window are then always in one piece.
    pitch_ = 2 * ring_;
    if (source.HasPixels()) {
      const size_t bytes = static_cast<size_t>(source.Columns()) * pitch_ + kRowSlack;
      keys_.reset(new (std::nothrow) uint8_t[bytes]);
    }
  }

  /// False when there is no memory for the keys.
  explicit operator bool() const { return keys_ != nullptr || !source_.HasPixels(); }

  void Run() {
    for (int64_t row = 0; row < std::min(reach_.after, source_.Rows()); ++row) Read(row);
    for (int64_t y = 0; y < dest_.Rows(); ++y) {
      if (reach_.after < source_.Rows() - y) Read(y + reach_.after);
      VisitAccessLayout(dest_.bit_count, [&](auto codec) { RunRow(codec, y); });
    }
  }

 private:
  /// Distributes the keys of row `row` over the columns.
  void Read(int64_t row) {
    if (!source_.HasPixels()) return;
    constexpr int64_t kPiece = 1024;
    const SourceRows rows(source_);
    uint8_t samples[4 * kPiece];
    uint8_t keys[kPiece];
    uint8_t* column = keys_.get() + static_cast<size_t>(row) % ring_;
    for (int64_t x = 0; x < source_.Columns(); x += kPiece) {
      const int64_t count = std::min(kPiece, source_.Columns() - x);
      rows.Fetch(row, x, count, samples);
      WriteKeys(keys, samples, rows.sample_bytes(), count);
      for (int64_t i = 0; i < count; ++i, column += pitch_) column[0] = column[ring_] = keys[i];
    }
  }

  template <typename Codec>
  void RunRow(Codec codec, int64_t y) {
    Enter(y);
    uint8_t* const to = dest_.Row(y);
    for (int64_t x = 0; x < dest_.Columns(); ++x) {
      if (x + reach_.after < columns_) Count(x + reach_.after, 1);
      if (x > reach_.before) Count(x - reach_.before - 1, ~0u);
      codec.Store(to, x, Pick(codec, x));
    }
  }

  /// Prepares the histogram for row `y`: all columns of the first window but its last.
  void Enter(int64_t y) {
    columns_ = source_.HasPixels() ? source_.Columns() : 0;
    first_row_ = std::max<int64_t>(y - reach_.before, 0);
    const int64_t end = std::min(y + reach_.after + 1, source_.Rows());
    length_ = static_cast<size_t>(columns_ > 0 ? end - first_row_ : 0);
    above_ = std::max<int64_t>(reach_.before - y, 0);
    offset_ = ring_ > 0 ? static_cast<size_t>(first_row_) % ring_ : 0;
    std::memset(taps_, 0, sizeof(taps_));
    below_ = 0;
    for (int64_t x = 0; x < std::min(reach_.after, columns_); ++x) Count(x, 1);
  }

  const uint8_t* Column(int64_t x) const {
    return keys_.get() + static_cast<size_t>(x) * pitch_ + offset_;
  }

  /// Adds `change`, 1 or all ones for -1, for every key of column `x`.
  void Count(int64_t x, uint32_t change) {
    const uint8_t* const column = Column(x);
    uint32_t below = 0;
    for (size_t i = 0; i < length_; ++i) {
      taps_[column[i]] += change;
      below += column[i] < key_ ? change : 0;
    }
    below_ += below;
  }

  /// The colour in the middle of the window of column `x`.
  template <typename Codec>
  uint32_t Pick(Codec codec, int64_t x) {
    const int64_t first = std::max<int64_t>(x - reach_.before, 0);
    const int64_t last = std::min(x + reach_.after, columns_ - 1);
    const int64_t inside = std::max<int64_t>(last - first + 1, 0) * static_cast<int64_t>(length_);
    const int64_t rest = MoveKey(size_ * size_ - inside);
    if constexpr (!Codec::kDirect) {
      return GreyColour(static_cast<uint32_t>(key_));
    } else {
      return FindTap(codec, x, first, last - first + 1, rest);
    }
  }

  /// Moves the key to that of the middle tap, `outside` taps having the outside colour. Windows of
  /// neighbours have much in common, so the way is short. Returns the middle tap's number among
  /// those of its key.
  int64_t MoveKey(int64_t outside) {
    int64_t rest = size_ * size_ / 2 - below_ - (outside_key_ < key_ ? outside : 0);
    const auto taps = [&] { return taps_[key_] + (outside_key_ == key_ ? outside : 0); };
    while (rest < 0) {
      --key_;
      below_ -= taps_[key_];
      rest += taps();
    }
    while (rest >= taps()) {
      rest -= taps();
      below_ += taps_[key_];
      ++key_;
    }
    return rest;
  }

  /// The colour of tap number `rest` among those of the key in the order of visiting: the columns
  /// to the left of the image, its own columns with what lies above and below them, and the rest.
  template <typename Codec>
  uint32_t FindTap(Codec codec, int64_t x, int64_t first, int64_t columns, int64_t rest) const {
    const bool outside_too = key_ == outside_key_;
    const auto key = static_cast<uint8_t>(key_);
    if (outside_too) {
      rest -= std::max<int64_t>(reach_.before - x, 0) * size_;
      if (rest < 0) return outside_;
    }
    const int64_t extra = outside_too ? size_ - static_cast<int64_t>(length_) : 0;
    if (columns <= 0) return outside_;
    const auto found = static_cast<int64_t>(ActiveMedianKernels().find_column(
        Column(first), pitch_, static_cast<size_t>(columns), length_, key, extra, &rest));
    if (found == columns) return outside_;
    if (outside_too) {
      rest -= above_;
      if (rest < 0) return outside_;
    }
    const uint8_t* const column = Column(first + found);
    for (size_t i = 0; i < length_; ++i) {
      if (column[i] != key || rest-- > 0) continue;
      return codec.Load(source_.Row(first_row_ + static_cast<int64_t>(i)), first + found);
    }
    return outside_;
  }

  const ImageView source_;
  const ImageView dest_;
  const Reach reach_;
  const int64_t size_;
  const uint32_t outside_;
  const int outside_key_;
  const size_t ring_;
  size_t pitch_;
  std::unique_ptr<uint8_t[]> keys_;

  // The rows of the source that the windows of the present row cover.
  int64_t columns_ = 0;
  int64_t first_row_ = 0;
  int64_t above_ = 0;  // rows above the image
  size_t length_ = 0;
  size_t offset_ = 0;  // of the first row in a column of keys

  // The histogram of the window's part inside the image.
  uint32_t taps_[256];
  int key_ = 0;
  uint32_t below_ = 0;  // taps below `key_`
};

void SelectMiddle(const ImageView& source, const ImageView& dest, int size) {
  const SourceRows rows(source);
  DestRows out(dest);
  const int64_t most = SelectionTile::Width(rows.sample_bytes(), size);
  ForEachTile(0, dest.Columns(), most, [&](int64_t x, int64_t count) {
    SelectionTile(rows, size, x, count).Run(out, dest.Rows());
  });
}

}  // namespace

int32_t CompareColors(const void* a, const void* b) {
  const auto* const left = static_cast<const uint8_t*>(a);
  const auto* const right = static_cast<const uint8_t*>(b);
  return Brightness(left[0], left[1], left[2]) - Brightness(right[0], right[1], right[2]);
}

result_t CQELFilterTransform::Median(IQEL* image, int size, IQEL** result) {
  if (image == nullptr) return kFail;
  const ImageView source = ReadView(*image);
  ResultImage output = ResultImage::Like(source);
  if (!output) return kFail;
  const ImageView dest = output.View();
  if (size <= 0) {
    FillPixels(dest, PackColour(0, 0, 0, 0));
  } else if (StoresPixels(dest)) {
    if (size <= static_cast<int>(kMostSelected)) {
      SelectMiddle(source, dest, size);
    } else {
      SlidingMedian median(source, dest, size);
      if (!median) return kFail;
      median.Run();
    }
  }
  return output.HandOver(image, result);
}

}  // namespace qel
