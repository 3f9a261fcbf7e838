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
    const size_t counts = (1 + ColumnCounts::kLanes) * level * sizeof(uint16_t) + kCountSlack;
    const size_t keys = colors_ ? columns_.BytesFor(static_cast<int64_t>(extended)) : 0;
    memory_.reset(new (std::nothrow) uint8_t[counts + keys + 2 * extended]);
    counts_.coarse = reinterpret_cast<uint16_t*>(memory_.get());
    counts_.fine = counts_.coarse + level;
    counts_.pitch = level;
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
  static constexpr int64_t kStripColumns = 512;

  template <typename Codec>
  void RunStrip(Codec codec, int64_t x, int64_t count) {
    const int64_t first = x - reach_.before;
    const int64_t extended = count + size_ - 1;
    const int64_t begin = std::clamp<int64_t>(first, 0, columns_of_source_);
    columns_.Keep(keys_, begin, std::clamp(first + extended, begin, columns_of_source_));
    inner_ = counts_.From(static_cast<size_t>(begin - first));
    // Everything is outside at first.
    constexpr auto kLanes = ColumnCounts::kLanes;
    const auto key = static_cast<size_t>(columns_.outside_key());
    const auto lanes = kLanes * static_cast<size_t>(extended);
    std::memset(counts_.fine, 0, kLanes * counts_.pitch * sizeof(uint16_t));
    const auto count_from = [&](uint16_t* counts, size_t lane) {
      for (size_t i = 0; i < lanes; ++i) {
        counts[i] = static_cast<uint16_t>(i % kLanes >= lane ? size_ : 0);
      }
    };
    count_from(counts_.coarse, key / kLanes);
    count_from(counts_.fine + key / kLanes * counts_.pitch, key % kLanes);
    for (int64_t row = 0; row < reach_.after; ++row) Replace(row, -1);
    for (int64_t y = 0; y < dest_.Rows(); ++y) {
      Replace(y + reach_.after, y - reach_.before - 1);
      ActiveKeyCountKernels().middle_keys(middle_, colors_ ? places_ : nullptr, counts_,
                                          static_cast<size_t>(size_), static_cast<size_t>(count));
      uint8_t* const to = dest_.Row(y);
      if constexpr (Codec::kDirect) {
        ActiveKeyCountKernels().find_columns(found_, numbers_, middle_, places_, counts_,
                                             static_cast<size_t>(size_),
                                             static_cast<size_t>(count));
        columns_.Enter(y);
      }
      for (int64_t i = 0; i < count; ++i) {
        if constexpr (Codec::kDirect) {
          codec.Store(to, x + i,
                      columns_.FindTap(codec, first + i + found_[i], middle_[i], numbers_[i]));
        } else {
          codec.Store(to, x + i, GrayColor(middle_[i]));
        }
      }
    }
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
  // Of each window: the wanted key, its tap's place in the window, and where that is found.
  uint8_t middle_[kStripColumns];
  TapPlace places_[kStripColumns];
  uint8_t found_[kStripColumns];
  uint8_t numbers_[kStripColumns];
};

}  // namespace

bool MedianByColumnHistograms(const ImageView& source, const ImageView& dest, int size) {
  ColumnHistograms histograms(source, dest, size);
  if (!histograms) return false;
  histograms.Run();
  return true;
}

}  // namespace qel
