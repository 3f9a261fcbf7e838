#ifndef QEL_COMPOSE_PIXELS_H_
#define QEL_COMPOSE_PIXELS_H_

#include <cstddef>
#include <cstdint>

namespace qel::compose {

/// Rows of bytes that somebody else owns, to be read: 1 channel (grey), 3 (blue, green, red) or
/// 4 (with straight alpha). Row y begins at bits + y * stride; the stride may be negative.
struct ConstPixels {
  const uint8_t* bits = nullptr;
  ptrdiff_t stride = 0;
  int width = 0;
  int height = 0;
  int channels = 0;

  const uint8_t* Row(int y) const { return bits + ptrdiff_t{y} * stride; }
  const uint8_t* At(int x, int y) const { return Row(y) + ptrdiff_t{x} * channels; }
};

/// The same, to be written.
struct Pixels {
  uint8_t* bits = nullptr;
  ptrdiff_t stride = 0;
  int width = 0;
  int height = 0;
  int channels = 0;

  uint8_t* Row(int y) const { return bits + ptrdiff_t{y} * stride; }
  uint8_t* At(int x, int y) const { return Row(y) + ptrdiff_t{x} * channels; }
  operator ConstPixels() const { return {bits, stride, width, height, channels}; }
};

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
