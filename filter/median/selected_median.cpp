#include <cstring>
#include <utility>

#include "filter/median/median.h"
#include "filter/median/median_kernels.h"
#include "filter/neighbourhood.h"

// The middle of small windows: by a pruned merge-exchange network (Batcher 1968), or by radix
// selection, bit by bit from the highest, counting how many keys lie below a limit. 3 x 3 colors
// have kernels of their own, which bring the colors along.

namespace qel {
namespace {

/// Scratch rows of a call.
constexpr size_t kScratchBytes = 48 * 1024;

/// A strip of windows, by the network or bit by bit.
class SelectionStrip {
 public:
  SelectionStrip(Strip& strip, const MedianPlan& plan, std::span<uint8_t> scratch)
      : strip_(strip),
        reach_(plan.size),
        size_(static_cast<size_t>(plan.size)),
        sorts_(plan.method == MedianMethod::kNetwork),
        in_count_(static_cast<size_t>(strip.InCount())),
        key_pitch_(ScratchPitch(in_count_)),
        pixel_pitch_(HasColors() ? ScratchPitch(strip.InBytes()) : 0) {
    ranks_.bits = CountedBits(plan);
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
      std::memset(nothing_, 0x7F, key_pitch_);
    }
    pixels_ = next;
  }

  /// Most columns of a strip.
  static StripWidths Widths(int pixel_bytes, const MedianPlan& plan) {
    // Keys and counts, and the pixels of every row of colors; in place, those outside.
    const unsigned bits = CountedBits(plan);
    const int64_t key_rows = plan.size + (bits == 0 ? 2 : kSharedRows + (int64_t{1} << bits));
    const auto columns = [&](int64_t pixel_rows) {
      const int64_t bytes =
          static_cast<int64_t>(kScratchBytes) - (key_rows + pixel_rows) * int64_t{kRowSlack + 128};
      return bytes / (key_rows + pixel_rows * pixel_bytes) - plan.size + 1;
    };
    return {columns(pixel_bytes == 1 ? 0 : plan.size), columns(1)};
  }

  void Run() {
    const auto after = reach_.after;
    for (int64_t row = -reach_.before; row < after; ++row) {
      Read(row);
      CountColumns(row, nothing_);
    }
    for (int64_t y = 0; y < strip_.Rows(); ++y) {
      strip_.Prefetch(y, after);
      Read(y + after);
      CountColumns(y + after, y == 0 ? nothing_ : Keys(y - 1 - reach_.before));
      Select(y);
    }
  }

 private:
  static unsigned CountedBits(const MedianPlan& plan) {
    return plan.method == MedianMethod::kNetwork ? 0 : plan.counted_bits;
  }

  /// Rows of keys beside those of the windows: taps, and what ranking takes.
  static constexpr int64_t kSharedRows = 6;

  bool HasColors() const { return strip_.Step() > 1; }
  /// One more than a window has rows: what is counted out is still there.
  size_t Slots() const { return size_ + 1; }
  size_t Slot(int64_t row) const { return static_cast<size_t>(row + reach_.before) % Slots(); }
  uint8_t* Keys(int64_t row) { return keys_ + Slot(row) * key_pitch_; }

  void Read(int64_t row) {
    uint8_t* const keys = Keys(row);
    ReadKeys(row, keys);
    if (!sorts_) ActiveMedianKernels().center_keys(keys, in_count_);
  }

  void ReadKeys(int64_t row, uint8_t* keys) {
    if (!HasColors()) {
      const uint8_t* const levels = strip_.Read(row, keys);
      if (levels != keys) std::memcpy(keys, levels, in_count_);
      return;
    }
    const size_t slot = static_cast<size_t>(row + reach_.before) % size_;
    const uint8_t* const pixels = strip_.Read(row, pixels_ + slot * pixel_pitch_);
    rows_[slot] = pixels;
    WriteKeys(keys, pixels, static_cast<int>(strip_.Step()), strip_.InCount());
  }

  void CountColumns(int64_t entering, const uint8_t* leaving) {
    if (ranks_.bits == 0) return;
    ActiveMedianKernels().count_columns(ranks_, Keys(entering), leaving, in_count_);
  }

  void Select(int64_t y) {
    const MedianKernels& kernels = ActiveMedianKernels();
    const auto count = static_cast<size_t>(strip_.Count());
    const uint8_t* keys[kMostSelected];
    const uint8_t* pixels[kMostSelected];
    for (size_t j = 0; j < size_; ++j) {
      const int64_t row = y - reach_.before + static_cast<int64_t>(j);
      keys[j] = Keys(row);
      pixels[j] = rows_[static_cast<size_t>(row + reach_.before) % size_];
    }
    if (ranks_.bits != 0) kernels.rank(ranks_, size_, count);
    uint8_t* const dest = strip_.Open(y);
    if (!HasColors()) {
      kernels.select_keys(dest, keys, ranks_, size_, count);
    } else {
      if (sorts_) {
        kernels.sort_taps(taps_, keys, count);
      } else {
        kernels.select_taps(taps_, keys, ranks_, size_, count);
      }
      const auto copy = strip_.Step() == 4 ? kernels.copy_taps4 : kernels.copy_taps3;
      copy(dest, pixels, taps_, size_, count);
    }
    strip_.Close(y);
  }

  Strip& strip_;
  const Reach reach_;
  const size_t size_;
  const bool sorts_;
  const size_t in_count_;
  const size_t key_pitch_;
  const size_t pixel_pitch_;
  RankRows ranks_ = {};
  uint8_t* keys_;
  uint8_t* taps_;
  uint8_t* nothing_ = nullptr;  ///< keys that no limit counts
  uint8_t* pixels_;
  const uint8_t* rows_[kMostSelected] = {};
};

/// The kernels of 3 x 3 colors, where the level has them.
const ColorKernels& ColorsOf(int pixel_bytes) {
  const MedianKernels& kernels = ActiveMedianKernels();
  return pixel_bytes == 4 ? kernels.colors4 : kernels.colors3;
}

/// 3 x 3 colors: each row is spread by channel once, for the three rows of windows it lies in.
[[gnu::noinline]] void SelectColors(const ImageView& source, const ImageView& dest) {
  constexpr int64_t kMostWindows = 2016;
  constexpr size_t kPitch = SpreadBytes(kMostWindows, 4);
  constexpr size_t kSlack = 16;
  constexpr size_t kEndsBytes = 3 * 1024;
  // Their windows: those of half of these bytes at most.
  constexpr size_t kEndsPitch = SpreadBytes(kEndsBytes / 2 / 3, 4);
  // A row at a time is more than the memory takes at once, so kernels fetch along their way.
  constexpr int64_t kRowsAhead = 2;
  constexpr Window kWindow = Window::Square(3);
  const SourceRows rows(source);
  DestRows out(dest);
  const ColorKernels& kernels = ColorsOf(rows.pixel_bytes());
  const auto step = static_cast<size_t>(rows.pixel_bytes());
  ScratchBlock<2 * kPitch + ScratchPitch(4 * (kMostWindows + 2))> scratch;
  uint8_t* const assembled = scratch.bytes + 2 * kPitch;
  Strips strips(rows, out, kWindow.columns, {kMostWindows, kMostWindows}, kSlack, scratch);
  ScratchBlock<kEndsBytes + 2 * kEndsPitch> ends_scratch;
  RowEnds ends(rows, out, kWindow, strips.LeftEnd(), strips.RightEnd(), kSlack,
               std::span(ends_scratch.bytes).first(strips.HasEnds() ? kEndsBytes : 0));
  const auto write_ends = [&](uint8_t* to, const uint8_t* const* from, size_t bytes) {
    const size_t count = bytes / step;
    uint8_t* const upper = ends_scratch.bytes + kEndsBytes;
    kernels.spread(upper, from[0], count);
    kernels.spread(upper + kEndsPitch, from[1], count);
    kernels.middle(to, upper, upper + kEndsPitch, from[2], {from[2], to}, count);
  };
  const int64_t at_once = ends.RowsAtOnce();
  const int64_t strip_count = strips.count() - (at_once != 0 ? 1 : 0);
  for (int64_t i = 0; i < strip_count; ++i) {
    Strip& strip = strips[i];
    const auto count = static_cast<size_t>(strip.Count());
    uint8_t* upper = scratch.bytes;
    uint8_t* middle = scratch.bytes + kPitch;
    kernels.spread(upper, strip.Read(-1, assembled), count);
    kernels.spread(middle, strip.Read(0, assembled), count);
    for (int64_t y = 0; y < strip.Rows(); ++y) {
      const uint8_t* const pixels = strip.Read(y + 1, assembled);
      uint8_t* const to = strip.Open(y);
      const uint8_t* ahead[] = {pixels, to};
      if (strip.InPlace()) {
        ahead[0] = strip.Read(y + 1 + kRowsAhead, nullptr);
        ahead[1] = strip.Open(std::min(y + kRowsAhead, strip.Rows() - 1));
      } else {
        strip.Prefetch(y, 1);
      }
      kernels.middle(to, upper, middle, pixels, ahead, count);
      strip.Close(y);
      std::swap(upper, middle);
      if (i + 1 == strip_count) ends.WriteAfter<3>(y, write_ends);
    }
  }
}

/// 3 x 3 keys, from where they lie.
[[gnu::noinline]] void SelectLevels(const ImageView& source, const ImageView& dest) {
  const SourceRows rows(source);
  DestRows out(dest);
  ScratchBlock<kScratchBytes> scratch;
  ForEachRowOfWindows<3>(rows, out, Window::Square(3), 0, scratch, ActiveMedianKernels().sort_keys);
}

[[gnu::noinline]] void SelectKeys(const MedianPlan& plan, const ImageView& source,
                                  const ImageView& dest) {
  const SourceRows rows(source);
  DestRows out(dest);
  ScratchBlock<kScratchBytes> scratch;
  const StripWidths most = SelectionStrip::Widths(rows.pixel_bytes(), plan);
  ForEachStrip(rows, out, Window::Square(plan.size).columns, most, kRowSlack, scratch,
               [&](Strip& strip) { SelectionStrip(strip, plan, scratch).Run(); });
}

}  // namespace

bool SelectMedian(const MedianPlan& plan, const ImageView& source, const ImageView& dest) {
  const int pixel_bytes = PixelBytes(source.bit_count);
  const bool is_network = plan.method == MedianMethod::kNetwork;
  if (is_network && pixel_bytes == 1) {
    SelectLevels(source, dest);
  } else if (is_network && ColorsOf(pixel_bytes).spread != nullptr) {
    SelectColors(source, dest);
  } else {
    SelectKeys(plan, source, dest);
  }
  return true;
}

}  // namespace qel
