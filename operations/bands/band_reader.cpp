#include "operations/bands/band_reader.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

namespace qel::operations {

BandReader::BandReader(BandSource& source, std::vector<RowRange> parts, int height,
                       bool whole_images)
    : source_(source),
      parts_(std::move(parts)),
      keep_from_(parts_.size()),
      height_(height),
      whole_images_(whole_images) {
  int first = std::numeric_limits<int>::max();
  for (size_t i = parts_.size(); i-- > 0;) {
    keep_from_[i] = first;
    first = std::min(first, parts_[i].begin);
  }
}

SmartPtr<IQEL> BandReader::ReadNext() {
  const size_t index = next_++;
  const RowRange rows = parts_[index];
  if (IQEL* const whole = source_.Whole()) {
    if (!corner_) corner_.emplace(*whole);
    if (whole_images_) return SmartPtr<IQEL>::Retain(whole);
    SmartPtr<IQEL> image = source_.NewImage(rows.size());
    CopyRows(*whole, rows.begin, *image.Get(), 0, rows.size());
    return image;
  }
  SkipTo(rows.begin);
  SmartPtr<IQEL> image = source_.NewImage(rows.size());
  const ImageRows dest = RowsOf(*image.Get());
  const int known = std::clamp(rows_read_, rows.begin, rows.end);
  for (int y = rows.begin; y < known; ++y) {
    std::memcpy(dest.Row(y - rows.begin),
                kept_.data() + static_cast<size_t>(y - kept_from_) * dest.row_bytes,
                dest.row_bytes);
  }
  if (known < rows.end) ReadRows(*image.Get(), known - rows.begin, rows.end - known);
  KeepRows(keep_from_[index], *image.Get(), rows);
  if (next_ == parts_.size()) SkipTo(height_);
  return image;
}

/// Reads the next `count` rows into `image` from row `at` on.
void BandReader::ReadRows(IQEL& image, int at, int count) {
  source_.FillRows(image, at, count);
  if (rows_read_ == 0) corner_.emplace(image, at);
  rows_read_ += count;
}

void BandReader::SkipTo(int row) {
  constexpr int kRowsAtOnce = 16;
  if (row <= rows_read_) return;
  const SmartPtr<IQEL> image = source_.NewImage(std::min(kRowsAtOnce, row - rows_read_));
  while (rows_read_ < row) ReadRows(*image.Get(), 0, std::min(kRowsAtOnce, row - rows_read_));
}

/// Keeps rows from number `from` on, which are in `image` as its `rows`, or kept already.
void BandReader::KeepRows(int from, IQEL& image, RowRange rows) {
  if (from >= rows_read_) {
    kept_.clear();
    return;
  }
  const ImageRows source = RowsOf(image);
  const size_t bytes = static_cast<size_t>(rows_read_ - from) * source.row_bytes;
  std::vector<uint8_t> kept;
  // Mostly the image has them all: the old ones go first, for they may be many.
  const bool in_image = from >= rows.begin && rows_read_ <= rows.end;
  if (in_image && kept_.capacity() >= bytes) kept.swap(kept_);
  if (in_image) kept_ = {};
  kept.resize(bytes);
  uint8_t* to = kept.data();
  for (int y = from; y < rows_read_; ++y, to += source.row_bytes) {
    const bool is_new = y >= rows.begin && y < rows.end;
    const uint8_t* const row =
        is_new ? source.Row(y - rows.begin)
               : kept_.data() + static_cast<size_t>(y - kept_from_) * source.row_bytes;
    std::memcpy(to, row, source.row_bytes);
  }
  kept_ = std::move(kept);
  kept_from_ = from;
}

}  // namespace qel::operations
