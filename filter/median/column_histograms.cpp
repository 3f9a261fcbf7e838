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
    const size_t level = extended * ColumnCounts::kLanes;
    const size_t taps = colors_ ? ColumnCounts::kKeys * extended : 0;
    const size_t counts = (1 + ColumnCounts::kLanes) * level + taps + kCountSlack;
    const size_t keys = colors_ ? columns_.BytesFor(static_cast<int64_t>(extended)) : 0;
    memory_.reset(new (std::nothrow) uint8_t[counts + keys + 2 * extended]);
    counts_.coarse = memory_.get();
    counts_.fine = counts_.coarse + level;
    counts_.taps = colors_ ? counts_.fine + ColumnCounts::kLanes * level : nullptr;
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
  /// Windows of a strip: the counts of its columns stay in the second cache.
  static constexpr auto kStripColumns = static_cast<int64_t>(kMostCountedWindows);

  template <typename Codec>
  void RunStrip(Codec codec, int64_t x, int64_t count) {
    const int64_t first = x - reach_.before;
    Begin(first, count + size_ - 1);
    for (int64_t row = 0; row < reach_.after; ++row) Replace(row, -1);
    const KeyCountKernels& kernels = ActiveKeyCountKernels();
    const auto windows = static_cast<size_t>(count);
    for (int64_t y = 0; y < dest_.Rows(); ++y) {
      Replace(y + reach_.after, y - reach_.before - 1);
      kernels.middle_keys(middle_, colors_ ? numbers_ : nullptr, counts_,
                          static_cast<size_t>(size_), windows);
      uint8_t* const to = dest_.Row(y);
      if constexpr (Codec::kDirect) {
        columns_.Enter(y);
        kernels.find_taps(found_, rows_, middle_, numbers_, counts_, columns_.ColumnsFrom(first),
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

  /// Takes `extended` columns from `first` on, as if everything were outside.
  void Begin(int64_t first, int64_t extended) {
    constexpr auto kLanes = ColumnCounts::kLanes;
    const auto columns = static_cast<size_t>(extended);
    const int64_t begin = std::clamp<int64_t>(first, 0, columns_of_source_);
    const int64_t end = std::clamp(first + extended, begin, columns_of_source_);
    const auto before = static_cast<size_t>(begin - first);
    columns_.Keep(keys_ + before * columns_.pitch(), begin, end);
    inner_ = counts_.From(before);
    const auto key = static_cast<size_t>(columns_.outside_key());
    const auto column = static_cast<uint8_t>(size_);
    const auto count_from = [&](uint8_t* counts, size_t lane) {
      for (size_t i = 0; i < kLanes * columns; ++i) counts[i] = i % kLanes >= lane ? column : 0;
    };
    std::memset(counts_.fine, 0, kLanes * kLanes * counts_.pitch);
    count_from(counts_.coarse, key / kLanes);
    count_from(counts_.fine + key / kLanes * kLanes * counts_.pitch, key % kLanes);
    if (!colors_) return;
    std::memset(counts_.taps, 0, ColumnCounts::kKeys * counts_.pitch);
    std::memset(counts_.taps + key * counts_.pitch, column, columns);
    std::memset(keys_, columns_.outside_key(), columns_.BytesFor(extended));
  }

  /// Lets a row enter the columns and another one leave them.
  void Replace(int64_t entering, int64_t leaving) {
    if (columns_.begin() == columns_.end() || (entering >= rows_of_source_ && leaving < 0)) return;
    columns_.Read(leaving, leaving_);
    columns_.Read(entering, entering_);
    if (colors_) columns_.Spread(entering, entering_);
    ActiveKeyCountKernels().recount(inner_, leaving_, entering_,
                                    static_cast<size_t>(columns_.end() - columns_.begin()));
  }

  const ImageView dest_;
  const int64_t columns_of_source_;
  const int64_t rows_of_source_;
  const Reach reach_;
  const int64_t size_;
  const bool colors_;
  KeyColumns columns_;
  std::unique_ptr<uint8_t[]> memory_;
  ColumnCounts counts_;  // of all columns that the windows cover
  ColumnCounts inner_;   // of those inside the image
  uint8_t* keys_;
  uint8_t* entering_;
  uint8_t* leaving_;
  // Of each window: the wanted key, its tap's number among those of that key, its column and row.
  uint8_t middle_[kStripColumns];
  uint16_t numbers_[kStripColumns];
  uint8_t found_[kStripColumns];
  uint8_t rows_[kStripColumns];
};

}  // namespace

bool MedianByColumnHistograms(const ImageView& source, const ImageView& dest, int size) {
  ColumnHistograms histograms(source, dest, size);
  if (!histograms) return false;
  histograms.Run();
  return true;
}

}  // namespace qel
