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

/// Pixels of `kBytes` bytes. Those of three go as two and one: all of them through a word in memory
/// would wait for its parts to be stored.
template <int kBytes>
uint32_t LoadPixel(const uint8_t* from) {
  if constexpr (kBytes == 3) return LoadPixel<2>(from) | uint32_t{from[2]} << 16;
  uint32_t pixel = 0;
  std::memcpy(&pixel, from, kBytes);
  return pixel;
}
template <int kBytes>
void StorePixel(uint32_t pixel, uint8_t* to) {
  if constexpr (kBytes == 3) {
    StorePixel<2>(pixel, to);
    to[2] = static_cast<uint8_t>(pixel >> 16);
  } else {
    std::memcpy(to, &pixel, kBytes);
  }
}

/// Sends the first `columns` pixels of every source row through the transform and has those that
/// land on `target` painted there.
template <int kBytes, typename Painter>
void PushPixels(ITransform& transform, const ImageView& source, int columns,
                const ImageView& target, int x_offset, int y_offset, Painter painter) {
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
  const auto paint = [&](Landed& chunk) {
    if (chunk.count == 0 || !target.HasPixels()) return;
    // A copy, so that what is painted cannot change it.
    Painter painting = painter;
    if (chunk.first == 0) painting.StartRow();
    const uint8_t* const from = source.Row(chunk.row) + int64_t{chunk.first} * kBytes;
    for (int i = 0; i < chunk.count; ++i) {
      if (chunk.x[i] < 0) continue;
      painting.Paint(LoadPixel<kBytes>(from + int64_t{i} * kBytes), chunk.x[i], chunk.y[i]);
    }
    painter = painting;
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
        const uint8_t* const at = target.Row(chunk.y[i]) + int64_t{chunk.x[i]} * kBytes;
        PrefetchLine<1>(at);
        // Where pictures are pasted downwards, this row is the one that is met first.
        if (Painter::kPaintsBelow) PrefetchLine<1>(at + target.stride);
      }
      // Calls take so long between rows that the processor forgets where it reads.
      if (target.HasPixels()) {
        PrefetchRun(source.Row(y) + int64_t{first} * kBytes, int64_t{count} * kBytes);
      }
      turn = 1 - turn;
      paint(chunks[turn]);
    }
  }
  paint(chunks[1 - turn]);
}

/// Where pixels of `kBytes` bytes are pasted.
template <int kBytes>
struct Canvas {
  explicit Canvas(const ImageView& target)
      : bits(target.bits), stride(target.stride), width(target.width), height(target.height) {}

  void Put(int x, int y, uint32_t pixel) const {
    StorePixel<kBytes>(pixel, bits + y * stride + int64_t{x} * kBytes);
  }

  uint8_t* bits;
  int64_t stride;
  int width;
  int height;
};

/// Leaves voids and marks everything else: zero marks what is not painted yet, so that pasted
/// pixels avoid it.
template <int kBytes>
struct MarkingPainter {
  static constexpr bool kPaintsBelow = false;
  Canvas<kBytes> canvas;

  void StartRow() {}
  void Paint(uint32_t pixel, int x, int y) const {
    if constexpr (kBytes == 3) {
      // The highest bit of each byte that is 0, all at once.
      constexpr uint32_t kLowBits = 0x7F7F7F;
      pixel |= (~(((pixel & kLowBits) + kLowBits) | pixel) & ~kLowBits) >> 7 & 0x010101;
    } else if ((pixel & 0xFFFFFF) == 0) {
      pixel = 1;
    }
    canvas.Put(x, y, pixel);
  }
};

/// Covers the right and the lower neighbour too.
template <int kBytes>
struct SpreadingPainter {
  static constexpr bool kPaintsBelow = true;
  Canvas<kBytes> canvas;

  void StartRow() {}
  void Paint(uint32_t pixel, int x, int y) const {
    canvas.Put(x, y, pixel);
    if (x < canvas.width - 1) canvas.Put(x + 1, y, pixel);
    if (y < canvas.height - 1) canvas.Put(x, y + 1, pixel);
  }
};

/// Closes gaps to the column that was written before, in the row below as well.
template <int kBytes>
struct JoiningPainter {
  static constexpr bool kPaintsBelow = true;
  Canvas<kBytes> canvas;
  int previous = 0;

  void StartRow() { previous = 0; }
  void Paint(uint32_t pixel, int x, int y) {
    canvas.Put(x, y, pixel);
    // Deliberate: nothing is closed after a pixel at column 0, which looks like the start of a row.
    if (previous > 0 && x > previous) {
      const bool has_row_below = y < canvas.height - 1;
      for (int i = previous + 1; i < x; ++i) {
        canvas.Put(i, y, pixel);
        if (has_row_below) canvas.Put(i, y + 1, pixel);
      }
      if (has_row_below) canvas.Put(x, y + 1, pixel);
    }
    previous = x;
  }
};

/// Pastes the pixels of `source` onto `target`, as their depth has it.
void PastePixels(ITransform& transform, const ImageView& source, const ImageView& target,
                 int x_offset, int y_offset, bool fill_voids) {
  const auto push = [&]<int kBytes, typename Painter>(std::integral_constant<int, kBytes>,
                                                      int columns, const Painter& painter) {
    PushPixels<kBytes>(transform, source, columns, target, x_offset, y_offset, painter);
  };
  constexpr std::integral_constant<int, 1> k1;
  constexpr std::integral_constant<int, 3> k3;
  constexpr std::integral_constant<int, 4> k4;
  const int width = source.width;
  switch (source.bit_count) {
    case 8:
      // Deliberate: the last column of 8-bit sources is never pasted.
      return push(k1, static_cast<int>(source.Columns()) - 1,
                  SpreadingPainter<1>{Canvas<1>(target)});
    case 24:
      return fill_voids ? push(k3, width, MarkingPainter<3>{Canvas<3>(target)})
                        : push(k3, width, JoiningPainter<3>{Canvas<3>(target)});
    case 32:
      return fill_voids ? push(k4, width, MarkingPainter<4>{Canvas<4>(target)})
                        : push(k4, width, SpreadingPainter<4>{Canvas<4>(target)});
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
  PastePixels(*transform, view, pasted, x_offset, y_offset, fill_voids != 0);
  if (fill_voids != 0 && (view.bit_count == 24 || view.bit_count == 32)) FillVoids(target);
  return kOk;
}

}  // namespace qel
