#ifndef QEL_CLI_DRAWING_CANVAS_H_
#define QEL_CLI_DRAWING_CANVAS_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace qel::cli {

/// A colour with straight alpha, each 0 to 1.
struct Paint {
  double red;
  double green;
  double blue;
  double alpha = 1;
};

/// Draws on 32-bit pixels (blue, green, red, alpha) that somebody else owns.
class Canvas {
 public:
  /// `stride` is in bytes, from row to row.
  Canvas(uint8_t* bits, int64_t stride, int width, int height)
      : bits_(bits), stride_(stride), width_(width), height_(height) {}

  int width() const { return width_; }
  int height() const { return height_; }
  uint8_t* Pixel(int x, int y) const { return bits_ + y * stride_ + int64_t{4} * x; }

  /// Replaces a pixel; positions outside are ignored.
  void Set(int x, int y, const Paint& paint) const;
  /// Lays `paint` over a pixel, `cover` (0 to 1) of it.
  void Over(int x, int y, const Paint& paint, double cover = 1) const;
  /// Lays `paint` over the pixels of a box, as far as it lies inside.
  void FillBox(int left, int top, int width, int height, const Paint& paint) const;

  /// Draws text with its top-left corner at (left, top), each dot `scale` pixels wide. Letters are
  /// 6 dots apart and 8 high; characters without a glyph show as a box.
  void Text(int left, int top, std::string_view text, const Paint& paint, int scale = 1) const;
  /// Pixels from the left edge of a text to where the next letter would stand.
  static int TextWidth(std::string_view text, int scale = 1);
  static constexpr int kTextHeight = 8;

 private:
  uint8_t* bits_;
  int64_t stride_;
  int width_;
  int height_;
};

}  // namespace qel::cli

#endif  // QEL_CLI_DRAWING_CANVAS_H_
