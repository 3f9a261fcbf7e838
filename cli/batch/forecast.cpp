#include "cli/batch/forecast.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "pictures/picture_file.h"

namespace qel::cli {
namespace {

using pictures::PictureError;

/// What writing a picture takes, by the byte of its image: the file with room to grow, and what the
/// format's library needs. Measured with noise, which compresses worst.
double EncoderShare(const std::string& output) {
  switch (pictures::FormatOfPath(output)) {
    case pictures::Format::kWebp:
      return 8;
    case pictures::Format::kJpeg:
      return 3;
    case pictures::Format::kPng:
    case pictures::Format::kTiff:
      return 2;
    case pictures::Format::kGif:
    case pictures::Format::kHeif:
    case pictures::Format::kJxl:
    case pictures::Format::kBmp:
    case pictures::Format::kPnm:
      break;
  }
  return 1.25;
}

double FileBytes(const std::string& path) {
  std::error_code error;
  const auto bytes = std::filesystem::file_size(path, error);
  return error ? 0 : static_cast<double>(bytes);
}

}  // namespace

double ImageBytes(const Shape& shape) {
  const double row = static_cast<double>((int64_t{shape.width} * shape.bits + 511) / 512 * 64);
  return row * shape.height * (shape.bits < 24 ? 4 : 1);
}

/// At first there is the image with the file that it comes from, then with the one that a step
/// makes of it, at the end with the file that it becomes. Memory of images that were replaced is
/// kept for the next ones.
Forecast Forecaster::Of(const BatchItem& item, const Shape& source) const {
  Forecast forecast{source};
  const auto reach = [&](double bytes, const auto& refuse) {
    forecast.peak_bytes = std::max(forecast.peak_bytes, bytes);
    if (bytes <= static_cast<double>(limits.max_memory)) return;
    refuse("takes " + Mebibytes(bytes) + " of memory, more than the limit of " +
           Mebibytes(static_cast<double>(limits.max_memory)));
  };
  reach(ImageBytes(source) + FileBytes(item.input), [&](const std::string& what) {
    throw PictureError(PictureError::Kind::kTooLarge, item.input, "reading " + what);
  });
  double kept = 0;
  for (const Step& step : steps) {
    const Shape before = forecast.shape;
    forecast.shape = operations::ShapeAfter(step, before, limits.max_pixels, second);
    const Operation& operation = *step.operation;
    if (operation.in_place && forecast.shape.bits == before.bits) continue;
    kept = std::max(kept, ImageBytes(before));
    reach(kept + ImageBytes(forecast.shape), [&](const std::string& what) {
      throw StepError(std::string(operation.name) + ": " + what, operation.name);
    });
  }
  pictures::CheckFits(item.output, forecast.shape.width, forecast.shape.height, forecast.shape.bits,
                      extension);
  const std::string& named = extension.empty() ? item.output : extension;
  const double written = (1 + EncoderShare(named)) * ImageBytes(forecast.shape);
  reach(kept + written, [&](const std::string& what) {
    throw PictureError(PictureError::Kind::kDoesNotFit, item.output, "writing " + what);
  });
  return forecast;
}

std::string Mebibytes(double bytes) {
  char text[40];
  std::snprintf(text, sizeof(text), "%.1f MiB", bytes / (1 << 20));
  return text;
}

}  // namespace qel::cli
