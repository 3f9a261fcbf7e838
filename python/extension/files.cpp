#include "python/extension/files.h"

#include <optional>
#include <string>
#include <vector>

#include "pictures/atomic_file.h"
#include "pictures/picture_file.h"
#include "python/extension/arrays.h"
#include "python/extension/errors.h"
#include "python/extension/runtime.h"

namespace qel::python {
namespace {

namespace py = pybind11;

void TellNotes(const std::string& name, const std::vector<std::string>& notes) {
  for (const std::string& note : notes) WarnOfNote(name + ": " + note);
}

py::array Decode(std::span<const uint8_t> file, const std::string& name, bool rgb) {
  PixelArray pixels;
  const pictures::Allocate allocate = [&](const pictures::PictureInfo& info) {
    const py::gil_scoped_acquire locked;
    pixels = NewArray(info.width, info.height, info.bit_count / 8, false);
    return pictures::PixelBuffer{pixels.rows->bits, pixels.rows->stride};
  };
  std::vector<std::string> notes;
  {
    const py::gil_scoped_release unlocked;
    notes = pictures::ReadPictureFromMemory(file, name, {}, allocate).notes;
    if (rgb && pixels.channels > 1) Runtime::Get().SwapChannels(*pixels.rows);
  }
  TellNotes(name, notes);
  return pixels.array;
}

py::array ImRead(const std::string& path, py::handle order) {
  try {
    const bool rgb = IsRgb("imread", order);
    std::vector<uint8_t> file;
    {
      const py::gil_scoped_release unlocked;
      file = pictures::ReadFile(path);
    }
    return Decode(file, path, rgb);
  } catch (...) {
    TranslateErrors("imread");
    throw;
  }
}

py::array ImDecode(py::handle data, py::handle order) {
  try {
    const bool rgb = IsRgb("imdecode", order);
    const auto refuse = [&] {
      RefuseArgument("imdecode", "data", "takes the bytes of a picture file, not " + ReprOf(data));
    };
    if (PyObject_CheckBuffer(data.ptr()) == 0) refuse();
    const py::buffer_info info = py::reinterpret_borrow<py::buffer>(data).request();
    if (info.ndim != 1 || info.itemsize != 1 || (info.size > 1 && info.strides[0] != 1)) refuse();
    return Decode({static_cast<const uint8_t*>(info.ptr), static_cast<size_t>(info.size)}, "data",
                  rgb);
  } catch (...) {
    TranslateErrors("imdecode");
    throw;
  }
}

/// None of None. Throws `operations::StepError` for other things than whole numbers from 1 to 100.
std::optional<int> QualityOf(std::string_view function, py::handle quality) {
  if (quality.is_none()) return {};
  const bool is_whole = PyIndex_Check(quality.ptr()) != 0;
  const Py_ssize_t number = is_whole ? PyNumber_AsSsize_t(quality.ptr(), nullptr) : 0;
  PyErr_Clear();  // arrays look like whole numbers until they are asked
  if (number < 1 || number > 100) {
    RefuseArgument(function, "quality",
                   "takes a whole number from 1 to 100, not " + ReprOf(quality));
  }
  return static_cast<int>(number);
}

/// Notes are told before anything is written: as errors, they leave no file.
std::vector<uint8_t> Encode(std::string_view function, const std::string& name, py::handle image,
                            py::handle order, py::handle quality) {
  const bool rgb = IsRgb(function, order);
  PixelArray pixels = ReadArray(image, function, "image");
  pictures::WriteOptions options;
  const std::optional<int> amount = QualityOf(function, quality);
  if (amount) options.jpeg_quality = options.webp_quality = *amount;
  options.webp_lossless = !amount || *amount == 100;
  const bool swaps = rgb && pixels.channels > 1;
  if (!pixels.rows || swaps) pixels = CopyOf(pixels);
  pictures::EncodedPicture encoded;
  {
    const py::gil_scoped_release unlocked;
    if (swaps) Runtime::Get().SwapChannels(*pixels.rows);
    const pictures::PictureView view{pixels.rows->bits, pixels.rows->stride, pixels.width,
                                     pixels.height, 8 * pixels.channels};
    encoded = pictures::EncodePicture(name, view, {}, options);
  }
  TellNotes(name, encoded.notes);
  return std::move(encoded.file);
}

void ImWrite(const std::string& path, py::handle image, py::handle order, py::handle quality) {
  try {
    const std::vector<uint8_t> file = Encode("imwrite", path, image, order, quality);
    const py::gil_scoped_release unlocked;
    pictures::WriteFileAtomically(path, file);
  } catch (...) {
    TranslateErrors("imwrite");
    throw;
  }
}

py::bytes ImEncode(py::handle extension, py::handle image, py::handle order, py::handle quality) {
  try {
    const std::string name = TextOf(extension, "imencode", "extension", "text such as \".png\"");
    const std::vector<uint8_t> file = Encode(
        "imencode", "picture" + (name.starts_with('.') ? name : "." + name), image, order, quality);
    return {reinterpret_cast<const char*>(file.data()), file.size()};
  } catch (...) {
    TranslateErrors("imencode");
    throw;
  }
}

}  // namespace

void AddFileFunctions(py::module_& module) {
  module.def("imread", &ImRead);
  module.def("imdecode", &ImDecode);
  module.def("imwrite", &ImWrite);
  module.def("imencode", &ImEncode);
}

}  // namespace qel::python
