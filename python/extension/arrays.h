#ifndef QEL_PYTHON_ARRAYS_H_
#define QEL_PYTHON_ARRAYS_H_

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <optional>
#include <string_view>

#include "python/extension/array_image.h"

namespace qel::python {

/// An array that was given as a picture: uint8, of shape (h, w), (h, w, 3) or (h, w, 4), with at
/// least one pixel.
struct PixelArray {
  pybind11::array array;
  int width = 0;
  int height = 0;
  int channels = 0;
  /// The rows, when the module can work on them where they are: pixels side by side, rows that do
  /// not overlap, four-byte pixels at multiples of four.
  std::optional<Pixels> rows;

  operations::Shape shape() const {
    const int bits = 8 * channels;
    return {width, height, bits, operations::ModelOf(bits)};
  }
};

/// Reads the argument `order` of a function, "rgb" or "bgr". Throws `operations::StepError` for
/// anything else.
bool IsRgb(std::string_view function, pybind11::handle order);

/// Looks at the argument `name` of `operation`. Throws `operations::StepError` for what is no such
/// array.
PixelArray ReadArray(pybind11::handle object, std::string_view operation, std::string_view name);

/// A new array of pixels; without `clear` they hold anything.
PixelArray NewArray(int width, int height, int channels, bool clear);

/// A new array with the pixels of `from`.
PixelArray CopyOf(const PixelArray& from);

/// Assigns every pixel of `from` to `to`, of the same shape, whatever their layouts.
void AssignPixels(const PixelArray& from, const PixelArray& to);

/// True when two arrays have pixels in common.
bool ShareMemory(const PixelArray& a, const PixelArray& b);

/// True when two arrays are the same pixels in the same order.
bool SamePixels(const PixelArray& a, const PixelArray& b);

/// "(1080, 1920, 3)".
std::string ShapeText(int width, int height, int channels);

}  // namespace qel::python

#endif  // QEL_PYTHON_ARRAYS_H_
