#ifndef QEL_COMPOSE_PIXELS_H_
#define QEL_COMPOSE_PIXELS_H_

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace qel::compose {

/// Rows of bytes that somebody else owns: 1 channel (grey), 3 or 4 (with straight alpha), pixels
/// one after the other in each row. Row y begins at bits + y * stride; the stride may be negative.
template <typename Byte>
struct PixelRows {
  Byte* bits = nullptr;
  ptrdiff_t stride = 0;
  int width = 0;
  int height = 0;
  int channels = 0;

  /// Bytes of a row without what lies between rows.
  size_t RowBytes() const { return static_cast<size_t>(width) * static_cast<size_t>(channels); }
  bool IsPacked() const { return stride == static_cast<ptrdiff_t>(RowBytes()); }
  Byte* Row(int y) const { return bits + ptrdiff_t{y} * stride; }
  Byte* At(int x, int y) const { return Row(y) + ptrdiff_t{x} * channels; }
  /// `count` rows from row `y` on.
  PixelRows Part(int y, int count) const { return {Row(y), stride, width, count, channels}; }
  operator PixelRows<const Byte>() const requires(!std::is_const_v<Byte>) {
    return {bits, stride, width, height, channels};
  }
};
using Pixels = PixelRows<uint8_t>;
using ConstPixels = PixelRows<const uint8_t>;  ///< to be read

/// A colour with straight alpha.
struct Color {
  uint8_t blue = 0;
  uint8_t green = 0;
  uint8_t red = 0;
  uint8_t alpha = 255;

  bool IsGray() const { return blue == green && green == red; }
  bool operator==(const Color&) const = default;
};

/// A range of rows, `end` not among them.
struct RowRange {
  int begin = 0;
  int end = 0;

  int size() const { return end - begin; }
  bool operator==(const RowRange&) const = default;
};

}  // namespace qel::compose

#endif  // QEL_COMPOSE_PIXELS_H_
