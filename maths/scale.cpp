#include <algorithm>
#include <cmath>
#include <optional>

#include "image/image_view.h"
#include "maths/maths.h"
#include "maths/row_walk.h"
#include "maths/scale_kernels.h"

namespace qel {
namespace {

/// What one pixel holds.
enum class PixelKind { kNone, kGray, kColor3, kColor4, kWord };

PixelKind PixelKindOf(const ImageShape& shape) {
  switch (shape.bit_count) {
    case 8:
      return PixelKind::kGray;
    case 24:
      return PixelKind::kColor3;
    case 32:
      return shape.model == kModelMono ? PixelKind::kWord : PixelKind::kColor4;
    default:
      return PixelKind::kNone;
  }
}

int BytesOf(PixelKind kind) {
  return kind == PixelKind::kGray ? 1 : kind == PixelKind::kColor3 ? 3 : 4;
}

// From stride to the bytes between rows.
int64_t AsBytes(int64_t stride) { return stride; }
int64_t AsWords(int64_t stride) { return stride / 4 * 4; }
int64_t TimesFour(int64_t stride) { return stride * 4; }

/// How one kind of pixel becomes another.
struct Conversion {
  PixelKind source, dest;
  ScaleKernels::ScaleRow ScaleKernels::*row;
  int64_t (*source_step)(int64_t stride) = AsBytes;
  int64_t (*dest_step)(int64_t stride) = AsBytes;
  int units = 1;           ///< of the row function per pixel
  bool wraps = false;      ///< bytes are clamped at 0 only and keep their low 8 bits
  bool by_thirds = false;  ///< the factor is for the mean of three bytes
  bool one_pixel = false;  ///< only the first of each row
};
using Kernels = ScaleKernels;
constexpr Conversion kConversions[] = {
    {PixelKind::kWord, PixelKind::kGray, &Kernels::words_to_1, AsWords},
    {PixelKind::kWord, PixelKind::kColor3, &Kernels::words_to_3, AsWords},
    {PixelKind::kWord, PixelKind::kColor4, &Kernels::words_to_4, AsWords},
    {PixelKind::kWord, PixelKind::kWord, &Kernels::words_to_words, AsWords, AsWords},
    {.source = PixelKind::kColor4,
     .dest = PixelKind::kGray,
     .row = &Kernels::gray_of_4,
     .by_thirds = true},
    {PixelKind::kColor4, PixelKind::kColor3, &Kernels::map_4_to_3},
    // Deliberate: color of 32 bits wraps where all other depths clamp, and alpha is scaled too.
    {.source = PixelKind::kColor4,
     .dest = PixelKind::kColor4,
     .row = &Kernels::map_bytes,
     .units = 4,
     .wraps = true},
    {.source = PixelKind::kColor3,
     .dest = PixelKind::kGray,
     .row = &Kernels::gray_of_3,
     .by_thirds = true},
    {.source = PixelKind::kColor3,
     .dest = PixelKind::kColor3,
     .row = &Kernels::map_bytes,
     .units = 3},
    // Deliberate: from 24 to 32 bits only the first pixel of each row is converted, and it wraps.
    {.source = PixelKind::kColor3,
     .dest = PixelKind::kColor4,
     .row = &Kernels::map_bytes,
     .units = 3,
     .wraps = true,
     .one_pixel = true},
    {PixelKind::kGray, PixelKind::kGray, &Kernels::map_bytes},
    {PixelKind::kGray, PixelKind::kColor3, &Kernels::map_to_3},
    // Deliberate: grays are read as if they were 32-bit integers, four times as far to the right
    // and down as the image reaches.
    {PixelKind::kGray, PixelKind::kWord, &Kernels::words_to_words, TimesFour, AsWords},
};

/// The conversion between two images; null when there is none.
const Conversion* FindConversion(const ImageShape& source, const ImageShape& dest) {
  const PixelKind from = PixelKindOf(source);
  PixelKind to = PixelKindOf(dest);
  if (from == PixelKind::kColor3 && source.model == kModelMono) return nullptr;
  const bool from_color = from == PixelKind::kColor3 || from == PixelKind::kColor4;
  if (from_color && to == PixelKind::kWord) to = PixelKind::kColor4;
  const auto* const found = std::ranges::find_if(
      kConversions, [=](const Conversion& c) { return c.source == from && c.dest == to; });
  return found == std::end(kConversions) ? nullptr : found;
}

/// True where bytes become bytes one by one.
bool MapsBytes(const Conversion& conversion) {
  return conversion.source != PixelKind::kWord && conversion.dest != PixelKind::kWord &&
         !conversion.by_thirds;
}

/// The map for images of this many pixels.
ScaleMap MapFor(const Conversion& conversion, float factor, float offset, int64_t pixels) {
  ScaleMap map;
  map.factor = conversion.by_thirds ? factor / 3.0f : factor;
  map.offset = offset;
  map.words_fit = map.Bounded(INT32_MAX);
  int32_t values[256];
  for (int i = 0; i < 256; ++i) {
    const float value = map(static_cast<float>(i));
    values[i] = conversion.wraps ? TruncateFromZero(value) : TruncateToByte(value);
    map.table[i] = static_cast<uint8_t>(values[i]);
  }
  if (MapsBytes(conversion) && pixels >= kBytesForLine && ActiveScaleKernels().prefers_lines) {
    map.line = FindByteLine(values, conversion.wraps);
  }
  return map;
}

/// The rows of one plane of both images, and of the mask where there is one.
struct Rows {
  RowWalk dest, source, mask;
  int64_t columns, rows;

  void Scale(const Conversion& conversion, const ScaleMap& map) const {
    const bool unbounded = conversion.by_thirds && !map.Bounded(3 * 255);
    const Kernels& kernels = unbounded ? ScaleOneByOne()
                                       : KernelsFor(ActiveScaleKernels(), ScaleOneByOne(), dest,
                                                    {source, mask}, columns, rows);
    const auto units = static_cast<size_t>(conversion.units);
    const bool keeps =
        mask.bits != nullptr || conversion.one_pixel || conversion.row == &Kernels::words_to_4;
    WriteRows(dest, {source, keeps ? dest : RowWalk()}, columns, rows,
              [&](uint8_t* to, int64_t y, int64_t x, size_t count) {
                if (mask.bits != nullptr) {
                  kernels.map_bytes_where(to, source.At(x, y), mask.At(x, y), count, map);
                } else {
                  (kernels.*conversion.row)(to, source.At(x, y), count * units, map);
                }
              });
  }
};

/// A factor in single precision that does what `factor` does to integers in `Scale8`. Of the whole
/// numbers that a byte may come from, each has a least integer that reaches it, and another factor
/// does the same if it takes none of these below it and none of those before them to it. Factors
/// from about 2^-22 of the largest such integer on leave room for one, roundings included.
std::optional<float> SingleFactor(double factor, int offset) {
  const double size = std::abs(factor);
  // No product leaves the range of integers, and those beyond these give 0 or 255.
  if (!(size > 1e-5 && size <= 0.5) || std::abs(int64_t{offset}) > 512) return {};
  const int most = 256 + std::abs(offset);
  double low = 0, high = 1;
  for (int k = 1; k <= most; ++k) {
    double least = std::ceil(k / size);
    while ((least - 1) * size >= k) --least;
    while (least * size < k) ++least;
    low = std::max(low, k / least);
    high = std::min(high, k / (least - 1));
  }
  constexpr double kRoundings = 1 + 1.0 / (1 << 22);
  const auto single = static_cast<float>((low + high) / 2);
  if (low * kRoundings > single || single * kRoundings > high) return {};
  return std::copysign(single, static_cast<float>(factor));
}

}  // namespace

result_t CQELMaths::Scale(IQEL* dest, IQEL* source, IQEL* mask, float factor, float offset) {
  if (dest == nullptr || source == nullptr) return kFail;
  ImageShape shape, dest_shape;
  ReadFormat(*source, shape);
  ReadFormat(*dest, dest_shape);
  ReadSize(*source, shape);
  ReadSize(*dest, dest_shape);
  const Conversion* const conversion = FindConversion(shape, dest_shape);
  if (conversion == nullptr) return kFail;
  shape.width = SmallerUnsigned(shape.width, dest_shape.width);
  shape.height = SmallerUnsigned(shape.height, dest_shape.height);
  const bool gray_to_gray = shape.bit_count == 8 && dest_shape.bit_count == 8;
  const ScaleMap map = MapFor(*conversion, factor, offset, shape.Columns() * shape.Rows());
  for (int plane = 0; plane < (gray_to_gray ? 1 : shape.planes); ++plane) {
    const ImageView from = ReadPlane(*source, shape, plane);
    const ImageView to = ReadPlane(*dest, shape, plane);
    const bool masked = gray_to_gray && mask != nullptr;
    const ImageView selection = masked ? ReadPlane(*mask, {}, 0) : ImageView{};
    if (!from.HasPixels() || !to.HasPixels() || (masked && selection.bits == nullptr)) continue;
    const int64_t source_bytes =
        conversion->row == &Kernels::words_to_words ? 4 : BytesOf(conversion->source);
    const Rows rows = {
        .dest = {to.bits, conversion->dest_step(to.stride), BytesOf(conversion->dest)},
        .source = {from.bits, conversion->source_step(from.stride), source_bytes},
        .mask = {selection.bits, selection.stride},
        .columns = conversion->one_pixel ? 1 : shape.Columns(),
        .rows = shape.Rows()};
    rows.Scale(*conversion, map);
  }
  return kOk;
}

result_t CQELMaths::Scale8(IQELImage* dest, IQEL* source, int offset, double factor) {
  if (dest == nullptr || source == nullptr) return kFail;
  ImageShape shape;
  ReadFormat(*source, shape);
  if (shape.model != kModelMono) return kNotMono;
  if (shape.bit_count < 8) return kInvalidArgument;
  ReadSize(*source, shape);
  ImageShape bytes_shape = shape;
  bytes_shape.bit_count = 8;
  const NewPixels scaled(*dest, bytes_shape);
  // Deliberate: what is 8 bits already is not copied; `dest` stays as `Create` left it.
  if (shape.bit_count == 8) return kOk;
  const auto single = shape.Columns() * shape.Rows() >= kBytesForLine ? SingleFactor(factor, offset)
                                                                      : std::optional<float>();
  for (int plane = 0; plane < shape.planes; ++plane) {
    const ImageView from = ReadPlane(*source, shape, plane);
    const ImageView to = scaled.Plane(plane);
    if (!from.HasPixels() || !to.HasPixels()) continue;
    // Deliberate: the stride is divided as an unsigned number. Times four it wraps, so that rows
    // going up in memory still do at 32 bits.
    const uint32_t stride_words =
        static_cast<uint32_t>(from.stride) / static_cast<uint32_t>(shape.bit_count / 8);
    const RowWalk words = {from.bits, static_cast<int32_t>(4 * stride_words), 4};
    const RowWalk bytes = {to.bits, to.stride};
    const Kernels& kernels = KernelsFor(ActiveScaleKernels(), ScaleOneByOne(), bytes, {words},
                                        shape.Columns(), shape.Rows());
    WriteRows(bytes, {words}, shape.Columns(), shape.Rows(),
              [&](uint8_t* row, int64_t y, int64_t x, size_t count) {
                if (single) {
                  kernels.scale8_single(row, words.At(x, y), count, *single, offset);
                } else {
                  kernels.scale8(row, words.At(x, y), count, factor, offset);
                }
              });
  }
  return kOk;
}

}  // namespace qel
