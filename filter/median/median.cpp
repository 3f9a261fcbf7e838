#include "filter/median/median.h"

#include <cstring>
#include <utility>

#include "component/result_image.h"
#include "filter/filter_transform.h"
#include "filter/median/counted_median.h"
#include "filter/median/median_kernels.h"
#include "filter/neighbourhood.h"
#include "image/pixel_layout.h"

namespace qel {

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

namespace {

// The sort by brightness keeps the order of visiting among equals. What it brings to the middle is
// found without sorting: by networks and by bits of the key for small windows, and by counts of
// keys that slide along the row for large ones. Levels are their own keys; for colours the tap
// itself must be found, since colours of equal brightness differ.

/// How many high bits of a key are found by counting columns rather than taps.
constexpr unsigned CountedBits(int size) {
  return size < 5 || IsSorted(static_cast<size_t>(size)) ? 0 : size < 12 ? 4 : 5;
}

/// Scratch rows of a call. The network of 7 x 7 taps needs a third of the stack for itself.
constexpr size_t kMostScratch = 48 * 1024;
constexpr size_t kScratchBesideNetwork = 30 * 1024;

/// A strip of windows up to `kMostSelected`.
class SelectionStrip {
 public:
  SelectionStrip(Strip& strip, int size, std::span<uint8_t> scratch)
      : strip_(strip),
        reach_(size),
        size_(static_cast<size_t>(size)),
        in_count_(static_cast<size_t>(strip.InCount())),
        key_pitch_(ScratchPitch(in_count_)),
        sample_pitch_(Colours() ? ScratchPitch(strip.InBytes()) : 0) {
    ranks_.bits = CountedBits(size);
    ranks_.pitch = key_pitch_;
    uint8_t* next = scratch.data();
    const auto take = [&](size_t rows) { return std::exchange(next, next + rows * key_pitch_); };
    keys_ = take(Slots());
    taps_ = take(1);
    if (ranks_.bits != 0) {
      ranks_.columns = take(ranks_.Limits());
      ranks_.triples = take(1);
      ranks_.wanted = take(1);
      ranks_.below = take(1);
      nothing_ = take(1);
      std::memset(ranks_.columns, 0, ranks_.Limits() * key_pitch_);
      std::memset(nothing_, 0xFF, key_pitch_);
    }
    samples_ = next;
  }

  /// Most columns of a strip.
  static StripWidths Widths(size_t scratch_bytes, int sample_bytes, int size) {
    // Keys and counts, and the samples of every row of colours; in place, those outside.
    const unsigned bits = CountedBits(size);
    const int64_t key_rows = size + (bits == 0 ? 2 : kSharedRows + (int64_t{1} << bits));
    const auto columns = [&](int64_t sample_rows) {
      const int64_t bytes =
          static_cast<int64_t>(scratch_bytes) - (key_rows + sample_rows) * int64_t{kRowSlack + 128};
      return bytes / (key_rows + sample_rows * sample_bytes) - size + 1;
    };
    return {columns(sample_bytes == 1 ? 0 : size), columns(1)};
  }

  void Run() {
    const auto after = reach_.after;
    for (int64_t row = -reach_.before; row < after; ++row) {
      Read(row);
      if (ranks_.bits != 0) Rank(row, nothing_);
    }
    for (int64_t y = 0; y < strip_.Rows(); ++y) {
      strip_.Prefetch(y, after);
      Read(y + after);
      if (ranks_.bits != 0) Rank(y + after, y == 0 ? nothing_ : Keys(y - 1 - reach_.before));
      Select(y);
    }
  }

 private:
  /// Rows of keys beside those of the windows: taps, and what ranking takes.
  static constexpr int64_t kSharedRows = 6;

  bool Colours() const { return strip_.Step() > 1; }
  /// One more than a window has rows: what is counted out is still there.
  size_t Slots() const { return size_ + 1; }
  size_t Slot(int64_t row) const { return static_cast<size_t>(row + reach_.before) % Slots(); }
  uint8_t* Keys(int64_t row) { return keys_ + Slot(row) * key_pitch_; }

  void Read(int64_t row) {
    uint8_t* const keys = Keys(row);
    if (!Colours()) {
      const uint8_t* const levels = strip_.Read(row, keys);
      if (levels != keys) std::memcpy(keys, levels, in_count_);
      return;
    }
    const size_t slot = static_cast<size_t>(row + reach_.before) % size_;
    const uint8_t* const samples = strip_.Read(row, samples_ + slot * sample_pitch_);
    rows_[slot] = samples;
    WriteKeys(keys, samples, static_cast<int>(strip_.Step()), strip_.InCount());
  }

  void Rank(int64_t entering, const uint8_t* leaving) {
    ActiveMedianKernels().rank(ranks_, Keys(entering), leaving, size_,
                               static_cast<size_t>(strip_.Count()));
  }

  void Select(int64_t y) {
    const MedianKernels& kernels = ActiveMedianKernels();
    const auto count = static_cast<size_t>(strip_.Count());
    const uint8_t* keys[kMostSelected];
    const uint8_t* samples[kMostSelected];
    for (size_t j = 0; j < size_; ++j) {
      const int64_t row = y - reach_.before + static_cast<int64_t>(j);
      keys[j] = Keys(row);
      samples[j] = rows_[static_cast<size_t>(row + reach_.before) % size_];
    }
    uint8_t* const dest = strip_.Open(y);
    if (!Colours()) {
      kernels.select_key(dest, keys, ranks_, size_, count);
    } else {
      kernels.select_tap(taps_, keys, ranks_, size_, count);
      const auto copy = strip_.Step() == 4 ? kernels.copy_taps4 : kernels.copy_taps3;
      copy(dest, samples, taps_, size_, count);
    }
    strip_.Close(y);
  }

  Strip& strip_;
  const Reach reach_;
  const size_t size_;
  const size_t in_count_;
  const size_t key_pitch_;
  const size_t sample_pitch_;
  RankRows ranks_ = {};
  uint8_t* keys_;
  uint8_t* taps_;
  uint8_t* nothing_ = nullptr;  ///< keys that no limit counts
  uint8_t* samples_;
  const uint8_t* rows_[kMostSelected] = {};
};

template <size_t kScratchBytes>
[[gnu::noinline]] void SelectMiddle(const ImageView& source, const ImageView& dest, int size) {
  const SourceRows rows(source);
  DestRows out(dest);
  ScratchBlock<kScratchBytes> scratch;
  const StripWidths most = SelectionStrip::Widths(kScratchBytes, rows.sample_bytes(), size);
  ForEachStrip(rows, out, {-Reach(size).before, size}, most, kRowSlack, scratch,
               [&](Strip& strip) { SelectionStrip(strip, size, scratch).Run(); });
}

}  // namespace

result_t CQELFilterTransform::Median(IQEL* image, int size, IQEL** result) {
  if (image == nullptr) return kFail;
  const ImageView source = ReadSizeBitsAndFormat(*image);
  ResultImage output = ResultImage::Like(source);
  if (!output) return kFail;
  const ImageView dest = output.View();
  if (size <= 0) {
    FillPixels(dest, PackColour(0, 0, 0, 0));
  } else if (StoresPixels(dest)) {
    // Levels need no taps, so that counting pays earlier.
    constexpr int kMostSelectedLevels = 11;
    const bool colours = SampleBytes(source.bit_count) > 1;
    if (size <= (colours ? static_cast<int>(kMostSelected) : kMostSelectedLevels)) {
      const auto select =
          size == 7 ? &SelectMiddle<kScratchBesideNetwork> : &SelectMiddle<kMostScratch>;
      select(source, dest, size);
    } else {
      if (!CountMiddle(source, dest, size)) return kFail;
    }
  }
  return output.HandOver(image, result);
}

}  // namespace qel
