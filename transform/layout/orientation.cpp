#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "component/result_image.h"
#include "image/pixel_layout.h"
#include "image/write_rows.h"
#include "simd/prefetch.h"
#include "simd/stream.h"
#include "transform/image_transform.h"
#include "transform/layout/orientation_kernels.h"

namespace qel {
namespace {

using ReverseRow = decltype(OrientationKernels::reverse1);

/// The kernel for pixels of this many bytes, or null.
ReverseRow ReverseFor(int pixel_bytes) {
  const OrientationKernels& kernels = ActiveOrientationKernels();
  return pixel_bytes == 1   ? kernels.reverse1
         : pixel_bytes == 3 ? kernels.reverse3
         : pixel_bytes == 4 ? kernels.reverse4
                            : nullptr;
}

/// A plane that whole pixels are moved in.
struct PixelPlane {
  uint8_t* bits;
  int64_t stride;

  uint8_t* Row(int64_t y) const { return bits + y * stride; }
  /// The same pixels, last row first.
  PixelPlane UpsideDown(int64_t rows) const { return {Row(rows - 1), -stride}; }
};

// Deliberate: pixels of 4 bytes are addressed as 32-bit words, so that a stride that is no multiple
// of 4 loses its rest.
PixelPlane PlaneFor(const ImageView& view, int pixel_bytes) {
  return {view.bits, pixel_bytes == 4 ? view.stride / 4 * 4 : view.stride};
}

/// dest[x] = source[count - 1 - x] for pixels of any size.
void ReverseAnySize(uint8_t* dest, const uint8_t* source, int64_t count, int pixel_bytes) {
  for (int64_t x = 0; x < count; ++x) {
    std::memcpy(dest + x * pixel_bytes, source + (count - 1 - x) * pixel_bytes,
                static_cast<size_t>(pixel_bytes));
  }
}

// Deliberate: at 180 degrees, pixels of other sizes than 1 and 4 bytes come from one place further
// left, so that the last pixel of each row is what lies just before the source row.
constexpr int64_t HalfTurnShift(int pixel_bytes) {
  return pixel_bytes == 1 || pixel_bytes == 4 ? 0 : pixel_bytes;
}

void HalfTurn(const PixelPlane& dest, const PixelPlane& source, int64_t width, int64_t height,
              int pixel_bytes) {
  const ReverseRow reverse = ReverseFor(pixel_bytes);
  const bool streams = width * height * pixel_bytes >= LeastStreamedBytes();
  WriteRows(dest.bits, dest.stride, pixel_bytes, width, height, true,
            [&](uint8_t* to, int64_t y, int64_t first, size_t count) {
              const int64_t left = width - first - static_cast<int64_t>(count);
              const uint8_t* const from =
                  source.Row(height - 1 - y) + left * pixel_bytes - HalfTurnShift(pixel_bytes);
              if (reverse != nullptr) {
                const bool is_last = y + 1 == height;
                reverse(to, from, count,
                        {is_last ? 0 : -source.stride, is_last || streams ? 0 : dest.stride});
              } else {
                ReverseAnySize(to, from, static_cast<int64_t>(count), pixel_bytes);
              }
            });
}

/// Pixel (x, y) of `dest` becomes pixel (y, x) of `source`, which is `width` x `height`.
void Transpose(const PixelPlane& dest, const PixelPlane& source, int64_t width, int64_t height,
               int pixel_bytes) {
  const OrientationKernels& kernels = ActiveOrientationKernels();
  const auto transpose = pixel_bytes == 1   ? kernels.transpose1
                         : pixel_bytes == 3 ? kernels.transpose3
                         : pixel_bytes == 4 ? kernels.transpose4
                                            : nullptr;
  if (transpose != nullptr) {
    transpose(dest.bits, dest.stride, source.bits, source.stride, width, height,
              width * height * pixel_bytes >= LeastStreamedBytes());
    return;
  }
  for (int64_t y = 0; y < width; ++y) {
    for (int64_t x = 0; x < height; ++x) {
      std::memcpy(dest.Row(y) + x * pixel_bytes, source.Row(x) + y * pixel_bytes,
                  static_cast<size_t>(pixel_bytes));
    }
  }
}

void TurnPlane(const ImageView& dest_view, const ImageView& source_view, int angle) {
  const int pixel_bytes = source_view.bit_count / 8;
  if (pixel_bytes < 1 || !source_view.HasPixels() || dest_view.bits == nullptr) return;
  const PixelPlane source = PlaneFor(source_view, pixel_bytes);
  const PixelPlane dest = PlaneFor(dest_view, pixel_bytes);
  const int64_t width = source_view.width;
  const int64_t height = source_view.height;
  if (angle == 180) {
    HalfTurn(dest, source, width, height, pixel_bytes);
  } else if (angle == 90) {
    Transpose(dest, source.UpsideDown(height), width, height, pixel_bytes);
  } else {
    Transpose(dest.UpsideDown(width), source, width, height, pixel_bytes);
  }
}

// Deliberate: only the first half of the middle row takes part, in steps of 4 bytes at 24 bits too.
void SwapMiddleRow(uint8_t* row, int64_t width) {
  ActiveOrientationKernels().swap_ends4(row, static_cast<size_t>(width / 2));
}

/// Hands `output` over when the caller wants it.
result_t StoreIfWanted(ResultImage& output, IQEL** result) {
  if (result != nullptr) output.Store(result);
  return kOk;
}

}  // namespace

result_t CQELImageTransform::Flip(IQEL* source, IQEL** result) {
  if (source == nullptr) return kFail;
  const ImageView view = ReadView(*source);
  ResultImage output = ResultImage::FromCollection();
  if (!output) return kFail;
  output.Create(view);
  const ImageView flipped = output.View();
  // Stored rows are copied, whatever the width is.
  if (view.bits != nullptr && flipped.bits != nullptr) {
    const int64_t bytes =
        std::min(std::abs(int64_t{view.stride}), std::abs(int64_t{flipped.stride}));
    const bool streams = bytes * view.Rows() >= LeastStreamedBytes();
    // In the order of the source, whose rows the processor foresees then. It does not foresee rows
    // that are written from the last to the first.
    for (int64_t y = 0; y < view.Rows(); ++y) {
      uint8_t* const to = flipped.Row(view.Rows() - 1 - y);
      if (streams) {
        StreamBytes(to, view.Row(y), static_cast<size_t>(bytes));
      } else {
        if (y + 1 < view.Rows()) PrefetchRun<1>(to - flipped.stride, bytes);
        std::memcpy(to, view.Row(y), static_cast<size_t>(bytes));
      }
    }
    if (streams) FinishStream();
  }
  return StoreIfWanted(output, result);
}

result_t CQELImageTransform::Mirror(IQEL* source, IQEL** result) {
  if (source == nullptr) return kFail;
  const ImageView view = ReadView(*source);
  ResultImage output = ResultImage::FromCollection();
  if (!output) return kFail;
  output.Create(view);
  const ImageView mirrored = output.View();
  const ReverseRow reverse = ReverseFor(ExactPixelBytes(view.bit_count));
  if (reverse != nullptr && view.HasPixels() && mirrored.HasPixels()) {
    const int pixel_bytes = ExactPixelBytes(view.bit_count);
    const bool streams = view.Columns() * view.Rows() * pixel_bytes >= LeastStreamedBytes();
    WriteRows(mirrored.bits, mirrored.stride, pixel_bytes, view.Columns(), view.Rows(), true,
              [&](uint8_t* to, int64_t y, int64_t first, size_t count) {
                const auto bytes = static_cast<int64_t>(count) * pixel_bytes;
                const int64_t left = (view.Columns() - first) * pixel_bytes - bytes;
                const bool is_last = y + 1 == view.Rows();
                reverse(to, view.Row(y) + left, count,
                        {is_last ? 0 : view.stride, is_last || streams ? 0 : mirrored.stride});
              });
  }
  return StoreIfWanted(output, result);
}

result_t CQELImageTransform::FlipBits(IQEL* image) {
  if (image == nullptr) return kFail;
  const ImageView view = ReadView(*image);
  if ((view.bit_count != 24 && view.bit_count != 32) || !view.HasPixels()) return kOk;
  const OrientationKernels& kernels = ActiveOrientationKernels();
  const auto swap = view.bit_count == 32 ? kernels.swap_ends4 : kernels.swap_ends3;
  for (int64_t y = 0; y < view.Rows(); ++y) swap(view.Row(y), static_cast<size_t>(view.Columns()));
  return kOk;
}

result_t CQELImageTransform::FlipImageAndBits(IQEL* image) {
  if (image == nullptr) return kFail;
  const ImageView view = ReadView(*image);
  if ((view.bit_count != 24 && view.bit_count != 32) || !view.HasPixels()) return kOk;
  const OrientationKernels& kernels = ActiveOrientationKernels();
  // Deliberate: at 32 bits alpha is not turned upside down with its pixel.
  const auto exchange = view.bit_count == 32 ? kernels.exchange4 : kernels.exchange3;
  const int64_t half = view.Rows() / 2;
  for (int64_t y = 0; y < half; ++y) {
    exchange(view.Row(y), view.Row(view.Rows() - 1 - y), static_cast<size_t>(view.Columns()));
  }
  if (view.Rows() % 2 != 0) SwapMiddleRow(view.Row(half), view.Columns());
  return kOk;
}

result_t CQELImageTransform::Rotate4(IQEL* source, IQELImage* dest, int angle) {
  if (source == nullptr || dest == nullptr) return kFail;
  ImageShape shape;
  const result_t read = ReadFormat(*source, shape);
  if (Failed(read)) return read;
  ReadSize(*source, shape);
  if (angle != 90 && angle != 180 && angle != 270) return kOk;
  ImageShape turned = shape;
  if (angle != 180) std::swap(turned.width, turned.height);
  const NewPixels pixels(*dest, turned);
  for (int plane = 0; plane < shape.planes; ++plane) {
    const ImageView to = pixels.Plane(plane);
    TurnPlane(to, ReadPlane(*source, shape, plane), angle);
  }
  return kOk;
}

}  // namespace qel
