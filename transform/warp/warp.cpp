#include <algorithm>
#include <cstring>

#include "component/result_image.h"
#include "image/pixel_layout.h"
#include "simd/prefetch.h"
#include "transform/image_transform.h"
#include "transform/warp/nearest_copy.h"

namespace qel {
namespace {

bool HasAlphaModel(const ImageShape& shape) {
  return shape.model == kModelArgb || shape.model == kModelAbgr;
}

/// Points that are asked for together: those of two chunks before the pixels of the first are
/// looked at, which the memory brings meanwhile.
constexpr int kChunk = 128;

/// Where the points of a chunk are, before and after their way through the caller's transform.
struct Points {
  double x[kChunk];
  double y[kChunk];

  void Send(ITransform& transform, int count) {
    for (int i = 0; i < count; ++i) {
      double z = 0;
      transform.TransformPoint(&x[i], &y[i], &z);
    }
  }
};

PointRule WithinOf(const ImageShape& shape) {
  return {.width = static_cast<double>(shape.width), .height = static_cast<double>(shape.height)};
}

/// Fills `dest` from where the transform says; pixels from outside stay as they are.
void PullPixels(ITransform& transform, const ImageView& source, const ImageView& dest,
                int pixel_bytes, int x_offset, int y_offset) {
  const PointRule within = WithinOf(source);
  NearestCopy copy(source, {.source_bytes = pixel_bytes, .opaque = false}, 0, std::nullopt);
  Points points;
  int32_t sx[kChunk];
  int32_t sy[kChunk];
  for (int y = 0; y < dest.height; ++y) {
    for (int first = 0; first < dest.width; first += kChunk) {
      const int count = std::min(kChunk, dest.width - first);
      for (int i = 0; i < count; ++i) {
        points.x[i] = static_cast<double>(first + i) + x_offset;
        points.y[i] = static_cast<double>(y) + y_offset;
      }
      points.Send(transform, count);
      const auto pixels = static_cast<size_t>(count);
      ActiveWarpKernels().cells(sx, sy, points.x, points.y, pixels, within);
      uint8_t* const to = dest.Row(y) + int64_t{first} * pixel_bytes;
      if (copy) {
        copy(to, sx, sy, pixels);
        continue;
      }
      for (int i = 0; i < count; ++i) {
        if (sx[i] < 0) continue;
        std::memcpy(to + int64_t{i} * pixel_bytes, source.Row(sy[i]) + int64_t{sx[i]} * pixel_bytes,
                    static_cast<size_t>(pixel_bytes));
      }
    }
  }
  copy.Finish();
}

/// Sends the first `columns` pixels of every source row through the transform and calls
/// `paint(pixel, x, y)` for those that land on `target`, and `start_row()` before each row.
template <int kBytes, typename StartRow, typename Paint>
void PushPixels(ITransform& transform, const ImageView& source, int columns,
                const ImageView& target, int x_offset, int y_offset, StartRow&& start_row,
                Paint&& paint) {
  // Rounded down: what is within needs no more than truncation.
  PointRule within = WithinOf(target);
  within.shift_x = x_offset;
  within.shift_y = y_offset;
  within.half = 0.5;
  struct Landed {
    int row;
    int first;
    int count = 0;
    int32_t x[kChunk];
    int32_t y[kChunk];
  } chunks[2];
  const auto paint_chunk = [&](Landed& chunk) {
    if (chunk.count > 0 && chunk.first == 0) start_row();
    for (int i = 0; i < chunk.count; ++i) {
      if (chunk.x[i] < 0) continue;
      uint8_t pixel[kBytes];
      std::memcpy(pixel, source.Row(chunk.row) + (int64_t{chunk.first} + i) * kBytes, kBytes);
      paint(pixel, chunk.x[i], chunk.y[i]);
    }
    chunk.count = 0;
  };
  Points points;
  int turn = 0;
  for (int y = 0; y < source.height; ++y) {
    for (int first = 0; first < columns; first += kChunk) {
      Landed& chunk = chunks[turn];
      const int count = std::min(kChunk, columns - first);
      chunk.row = y;
      chunk.first = first;
      chunk.count = count;
      for (int i = 0; i < count; ++i) {
        points.x[i] = first + i;
        points.y[i] = y;
      }
      points.Send(transform, count);
      ActiveWarpKernels().cells(chunk.x, chunk.y, points.x, points.y, static_cast<size_t>(count),
                                within);
      constexpr int kPixelsPerPrefetch = 4;
      for (int i = 0; i < count; i += kPixelsPerPrefetch) {
        if (chunk.x[i] < 0) continue;
        PrefetchLine<1>(target.Row(chunk.y[i]) + int64_t{chunk.x[i]} * kBytes);
      }
      turn = 1 - turn;
      paint_chunk(chunks[turn]);
    }
  }
  paint_chunk(chunks[1 - turn]);
}

template <int kBytes>
void Put(const ImageView& target, int x, int y, const uint8_t* pixel) {
  std::memcpy(target.Row(y) + int64_t{x} * kBytes, pixel, kBytes);
}

/// Zero marks what is not painted yet: pasted pixels avoid it.
template <int kBytes>
void MarkPainted(uint8_t* pixel) {
  if constexpr (kBytes == 3) {
    for (int c = 0; c < 3; ++c) pixel[c] = pixel[c] == 0 ? 1 : pixel[c];
  } else if (pixel[0] == 0 && pixel[1] == 0 && pixel[2] == 0) {
    constexpr uint8_t kOne[4] = {1, 0, 0, 0};
    std::memcpy(pixel, kOne, 4);
  }
}

/// Pastes pixels of the source; one of its depths.
class Paste {
 public:
  Paste(ITransform& transform, const ImageView& source, const ImageView& target, int x_offset,
        int y_offset)
      : transform_(transform),
        source_(source),
        target_(target),
        x_offset_(x_offset),
        y_offset_(y_offset) {}

  /// Leaves voids and marks everything else.
  template <int kBytes>
  void Marked() const {
    Push<kBytes>(
        source_.width, [] {},
        [&](uint8_t* pixel, int x, int y) {
          MarkPainted<kBytes>(pixel);
          Put<kBytes>(target_, x, y, pixel);
        });
  }

  /// Covers the right and the lower neighbour too.
  template <int kBytes>
  void Spread(int columns) const {
    Push<kBytes>(
        columns, [] {},
        [&](const uint8_t* pixel, int x, int y) {
          Put<kBytes>(target_, x, y, pixel);
          if (x < target_.width - 1) Put<kBytes>(target_, x + 1, y, pixel);
          if (y < target_.height - 1) Put<kBytes>(target_, x, y + 1, pixel);
        });
  }

  /// Closes gaps to the column that was written before, in the row below as well.
  template <int kBytes>
  void Joined() const {
    int previous = 0;
    Push<kBytes>(
        source_.width, [&] { previous = 0; },
        [&](const uint8_t* pixel, int x, int y) {
          Put<kBytes>(target_, x, y, pixel);
          // Deliberate: nothing is closed after a pixel at column 0, which looks like the start of
          // a row.
          if (previous > 0) {
            for (int i = previous + 1; i <= x; ++i) {
              Put<kBytes>(target_, i, y, pixel);
              if (y < target_.height - 1) Put<kBytes>(target_, i, y + 1, pixel);
            }
          }
          previous = x;
        });
  }

 private:
  template <int kBytes, typename StartRow, typename Paint>
  void Push(int columns, StartRow&& start_row, Paint&& paint) const {
    PushPixels<kBytes>(transform_, source_, columns, target_, x_offset_, y_offset_, start_row,
                       paint);
  }

  ITransform& transform_;
  const ImageView& source_;
  const ImageView& target_;
  int x_offset_;
  int y_offset_;
};

void PastePixels(const Paste& paste, const ImageView& source, bool fill_voids) {
  switch (source.bit_count) {
    case 8:
      // Deliberate: the last column of 8-bit sources is never pasted.
      return paste.Spread<1>(static_cast<int>(source.Columns()) - 1);
    case 24:
      return fill_voids ? paste.Marked<3>() : paste.Joined<3>();
    case 32:
      return fill_voids ? paste.Marked<4>() : paste.Spread<4>(source.width);
    default:
      return;
  }
}

int SizeOr(uint32_t size, int source_size) {
  return size > 0 && size < 65536 ? static_cast<int>(size) : source_size;
}

}  // namespace

result_t CQELImageTransform::Transform(ITransform* transform, IQEL* source, IQEL** result,
                                       int x_offset, int y_offset, uint32_t new_width,
                                       uint32_t new_height, int16_t /*reserved1*/,
                                       int16_t /*reserved2*/) {
  if (transform == nullptr || source == nullptr) return kFail;
  if (result == nullptr) return kNullOutput;
  const ImageShape source_shape = ReadShape(*source);
  if (source_shape.Empty()) return kFail;
  ImageShape shape = source_shape;
  shape.width = SizeOr(new_width, source_shape.width);
  shape.height = SizeOr(new_height, source_shape.height);
  shape.planes = 1;
  ResultImage output = ResultImage::Like(shape);
  if (!output) return kFail;
  output.Fill(shape.bit_count == 32 && HasAlphaModel(shape) ? 0xFF000000u : 0u);
  const int bytes = ExactPixelBytes(shape.bit_count);
  if (bytes != 0) {
    const ImageView dest = output.View();
    const ImageView view = ReadPlane(*source, source_shape, 0);
    if (dest.HasPixels() && view.HasPixels()) {
      PullPixels(*transform, view, dest, bytes, x_offset, y_offset);
    }
  }
  output.Store(result);
  return kOk;
}

result_t CQELImageTransform::TransformPaste(ITransform* transform, IQEL* source, IQEL* target,
                                            int x_offset, int y_offset, int16_t fill_voids,
                                            int16_t /*reserved*/) {
  if (transform == nullptr || source == nullptr || target == nullptr) return kFail;
  const ImageShape shape = ReadShape(*source);
  const ImageShape target_shape = ReadShape(*target);
  const ImageView view = ReadPlane(*source, shape, 0);
  ImageView pasted = ReadPlane(*target, target_shape, 0);
  // Unspecified: pixels are pasted as the source's depth has them, so a target of fewer bits has no
  // room for them. The transform is asked about every pixel all the same.
  const bool writes =
      view.bits != nullptr && pasted.bits != nullptr && pasted.bit_count >= view.bit_count;
  if (!writes) pasted.width = 0;
  PastePixels(Paste(*transform, view, pasted, x_offset, y_offset), view, fill_voids != 0);
  if (fill_voids != 0 && (view.bit_count == 24 || view.bit_count == 32)) FillVoids(target);
  return kOk;
}

}  // namespace qel
