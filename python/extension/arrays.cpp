#include "python/extension/arrays.h"

#include <cstdlib>
#include <limits>

#include "python/extension/errors.h"

namespace qel::python {
namespace {

namespace py = pybind11;

constexpr int kUint8 = 2;  // as numpy counts its types

/// A function of numpy, kept for the life of the process.
py::handle Numpy(const char* name) {
  return py::module_::import("numpy").attr(name).cast<py::object>().release();
}

std::string ShapeOfArray(const py::array& array) {
  return py::str(array.attr("shape")).cast<std::string>();
}

/// How arrays of another type become bytes, by the range that is usual for their type.
const char* ToBytes(const py::dtype& type) {
  switch (type.kind()) {
    case 'b':
      return "array.astype(numpy.uint8) * 255 makes False black and True white";
    case 'f':
      return "(array * 255).round().astype(numpy.uint8) converts values from 0 to 1";
    case 'u':
      if (type.itemsize() == 2) return "(array // 257).astype(numpy.uint8) converts 16 bits";
      [[fallthrough]];
    default:
      return "array.astype(numpy.uint8) converts values from 0 to 255";
  }
}

/// The first of all bytes that pixels lie in, and the one behind the last.
std::pair<uintptr_t, uintptr_t> BytesOf(const py::array& array) {
  auto begin = reinterpret_cast<uintptr_t>(array.data());
  uintptr_t end = begin + 1;
  for (py::ssize_t i = 0; i < array.ndim(); ++i) {
    const py::ssize_t reach = (array.shape(i) - 1) * array.strides(i);
    (reach < 0 ? begin : end) += static_cast<uintptr_t>(reach);
  }
  return {begin, end};
}

std::optional<Pixels> RowsOf(const PixelArray& pixels) {
  const py::array& array = pixels.array;
  const int channels = pixels.channels;
  const bool pixels_adjoin = pixels.width == 1 || array.strides(1) == channels;
  const bool channels_adjoin = channels == 1 || array.strides(2) == 1;
  if (!pixels_adjoin || !channels_adjoin) return {};
  Pixels rows{static_cast<uint8_t*>(const_cast<void*>(array.data())), array.strides(0),
              pixels.width, pixels.height, channels};
  const auto row_bytes = static_cast<ptrdiff_t>(rows.RowBytes());
  if (rows.height == 1) rows.stride = row_bytes;
  const bool overlaps = std::abs(rows.stride) < row_bytes;
  const bool aligned =
      channels != 4 || (rows.stride % 4 == 0 && reinterpret_cast<uintptr_t>(rows.bits) % 4 == 0);
  if (overlaps || !aligned || std::abs(rows.stride) > std::numeric_limits<int>::max()) return {};
  return rows;
}

}  // namespace

std::string ShapeText(int width, int height, int channels) {
  return "(" + std::to_string(height) + ", " + std::to_string(width) +
         (channels == 1 ? "" : ", " + std::to_string(channels)) + ")";
}

bool IsRgb(std::string_view function, py::handle order) {
  const std::string text = py::isinstance<py::str>(order) ? order.cast<std::string>() : "";
  if (text != "rgb" && text != "bgr") {
    RefuseArgument(function, "order", "is \"rgb\" or \"bgr\", not " + ReprOf(order));
  }
  return text == "rgb";
}

PixelArray ReadArray(py::handle object, std::string_view operation, std::string_view name) {
  if (!py::isinstance<py::array>(object)) {
    RefuseArgument(
        operation, name,
        "is a " + py::type::of(object).attr("__name__").cast<std::string>() +
            "; an array of pixels is needed, numpy.asarray(...) makes one of many things");
  }
  PixelArray pixels;
  pixels.array = py::reinterpret_borrow<py::array>(object);
  const py::array& array = pixels.array;
  if (array.dtype().num() != kUint8) {
    RefuseArgument(operation, name,
                   "has pixels of " + py::str(array.dtype()).cast<std::string>() +
                       "; uint8 is needed, " + ToBytes(array.dtype()));
  }
  const auto dimensions = array.ndim();
  pixels.channels = dimensions == 3 ? static_cast<int>(array.shape(2)) : 1;
  const bool has_channels =
      pixels.channels == 1 ? dimensions == 2 : pixels.channels == 3 || pixels.channels == 4;
  if ((dimensions != 2 && dimensions != 3) || !has_channels) {
    const bool is_gray = dimensions == 3 && pixels.channels == 1;
    RefuseArgument(operation, name,
                   "has the shape " + ShapeOfArray(array) +
                       "; (h, w), (h, w, 3) or (h, w, 4) is needed" +
                       (is_gray ? ", array[..., 0] is such a one" : ""));
  }
  constexpr py::ssize_t kLargest = std::numeric_limits<int>::max() / 4;
  if (array.size() == 0) RefuseArgument(operation, name, "has no pixels: " + ShapeOfArray(array));
  if (array.shape(0) > kLargest || array.shape(1) > kLargest) {
    RefuseArgument(operation, name, "is too large: " + ShapeOfArray(array));
  }
  pixels.height = static_cast<int>(array.shape(0));
  pixels.width = static_cast<int>(array.shape(1));
  pixels.rows = RowsOf(pixels);
  return pixels;
}

PixelArray NewArray(int width, int height, int channels, bool clear) {
  std::vector<py::ssize_t> shape{height, width};
  if (channels > 1) shape.push_back(channels);
  PixelArray pixels;
  if (clear) {
    static const py::handle zeros = Numpy("zeros");
    pixels.array = zeros(py::cast(shape), py::dtype::of<uint8_t>());
  } else {
    pixels.array = py::array(py::dtype::of<uint8_t>(), shape);
  }
  pixels.width = width;
  pixels.height = height;
  pixels.channels = channels;
  const ptrdiff_t stride = ptrdiff_t{width} * channels;
  pixels.rows =
      Pixels{static_cast<uint8_t*>(pixels.array.mutable_data()), stride, width, height, channels};
  return pixels;
}

PixelArray CopyOf(const PixelArray& from) {
  PixelArray copy = NewArray(from.width, from.height, from.channels, false);
  AssignPixels(from, copy);
  return copy;
}

void AssignPixels(const PixelArray& from, const PixelArray& to) {
  if (from.rows && to.rows) {
    const py::gil_scoped_release unlocked;
    CopyRows(*from.rows, *to.rows);
    return;
  }
  to.array.attr("__setitem__")(py::ellipsis(), from.array);
}

bool ShareMemory(const PixelArray& a, const PixelArray& b) {
  const auto [a_begin, a_end] = BytesOf(a.array);
  const auto [b_begin, b_end] = BytesOf(b.array);
  if (a_end <= b_begin || b_end <= a_begin) return false;
  static const py::handle share = Numpy("shares_memory");
  return share(a.array, b.array).cast<bool>();
}

bool SamePixels(const PixelArray& a, const PixelArray& b) {
  if (a.array.ptr() == b.array.ptr()) return true;
  if (a.array.data() != b.array.data() || a.array.ndim() != b.array.ndim()) return false;
  for (py::ssize_t i = 0; i < a.array.ndim(); ++i) {
    if (a.array.shape(i) != b.array.shape(i) || a.array.strides(i) != b.array.strides(i))
      return false;
  }
  return true;
}

}  // namespace qel::python
