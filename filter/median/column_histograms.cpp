#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "filter/median/key_columns.h"
#include "image/pixel_layout.h"

// Column histograms on two levels (Perreault and Hebert 2007): whatever the size, 16 coarse counts
// enter a window and leave it for each pixel, and 16 fine counts of the segment that the middle is
// in. Counts are cumulated, so the middle key is the number of counts up to the middle place.

namespace qel {
namespace {

/// Columns have one key entering and one leaving from row to row, windows one column from pixel to
/// pixel. What is outside counts like everything else.
template <typename Count>
class ColumnHistograms {
 public:
  ColumnHistograms(const ImageView& source, const ImageView& dest, int size)
      : dest_(dest),
        columns_of_source_(source.Columns()),
        rows_of_source_(source.HasPixels() ? source.Rows() : 0),
        reach_(size),
        size_(size),
        colors_(PixelBytes(source.bit_count) > 1),
        columns_(source, size) {
    const int64_t windows = std::min(dest.Columns(), kStripColumns);
    const auto extended = static_cast<size_t>(windows + size - 1);
    const size_t level = extended * Counts::kLanes;
    const size_t taps = colors_ ? Counts::kKeys * extended : 0;
    const size_t counts = ((1 + Counts::kLanes) * level + taps) * sizeof(Count) + kCountSlack;
    const size_t keys = colors_ ? columns_.BytesFor(static_cast<int64_t>(extended)) : 0;
    memory_.reset(new (std::nothrow) uint8_t[counts + keys + 2 * extended]);
    counts_.coarse = reinterpret_cast<Count*>(memory_.get());
    counts_.fine = counts_.coarse + level;
    counts_.taps = colors_ ? counts_.fine + Counts::kLanes * level : nullptr;
    counts_.pitch = extended;
    keys_ = memory_.get() + counts;
    entering_ = keys_ + keys;
    leaving_ = entering_ + extended;
  }

  /// False when there is no memory.
  explicit operator bool() const { return memory_ != nullptr; }

  void Run() {
    ForEachTile(0, dest_.Columns(), kStripColumns, [&](int64_t x, int64_t count) {
      VisitAccessLayout(dest_.bit_count, [&](auto codec) { RunStrip(codec, x, count); });
    });
  }

 private:
  using Counts = ColumnCounts<Count>;
  using Kernels = ColumnCountKernels<Count>;
  /// Windows of a strip: the counts of its columns stay in the second cache.
  static constexpr auto kStripColumns = static_cast<int64_t>(kMostCountedWindows);

  template <typename Codec>
  void RunStrip(Codec codec, int64_t x, int64_t count) {
    const int64_t first = x - reach_.before;
    Begin(first, count + size_ - 1);
    const auto windows = static_cast<size_t>(count);
    for (int64_t y = 0; y < dest_.Rows(); ++y) {
      Replace(y + reach_.after, y - reach_.before - 1);
      short_kernels_.middle_keys(middle_, colors_ ? numbers_ : nullptr, counts_,
                                 static_cast<size_t>(size_), windows);
      uint8_t* const to = dest_.Row(y);
      if constexpr (Codec::kDirect) {
        columns_.Enter(y);
        (size_ <= 32 ? short_kernels_ : kernels_)
            .find_taps(found_, rows_, middle_, numbers_, counts_, columns_.ColumnsFrom(first),
                       windows);
        for (int64_t i = 0; i < count; ++i) {
          codec.Store(to, x + i, columns_.ColorAt(codec, first + i + found_[i], rows_[i]));
        }
      } else if (dest_.bit_count == 8) {
        std::memcpy(to + x, middle_, windows);
      } else {
        for (int64_t i = 0; i < count; ++i) codec.Store(to, x + i, GrayColor(middle_[i]));
      }
    }
  }

  /// Takes `extended` columns from `first` on, with all but the last of the rows under the first
  /// windows.
  void Begin(int64_t first, int64_t extended) {
    constexpr auto kLanes = Counts::kLanes;
    const auto columns = static_cast<size_t>(extended);
    const int64_t begin = std::clamp<int64_t>(first, 0, columns_of_source_);
    const int64_t end = std::clamp(first + extended, begin, columns_of_source_);
    const auto before = static_cast<size_t>(begin - first);
    columns_.Keep(keys_ + before * columns_.pitch(), begin, end);
    inner_ = counts_.From(before);
    const auto key = static_cast<size_t>(columns_.outside_key());
    // What is outside is counted at once; rows of the image come on top.
    const int64_t rows = begin == end ? 0 : std::min(reach_.after, rows_of_source_);
    const auto count_outside = [&](size_t from, size_t to, int64_t taps) {
      const auto of_column = static_cast<Count>(taps);
      const auto count_from = [=](Count* counts, size_t lane) {
        Count lanes[kLanes];
        for (size_t i = 0; i < kLanes; ++i) lanes[i] = i >= lane ? of_column : 0;
        for (size_t x = from; x < to; ++x) std::memcpy(counts + kLanes * x, lanes, sizeof(lanes));
      };
      count_from(counts_.coarse, key / kLanes);
      count_from(counts_.fine + key / kLanes * kLanes * counts_.pitch, key % kLanes);
      if (colors_) std::fill_n(counts_.taps + key * counts_.pitch + from, to - from, of_column);
    };
    std::fill_n(counts_.fine, kLanes * kLanes * counts_.pitch, 0);
    if (colors_) {
      std::fill_n(counts_.taps, Counts::kKeys * counts_.pitch, 0);
      std::memset(keys_, columns_.outside_key(), columns_.BytesFor(extended));
    }
    count_outside(0, columns, size_);
    count_outside(before, before + static_cast<size_t>(end - begin), size_ - rows);
    for (int64_t row = 0; row < rows; ++row) {
      short_kernels_.recount(inner_, nullptr, Enter(row), InnerColumns());
    }
  }
  size_t InnerColumns() const { return static_cast<size_t>(columns_.end() - columns_.begin()); }

  /// The keys of a row that enters the columns.
  const uint8_t* Enter(int64_t row) {
    const uint8_t* const keys = columns_.Read(row, entering_);
    if (colors_) columns_.Spread(row, keys);
    return keys;
  }

  /// Lets a row enter the columns and another one leave them.
  void Replace(int64_t entering, int64_t leaving) {
    if (columns_.begin() == columns_.end() || (entering >= rows_of_source_ && leaving < 0)) return;
    const uint8_t* const left = columns_.Read(leaving, leaving_);
    short_kernels_.recount(inner_, left, Enter(entering), InnerColumns());
  }

  const ImageView dest_;
  const int64_t columns_of_source_;
  const int64_t rows_of_source_;
  const Reach reach_;
  const int64_t size_;
  const bool colors_;
  KeyColumns columns_;
  std::unique_ptr<uint8_t[]> memory_;
  const Kernels& kernels_ = ColumnCountKernelsFor<Count>(kActiveCpuLevel);
  // Sixteen counts of 16 bits, or 32 columns, fill a vector of AVX2.
  const Kernels& short_kernels_ = ColumnCountKernelsFor<Count>(
      sizeof(Count) == 1 ? std::min(kActiveCpuLevel, CpuLevel::kAvx2) : kActiveCpuLevel);
  Counts counts_;  // of all columns that the windows cover
  Counts inner_;   // of those inside the image
  uint8_t* keys_;
  uint8_t* entering_;
  uint8_t* leaving_;
  // Of each window: the wanted key, its tap's number among those of that key, its column and row.
  uint8_t middle_[kStripColumns];
  uint32_t numbers_[kStripColumns];
  uint16_t found_[kStripColumns];
  uint16_t rows_[kStripColumns];
};

}  // namespace

bool MedianByColumnHistograms(const MedianPlan& plan, const ImageView& source,
                              const ImageView& dest) {
  const auto run = [&](auto count) {
    ColumnHistograms<decltype(count)> histograms(source, dest, plan.size);
    if (!histograms) return false;
    histograms.Run();
    return true;
  };
  return plan.method == MedianMethod::kColumnHistograms ? run(uint8_t()) : run(uint16_t());
}

}  // namespace qel
