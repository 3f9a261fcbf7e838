#ifndef QEL_PICTURES_PNG_FILTER_H_
#define QEL_PICTURES_PNG_FILTER_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "pictures/byte_reader.h"

namespace qel::pictures {

/// The filters of PNG (RFC 2083, section 6): rows as differences from a prediction made of the byte
/// to the left, the one above, and the one above to the left.
class PngFilter {
 public:
  /// For rows of `row_bytes`, with pixels of `pixel_bytes` (1 below 8 bits). With `adaptive` each
  /// row takes the filter whose differences, signed, have the least sum of magnitudes; otherwise
  /// none is filtered.
  PngFilter(size_t row_bytes, size_t pixel_bytes, bool adaptive);

  /// Where the next row is to be put.
  uint8_t* row() { return row_.Bytes(); }
  /// What is stored for it: the number of its filter and its bytes. Valid until the next call.
  Bytes Run();

 private:
  /// A row with zeros before it, and room to read and write on in whole vectors.
  class Line {
   public:
    explicit Line(size_t row_bytes);
    uint8_t* Bytes() { return memory_.data() + kBefore; }
    const uint8_t* Bytes() const { return memory_.data() + kBefore; }

   private:
    static constexpr size_t kBefore = 16;
    std::vector<uint8_t> memory_;
  };
  template <typename Predict>
  void Try(uint8_t filter, const Predict& predict);

  const size_t row_bytes_;
  const size_t pixel_bytes_;
  const bool adaptive_;
  Line row_;
  Line above_;
  Line best_;
  Line candidate_;
  uint64_t best_sum_ = 0;
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_PNG_FILTER_H_
