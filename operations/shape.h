#ifndef QEL_OPERATIONS_SHAPE_H_
#define QEL_OPERATIONS_SHAPE_H_

#include <cstdint>
#include <functional>
#include <limits>
#include <string>

#include "compose/pixels.h"
#include "qel/image.h"

namespace qel::operations {

using compose::RowRange;

/// Size and depth of a picture.
struct Shape {
  int width = 0, height = 0, bits = 0;
  uint32_t model = 0;

  std::string Size() const { return std::to_string(width) + " x " + std::to_string(height); }
  std::string Bits() const { return std::to_string(bits) + " bits"; }
  bool Covers(const Shape& other) const { return width >= other.width && height >= other.height; }
  bool HasBytes() const { return bits == 8 || bits == 24 || bits == 32; }
};

/// Shape of an image.
Shape ShapeOf(IQEL& image);

/// The colour model of images of `bits`.
constexpr uint32_t ModelOf(int bits) {
  return bits == 32 ? kModelArgb : bits == 24 ? kModelBgr : kModelMono;
}

/// The shape of the second picture called `name`.
using ShapeOfPicture = std::function<Shape(const std::string& name)>;

/// The neighbours that a pixel of the result depends on, on each side of its own place in the
/// picture and in second pictures. What stands outside the picture is its top-left pixel, with
/// alpha 1 at 32 bits.
struct Border {
  /// Of `columns`: whole rows and their neighbours in memory. Of `rows`: the whole picture.
  static constexpr int kAll = std::numeric_limits<int>::max();

  int rows = 0;
  int columns = 0;

  bool IsWholePicture() const { return rows == kAll; }
};

/// The memory that an operation touches round the pixels of a picture or of its result.
enum class Reach {
  kRows,     ///< none but the pixels
  kPadding,  ///< bytes between rows, up to the smaller stride of both
  kBeyond,   ///< bytes before or behind rows: the memory must be the image's own
};

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_SHAPE_H_
