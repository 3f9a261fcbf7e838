#include "filter/median/counted_median.h"

#include <cstring>
#include <memory>
#include <new>

#include "filter/median/key_count_kernels.h"
#include "filter/median/median.h"
#include "filter/neighbourhood.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"

namespace qel {
namespace {

/// The keys of the rows under the windows, column by column, so that a column enters and leaves as
/// one piece of memory. Finds taps among them.
class KeyColumns {
 public:
  KeyColumns(const ImageView& source, int size)
      : source_(source),
        reach_(size),
        outside_(OutsideColor(source)),
        outside_key_(
            static_cast<uint8_t>(Brightness(BlueOf(outside_), GreenOf(outside_), RedOf(outside_)))),
        ring_(static_cast<size_t>(std::min<int64_t>(size, source.Rows()))) {}

  /// The key and the colour of everything outside.
  int outside_key() const { return outside_key_; }
  uint32_t outside() const { return outside_; }
  /// The rows of the source under the windows of the present row.
  size_t length() const { return length_; }

  /// Bytes from column to column. Each key is stored twice, a ring apart: the rows of a window are
  /// then always in one piece.
  size_t pitch() const { return 2 * ring_; }
  /// Bytes for `columns` columns.
  size_t BytesFor(int64_t columns) const {
    return static_cast<size_t>(columns) * pitch() + kRowSlack;
  }
  /// Keeps the columns from `begin` up to `end` in `memory` from now on.
  void Keep(uint8_t* memory, int64_t begin, int64_t end) {
    memory_ = memory;
    begin_ = begin;
    end_ = source_.HasPixels() ? end : begin;
  }
  int64_t begin() const { return begin_; }
  int64_t end() const { return end_; }

  /// The keys of row `row` in the columns that are kept.
  void Read(int64_t row, uint8_t* keys) const {
    if (row < 0 || row >= source_.Rows()) {
      std::memset(keys, outside_key_, static_cast<size_t>(end_ - begin_));
      return;
    }
    constexpr int64_t kPiece = 1024;
    const SourceRows rows(source_);
    uint8_t samples[4 * kPiece];
    for (int64_t x = begin_; x < end_; x += kPiece) {
      const int64_t count = std::min(kPiece, end_ - x);
      rows.Fetch(row, x, count, samples);
      WriteKeys(keys + (x - begin_), samples, rows.sample_bytes(), count);
    }
  }
  /// Distributes the keys of row `row` over the columns.
  void Spread(int64_t row, const uint8_t* keys) {
    if (row >= source_.Rows()) return;
    uint8_t* column = memory_ + static_cast<size_t>(row) % ring_;
    for (int64_t i = 0; i < end_ - begin_; ++i, column += pitch()) {
      column[0] = column[ring_] = keys[i];
    }
  }

  /// Makes `y` the present row.
  void Enter(int64_t y) {
    first_row_ = std::max<int64_t>(y - reach_.before, 0);
    const int64_t end = std::min(y + reach_.after + 1, source_.Rows());
    length_ = static_cast<size_t>(end_ > begin_ ? end - first_row_ : 0);
    above_ = std::max<int64_t>(reach_.before - y, 0);
    offset_ = ring_ > 0 ? static_cast<size_t>(first_row_) % ring_ : 0;
  }
  /// The keys of column `x` under the present row's windows.
  const uint8_t* Column(int64_t x) const {
    return memory_ + static_cast<size_t>(x - begin_) * pitch() + offset_;
  }

  /// The colour of tap number `rest` among those with `key` in column `x` of the windows, with what
  /// lies above and below it.
  template <typename Codec>
  uint32_t FindTap(Codec codec, int64_t x, int key, int64_t rest) const {
    if (x < begin_ || x >= end_) return outside_;
    if (key == outside_key_) rest -= above_;
    if (rest < 0) return outside_;
    const size_t row =
        ActiveKeyCountKernels().find_equal(Column(x), length_, static_cast<uint8_t>(key), rest);
    if (row == length_) return outside_;
    return codec.Load(source_.Row(first_row_ + static_cast<int64_t>(row)), x);
  }

 private:
  const ImageView source_;
  const Reach reach_;
  const uint32_t outside_;
  const int outside_key_;
  const size_t ring_;
  uint8_t* memory_ = nullptr;
  int64_t begin_ = 0;
  int64_t end_ = 0;

  // The rows of the source that the windows of the present row cover.
  int64_t first_row_ = 0;
  int64_t above_ = 0;  // rows above the image
  size_t length_ = 0;
  size_t offset_ = 0;  // of the first row in a column of keys
};

/// Windows up to `kMostCounted`, at a cost that does not depend on their size: columns count their
/// keys, with one key entering and one leaving from row to row, and so do windows, with one column
/// entering and one leaving from pixel to pixel. What is outside counts like everything else.
class CountedMedian {
 public:
  CountedMedian(const ImageView& source, const ImageView& dest, int size)
      : dest_(dest),
        columns_of_source_(source.Columns()),
        rows_of_source_(source.HasPixels() ? source.Rows() : 0),
        reach_(size),
        size_(size),
        colours_(SampleBytes(source.bit_count) > 1),
        columns_(source, size) {
    const int64_t windows = std::min(dest.Columns(), kStripColumns);
    const auto extended = static_cast<size_t>(windows + size - 1);
    const size_t counts = extended * kCountBytes;
    const size_t keys = colours_ ? columns_.BytesFor(static_cast<int64_t>(extended)) : 0;
    memory_.reset(new (std::nothrow) uint8_t[counts + keys + 2 * extended]);
    counts_ = memory_.get();
    keys_ = counts_ + counts;
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
  static constexpr int64_t kStripColumns = 768;

  template <typename Codec>
  void RunStrip(Codec codec, int64_t x, int64_t count) {
    const int64_t first = x - reach_.before;
    const int64_t extended = count + size_ - 1;
    const int64_t begin = std::clamp<int64_t>(first, 0, columns_of_source_);
    columns_.Keep(keys_, begin, std::clamp(first + extended, begin, columns_of_source_));
    inner_ = counts_ + static_cast<size_t>(begin - first) * kCountBytes;
    for (int64_t i = 0; i < extended; ++i) {
      uint8_t* const counts = counts_ + static_cast<size_t>(i) * kCountBytes;
      std::memset(counts, 0, static_cast<size_t>(columns_.outside_key()));
      std::memset(counts + columns_.outside_key(), static_cast<int>(size_),
                  kCountBytes - static_cast<size_t>(columns_.outside_key()));
    }
    for (int64_t row = 0; row < reach_.after; ++row) Replace(row, -1);
    for (int64_t y = 0; y < dest_.Rows(); ++y) {
      Replace(y + reach_.after, y - reach_.before - 1);
      ActiveKeyCountKernels().slide(middle_, colours_ ? places_ : nullptr, counts_,
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
          codec.Store(to, x + i, GreyColour(middle_[i]));
        }
      }
    }
  }

  /// Lets a row enter the columns and another one leave them.
  void Replace(int64_t entering, int64_t leaving) {
    if (columns_.begin() == columns_.end() || (entering >= rows_of_source_ && leaving < 0)) return;
    columns_.Read(leaving, leaving_);
    columns_.Read(entering, entering_);
    if (colours_) columns_.Spread(entering, entering_);
    ActiveKeyCountKernels().recount(inner_, leaving_, entering_,
                                    static_cast<size_t>(columns_.end() - columns_.begin()));
  }

  const ImageView dest_;
  const int64_t columns_of_source_;
  const int64_t rows_of_source_;
  const Reach reach_;
  const int64_t size_;
  const bool colours_;
  KeyColumns columns_;
  std::unique_ptr<uint8_t[]> memory_;
  uint8_t* counts_;  // of all columns that the windows cover
  uint8_t* inner_;   // of those inside the image
  uint8_t* keys_;
  uint8_t* entering_;
  uint8_t* leaving_;
  // Of each window: the wanted key, its tap's place in the window, and where that is found.
  uint8_t middle_[kStripColumns];
  TapPlace places_[kStripColumns];
  uint8_t found_[kStripColumns];
  uint8_t numbers_[kStripColumns];
};

/// Windows of any size, key by key.
class SlidingMedian {
 public:
  SlidingMedian(const ImageView& source, const ImageView& dest, int size)
      : source_(source), dest_(dest), reach_(size), size_(size), columns_(source, size) {
    const auto keys = static_cast<size_t>(source.Columns());
    const size_t kept = source.HasPixels() ? columns_.BytesFor(source.Columns()) : 0;
    memory_.reset(new (std::nothrow) uint8_t[kept + keys]);
    read_ = memory_.get() + kept;
    columns_.Keep(memory_.get(), 0, source.Columns());
  }

  /// False when there is no memory for the keys.
  explicit operator bool() const { return memory_ != nullptr; }

  void Run() {
    for (int64_t row = 0; row < std::min(reach_.after, source_.Rows()); ++row) Read(row);
    for (int64_t y = 0; y < dest_.Rows(); ++y) {
      Read(y + reach_.after);
      VisitAccessLayout(dest_.bit_count, [&](auto codec) { RunRow(codec, y); });
    }
  }

 private:
  void Read(int64_t row) {
    if (!source_.HasPixels() || row >= source_.Rows()) return;
    columns_.Read(row, read_);
    columns_.Spread(row, read_);
  }

  template <typename Codec>
  void RunRow(Codec codec, int64_t y) {
    Enter(y);
    uint8_t* const to = dest_.Row(y);
    for (int64_t x = 0; x < dest_.Columns(); ++x) {
      if (x + reach_.after < columns_.end()) Count(x + reach_.after, 1);
      if (x > reach_.before) Count(x - reach_.before - 1, ~0u);
      codec.Store(to, x, Pick(codec, x));
    }
  }

  /// Prepares the histogram for row `y`: all columns of the first window but its last.
  void Enter(int64_t y) {
    columns_.Enter(y);
    std::memset(taps_, 0, sizeof(taps_));
    below_ = 0;
    for (int64_t x = 0; x < std::min(reach_.after, columns_.end()); ++x) Count(x, 1);
  }

  /// Adds `change`, 1 or all ones for -1, for every key of column `x`.
  void Count(int64_t x, uint32_t change) {
    const uint8_t* const column = columns_.Column(x);
    uint32_t below = 0;
    for (size_t i = 0; i < columns_.length(); ++i) {
      taps_[column[i]] += change;
      below += column[i] < key_ ? change : 0;
    }
    below_ += below;
  }

  /// The colour in the middle of the window of column `x`.
  template <typename Codec>
  uint32_t Pick(Codec codec, int64_t x) {
    const int64_t first = std::max<int64_t>(x - reach_.before, 0);
    const int64_t end = std::min(x + reach_.after + 1, columns_.end());
    const int64_t inside =
        std::max<int64_t>(end - first, 0) * static_cast<int64_t>(columns_.length());
    const int64_t rest = MoveKey(size_ * size_ - inside);
    if constexpr (!Codec::kDirect) {
      return GreyColour(static_cast<uint32_t>(key_));
    } else {
      return FindTap(codec, x, first, end - first, rest);
    }
  }

  /// The colour of tap number `rest` among those of the key in the order of visiting: the columns
  /// to the left of the image, its own columns with what lies above and below them, and the rest.
  template <typename Codec>
  uint32_t FindTap(Codec codec, int64_t x, int64_t first, int64_t columns, int64_t rest) const {
    const bool outside_too = key_ == columns_.outside_key();
    if (outside_too) rest -= std::max<int64_t>(reach_.before - x, 0) * size_;
    if (rest < 0 || columns <= 0) return columns_.outside();
    const auto length = static_cast<int64_t>(columns_.length());
    const auto found = static_cast<int64_t>(ActiveKeyCountKernels().find_column(
        columns_.Column(first), columns_.pitch(), static_cast<size_t>(columns), columns_.length(),
        static_cast<uint8_t>(key_), outside_too ? size_ - length : 0, &rest));
    if (found == columns) return columns_.outside();
    return columns_.FindTap(codec, first + found, key_, rest);
  }

  /// Moves the key to that of the middle tap, `outside` taps having the outside colour. Windows of
  /// neighbours have much in common, so the way is short. Returns the middle tap's number among
  /// those of its key.
  int64_t MoveKey(int64_t outside) {
    const int outside_key = columns_.outside_key();
    int64_t rest = size_ * size_ / 2 - below_ - (outside_key < key_ ? outside : 0);
    const auto taps = [&] { return taps_[key_] + (outside_key == key_ ? outside : 0); };
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

  const ImageView source_;
  const ImageView dest_;
  const Reach reach_;
  const int64_t size_;
  KeyColumns columns_;
  std::unique_ptr<uint8_t[]> memory_;
  uint8_t* read_;  // the keys of the row that was read last

  // The histogram of the window's part inside the image.
  uint32_t taps_[256];
  int key_ = 0;
  uint32_t below_ = 0;  // taps below `key_`
};

/// Runs one of the two; false when there is no memory.
template <typename Way>
bool SlideMiddle(const ImageView& source, const ImageView& dest, int size) {
  Way way(source, dest, size);
  if (!way) return false;
  way.Run();
  return true;
}

}  // namespace

bool CountMiddle(const ImageView& source, const ImageView& dest, int size) {
  const auto run = size <= static_cast<int>(kMostCounted) ? &SlideMiddle<CountedMedian>
                                                          : &SlideMiddle<SlidingMedian>;
  return run(source, dest, size);
}

}  // namespace qel
