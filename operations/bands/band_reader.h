#ifndef QEL_OPERATIONS_BANDS_BAND_READER_H_
#define QEL_OPERATIONS_BANDS_BAND_READER_H_

#include <cstdint>
#include <optional>
#include <vector>

#include "operations/bands/band_pipeline.h"
#include "operations/bands/image_rows.h"

namespace qel::operations {

/// Reads parts of a picture that may overlap from a source that gives each row once: rows that a
/// later part needs again are kept. Threads: one at a time, whichever.
class BandReader {
 public:
  /// `parts` are the rows of a picture of `height` rows that are to be read, in this order. With
  /// `whole_images` a source that is one image is given out as it is. Keeps `source`.
  BandReader(BandSource& source, std::vector<RowRange> parts, int height, bool whole_images);

  /// An image of the next part. With the last one all other rows of the picture are read as well,
  /// for they may be at fault. Throws what the source throws.
  SmartPtr<IQEL> ReadNext();

  /// The top-left pixel of the picture; there after the first part.
  const std::optional<Corner>& corner() const { return corner_; }

 private:
  void ReadRows(IQEL& image, int at, int count);
  void SkipTo(int row);
  void KeepRows(int from, IQEL& image, RowRange rows);

  BandSource& source_;
  const std::vector<RowRange> parts_;
  std::vector<int> keep_from_;  ///< by part: the first row that later ones need
  const int height_;
  const bool whole_images_;
  size_t next_ = 0;  ///< part
  int rows_read_ = 0;
  std::vector<uint8_t> kept_;  ///< rows up to the last that was read
  int kept_from_ = 0;
  std::optional<Corner> corner_;
};

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_BANDS_BAND_READER_H_
