#include <algorithm>
#include <cstring>

#include "component/result_image.h"
#include "image/pixel_layout.h"
#include "simd/prefetch.h"
#include "transform/image_transform.h"
#include "transform/warp/nearest_copy.h"
#include "transform/warp/point_kernels.h"

namespace qel {
namespace {

bool HasAlphaModel(const ImageShape& shape) {
  return shape.model == kModelArgb || shape.model == kModelAbgr;
}

/// Points that are asked for together: those of two chunks before the pixels of the first are
/// looked at, which the memory brings meanwhile.
constexpr int kChunk = 128;
static_assert(kChunk % kPointGroup == 0 && kChunk / kPointGroup <= kMostPointGroups);

/// Where the points of a chunk are, before and after their way through the caller's transform.
struct Points {
  alignas(64) double x[kChunk] = {};
  alignas(64) double y[kChunk] = {};

  void Send(ITransform& transform, int count) {
    for (int i = 0; i < count; ++i) {
      double z = 0;
      transform.TransformPoint(&x[i], &y[i], &z);
    }
  }
};

bool IsInside(const ImageShape& shape, int x, int y) {
  return x >= 0 && x < shape.width && y >= 0 && y < shape.height;
}

/// Fills `dest` from where the transform says; pixels from outside stay as they are.
void PullPixels(ITransform& transform, const ImageView& source, const ImageView& dest,
                int pixel_bytes, int x_offset, int y_offset) {
  NearestCopy copy(source, {.source_bytes = pixel_bytes, .opaque = false}, 0, std::nullopt);
  Points points;
  alignas(64) int32_t sx[kChunk];
  alignas(64) int32_t sy[kChunk];
  for (int y = 0; y < dest.height; ++y) {
    for (int first = 0; first < dest.width; first += kChunk) {
      const int count = std::min(kChunk, dest.width - first);
      const auto pixels = static_cast<size_t>(count);
      ActivePointKernels().place_points(points.x, points.y, pixels,
                                        static_cast<double>(first) + x_offset,
                                        static_cast<double>(y) + y_offset);
      points.Send(transform, count);
      uint8_t* const to = dest.Row(y) + int64_t{first} * pixel_bytes;
      if (copy) {
        copy.AtPoints(to, points.x, points.y, pixels);
        continue;
      }
      ActivePointKernels().cells(sx, sy, points.x, points.y, pixels, {});
      for (int i = 0; i < count; ++i) {
        if (!IsInside(source, sx[i], sy[i])) continue;
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

/// Where the pixels of a chunk land.
struct Landed {
  int row;  ///< of the source, from column `first` on
  int first;
  int count = 0;
  uint32_t inner_groups = 0;  ///< those whose cells are off the border
  alignas(
      64) int32_t columns[kPointGroup + kChunk];  ///< after a group whose last one is that before
  alignas(64) int32_t y[kChunk];
  alignas(64) int32_t offsets[kChunk];  ///< from the first byte of row 0
  alignas(64) int32_t below[kChunk];    ///< where they go in the row below, or once more

  int32_t* x() { return columns + kPointGroup; }
  const int32_t* x() const { return columns + kPointGroup; }
};

/// Calls each(i, pixel) for a group of pixels; of 3 bytes, the fourth one is not defined.
template <int kBytes, typename Each>
void ForGroup(const uint8_t* from, const Each& each) {
  constexpr int kLast = kPointGroup - 1;
  constexpr int kLoaded = kBytes == 3 ? 4 : kBytes;
  for (int i = 0; i < kLast; ++i) each(i, LoadPixel<kLoaded>(from + kBytes * i));
  each(kLast, LoadPixel<kBytes>(from + kBytes * kLast));
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

// Painters prepare a chunk, then paint pixels one by one, whose cells are inside, or a group from
// pixel `first` of the chunk on, whose cells are `kLeft`, `kRight` and `kBottom` cells off the
// border; false leaves the group to the former.

/// Leaves voids and marks everything else: zero marks what is not painted yet, so that pasted
/// pixels avoid it.
template <int kBytes>
struct MarkingPainter {
  static constexpr int kLeft = 0, kRight = 0, kBottom = 0;
  Canvas<kBytes> canvas;

  static uint32_t Marked(uint32_t pixel) {
    if constexpr (kBytes == 3) {
      // The highest bit of each byte that is 0, all at once.
      constexpr uint32_t kLowBits = 0x7F7F7F;
      return pixel | ((~(((pixel & kLowBits) + kLowBits) | pixel) & ~kLowBits) >> 7 & 0x010101);
    } else {
      return (pixel & 0xFFFFFF) == 0 ? 1 : pixel;
    }
  }
  void Prepare(Landed& /*chunk*/) {}
  void Paint(uint32_t pixel, int x, int y) const { canvas.Put(x, y, Marked(pixel)); }
  bool PaintGroup(const uint8_t* from, const Landed& chunk, int first) const {
    const int32_t* const offsets = chunk.offsets + first;
    ForGroup<kBytes>(from, [&](int i, uint32_t pixel) {
      StorePixel<kBytes>(Marked(pixel), canvas.bits + offsets[i]);
    });
    return true;
  }
};

/// Covers the right and the lower neighbour too.
template <int kBytes>
struct SpreadingPainter {
  static constexpr int kLeft = 0, kRight = 1, kBottom = 1;
  Canvas<kBytes> canvas;

  void Prepare(Landed& /*chunk*/) {}
  void Paint(uint32_t pixel, int x, int y) const {
    canvas.Put(x, y, pixel);
    if (x < canvas.width - 1) canvas.Put(x + 1, y, pixel);
    if (y < canvas.height - 1) canvas.Put(x, y + 1, pixel);
  }
  bool PaintGroup(const uint8_t* from, const Landed& chunk, int first) const {
    const int32_t* const offsets = chunk.offsets + first;
    ForGroup<kBytes>(from, [&](int i, uint32_t pixel) {
      uint8_t* const to = canvas.bits + offsets[i];
      const uint64_t pair = pixel * (uint64_t{1} << 8 * kBytes | 1);
      std::memcpy(to, &pair, 2 * kBytes);
      StorePixel<kBytes>(pixel, to + canvas.stride);
    });
    return true;
  }
};

/// Closes gaps to the column that was written before, in the row below as well.
template <int kBytes>
struct JoiningPainter {
  static constexpr int kLeft = 1, kRight = 1, kBottom = 1;
  Canvas<kBytes> canvas;
  int previous = 0;

  /// Groups with gaps are painted one by one.
  void Prepare(Landed& chunk) {
    if (chunk.first == 0) previous = 0;
    if (chunk.inner_groups == 0) return;
    chunk.x()[-1] = previous;
    chunk.inner_groups &= ActivePointKernels().join_below(chunk.below, chunk.offsets, chunk.x(),
                                                          static_cast<size_t>(chunk.count),
                                                          static_cast<int32_t>(canvas.stride));
  }
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
  bool PaintGroup(const uint8_t* from, const Landed& chunk, int first) {
    const int32_t* const offsets = chunk.offsets + first;
    const int32_t* const below = chunk.below + first;
    const int32_t* const x = chunk.x() + first;
    if (previous == 0 || previous != x[-1]) return false;
    // Pixels that are not painted below are painted twice where they are, and the byte behind each
    // as it was: one store for two.
    ForGroup<kBytes>(from, [&](int i, uint32_t pixel) {
      pixel &= 0xFFFFFF;
      const auto put = [&](uint8_t* to) { StorePixel<4>(pixel | uint32_t{to[3]} << 24, to); };
      put(canvas.bits + offsets[i]);
      put(canvas.bits + below[i]);
    });
    previous = x[kPointGroup - 1];
    return true;
  }
};

/// Sends the first `columns` pixels of every source row through the transform and has those that
/// land on `target` painted there.
template <int kBytes, typename Painter>
void PushPixels(ITransform& transform, const ImageView& source, int columns,
                const ImageView& target, int x_offset, int y_offset, Painter painter) {
  // Rounded down: what is inside needs no more than truncation.
  const PointRule rounded = {.shifts = x_offset != 0 || y_offset != 0,
                             .shift_x = static_cast<double>(x_offset),
                             .shift_y = static_cast<double>(y_offset),
                             .half = 0.5};
  constexpr int kBorder = Painter::kLeft + Painter::kRight;
  const OffsetRule inner = {.left = Painter::kLeft,
                            .top = 0,
                            .columns = std::max(target.width, kBorder) - kBorder,
                            .rows = std::max(target.height, Painter::kBottom) - Painter::kBottom,
                            .stride = target.stride,
                            .pixel_bytes = kBytes,
                            .narrow_column = -1};
  const bool has_offsets = HasSmallOffsets(target, kBytes);
  Landed chunks[2];
  const auto paint = [&](Landed& chunk) {
    if (chunk.count == 0) return;
    // A copy, so that what is painted cannot change it.
    Painter painting = painter;
    painting.Prepare(chunk);
    const uint8_t* const from = source.Row(chunk.row) + int64_t{chunk.first} * kBytes;
    constexpr int kGroup = kPointGroup;
    uint32_t inner_groups = chunk.inner_groups;
    for (int first = 0; first < chunk.count; first += kGroup, inner_groups >>= 1) {
      const int end = std::min(first + kGroup, chunk.count);
      if ((inner_groups & 1) != 0 && end == first + kGroup &&
          painting.PaintGroup(from + int64_t{first} * kBytes, chunk, first)) {
        continue;
      }
      for (int i = first; i < end; ++i) {
        const int x = chunk.x()[i], y = chunk.y[i];
        if (!IsInside(target, x, y)) continue;
        painting.Paint(LoadPixel<kBytes>(from + int64_t{i} * kBytes), x, y);
      }
    }
    painter = painting;
    chunk.count = 0;
  };
  Points points;
  int turn = 0;
  for (int y = 0; y < source.height; ++y) {
    for (int first = 0; first < columns; first += kChunk) {
      const int count = std::min(kChunk, columns - first);
      const auto pixels = static_cast<size_t>(count);
      ActivePointKernels().place_points(points.x, points.y, pixels, first, y);
      points.Send(transform, count);
      if (!target.HasPixels()) continue;
      Landed& chunk = chunks[turn];
      chunk.row = y;
      chunk.first = first;
      chunk.count = count;
      if (has_offsets) {
        chunk.inner_groups = ActivePointKernels().cell_offsets(
            chunk.offsets, chunk.x(), chunk.y, points.x, points.y, pixels, rounded, inner);
        constexpr int kPixelsPerPrefetch = 2;
        for (int i = 0; i < count; i += kPixelsPerPrefetch) {
          if (chunk.offsets[i] == kOutsideOffset) continue;
          const uint8_t* const at = target.bits + chunk.offsets[i];
          PrefetchLine<1>(at);
          // Where pictures are pasted downwards, this row is the one that is met first.
          if (Painter::kBottom > 0) PrefetchLine<1>(at + target.stride);
        }
      } else {
        ActivePointKernels().cells(chunk.x(), chunk.y, points.x, points.y, pixels, rounded);
      }
      // Calls take so long between rows that the processor forgets where it reads.
      PrefetchRun(source.Row(y) + int64_t{first} * kBytes, int64_t{count} * kBytes);
      turn = 1 - turn;
      paint(chunks[turn]);
    }
  }
  paint(chunks[1 - turn]);
}

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
