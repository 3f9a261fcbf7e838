#ifndef QEL_FILTER_MEDIAN_KEY_COLUMNS_H_
#define QEL_FILTER_MEDIAN_KEY_COLUMNS_H_

#include <algorithm>
#include <cstring>

#include "filter/median/key_count_kernels.h"
#include "filter/median/median.h"
#include "filter/neighbourhood.h"
#include "image/pixel_access.h"

namespace qel {

/// The keys of the rows under the windows, column by column, so that a column enters and leaves as
/// one piece of memory. Finds taps among them.
class KeyColumns {
 public:
  KeyColumns(const ImageView& source, int size)
      : source_(source),
        rows_(source),
        reach_(size),
        outside_(OutsideColor(source)),
        outside_key_(
            static_cast<uint8_t>(Brightness(BlueOf(outside_), GreenOf(outside_), RedOf(outside_)))),
        ring_(static_cast<size_t>(std::min<int64_t>(size, source.Rows()))) {}

  /// The key and the color of everything outside.
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

  /// The keys of row `row` in the columns that are kept: where they lie, or in `scratch`.
  const uint8_t* Read(int64_t row, uint8_t* scratch) const {
    if (row < 0 || row >= source_.Rows()) {
      std::memset(scratch, outside_key_, static_cast<size_t>(end_ - begin_));
      return scratch;
    }
    if (rows_.InPlace() && rows_.pixel_bytes() == 1) return rows_.At(row, begin_);
    constexpr int64_t kPiece = 1024;
    uint8_t pixels[4 * kPiece];
    for (int64_t x = begin_; x < end_; x += kPiece) {
      const int64_t count = std::min(kPiece, end_ - x);
      rows_.CopyPixels(row, x, count, pixels);
      WriteKeys(scratch + (x - begin_), pixels, rows_.pixel_bytes(), count);
    }
    return scratch;
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
    return memory_ + (x - begin_) * static_cast<int64_t>(pitch()) + offset_;
  }

  /// The columns from `x` on, which need not be kept: but their memory is read.
  TapColumns ColumnsFrom(int64_t x) const {
    return {Column(x), pitch(), length_, static_cast<size_t>(above_),
            static_cast<uint8_t>(outside_key_)};
  }

  /// The color of tap number `rest` among those with `key` in column `x` of the windows, with what
  /// lies above and below it.
  template <typename Codec>
  uint32_t FindTap(Codec codec, int64_t x, int key, int64_t rest) const {
    if (x < begin_ || x >= end_) return outside_;
    if (key == outside_key_) rest -= above_;
    if (rest < 0) return outside_;
    return ColorAt(codec, x,
                   ActiveKeyCountKernels().find_equal(Column(x), length_, static_cast<uint8_t>(key),
                                                      static_cast<size_t>(rest)));
  }
  /// The color of column `x` in row `row` of those under the windows; `length()` for the others.
  template <typename Codec>
  uint32_t ColorAt(Codec codec, int64_t x, size_t row) const {
    if (x < begin_ || x >= end_ || row == length_) return outside_;
    return codec.Load(source_.Row(first_row_ + static_cast<int64_t>(row)), x);
  }

 private:
  const ImageView source_;
  const SourceRows rows_;
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

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_KEY_COLUMNS_H_
