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

void SwapChannels(const PixelArray& pixels) {
  if (pixels.channels == 1) return;
  const SmartPtr<ArrayImage> image = ArrayImage::Of(*pixels.rows);
  Runtime::Get().engine().components().transform->FlipBits(image.Get());
}

void TellNotes(const std::string& name, const std::vector<std::string>& notes) {
  for (const std::string& note : notes) WarnOfNote(name + ": " + note);
}

py::array Decode(std::span<const uint8_t> file, const std::string& name, bool rgb) {
  PixelArray pixels;
  const pictures::Allocate allocate = [&](const pictures::PictureInfo& info) {
    const py::gil_scoped_acquire locked;
    pixels = NewArray(info.width, info.height, info.bit_count / 8, false);
    return pictures::PixelBuffer{pixels.rows->data, pixels.rows->stride};
  };
  std::vector<std::string> notes;
  {
    const py::gil_scoped_release unlocked;
    notes = pictures::ReadPictureFromMemory(file, name, {}, allocate).notes;
    if (rgb) SwapChannels(pixels);
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

py::array ImDecode(const py::buffer& data, py::handle order) {
  try {
    const bool rgb = IsRgb("imdecode", order);
    const py::buffer_info info = data.request();
    if (info.ndim != 1 || info.itemsize != 1 || (info.size > 1 && info.strides[0] != 1)) {
      RefuseArgument("imdecode", "data", "must be the bytes of a picture file");
    }
    return Decode({static_cast<const uint8_t*>(info.ptr), static_cast<size_t>(info.size)}, "data",
                  rgb);
  } catch (...) {
    TranslateErrors("imdecode");
    throw;
  }
}

/// Notes are told before anything is written: as errors, they leave no file.
std::vector<uint8_t> Encode(std::string_view function, const std::string& name, py::handle image,
                            py::handle order, std::optional<int> quality) {
  const bool rgb = IsRgb(function, order);
  PixelArray pixels = ReadArray(image, function, "image");
  pictures::WriteOptions options;
  if (quality) {
    if (*quality < 0 || *quality > 100) {
      RefuseArgument(function, "quality",
                     "is a number from 0 to 100, not " + std::to_string(*quality));
    }
    options.jpeg_quality = std::max(1, *quality);
    options.webp_quality = *quality;
  }
  options.webp_lossless = !quality || *quality == 100;
  const bool swaps = rgb && pixels.channels > 1;
  if (!pixels.rows || swaps) pixels = CopyOf(pixels);
  pictures::EncodedPicture encoded;
  {
    const py::gil_scoped_release unlocked;
    if (swaps) SwapChannels(pixels);
    const pictures::PictureView view{pixels.rows->data, pixels.rows->stride, pixels.width,
                                     pixels.height, pixels.rows->bits()};
    encoded = pictures::EncodePicture(name, view, {}, options);
  }
  TellNotes(name, encoded.notes);
  return std::move(encoded.file);
}

void ImWrite(const std::string& path, py::handle image, py::handle order,
             std::optional<int> quality) {
  try {
    const std::vector<uint8_t> file = Encode("imwrite", path, image, order, quality);
    const py::gil_scoped_release unlocked;
    pictures::WriteFileAtomically(path, file);
  } catch (...) {
    TranslateErrors("imwrite");
    throw;
  }
}

py::bytes ImEncode(const std::string& extension, py::handle image, py::handle order,
                   std::optional<int> quality) {
  try {
    const std::vector<uint8_t> file =
        Encode("imencode", "picture" + extension, image, order, quality);
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
