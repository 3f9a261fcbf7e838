#include <algorithm>

#include "image/copy_rows.h"
#include "image/image_view.h"
#include "image/pixel_layout.h"
#include "maths/conversion_kernels.h"
#include "maths/maths.h"
#include "maths/row_walk.h"

namespace qel {
namespace {

struct DepthCopy {
  int source_bits;
  int dest_bits;
  ConversionKernels::CopyRow ConversionKernels::*row;
};
constexpr DepthCopy kDepthCopies[] = {
    {8, 24, &ConversionKernels::one_to_3},    {8, 32, &ConversionKernels::one_to_4},
    {24, 32, &ConversionKernels::three_to_4}, {24, 8, &ConversionKernels::mean_of_3},
    {32, 24, &ConversionKernels::four_to_3},  {32, 8, &ConversionKernels::mean_of_4},
};

/// The part of an image that is pasted, from the source's rows to those of its place in `dest`.
struct Paste {
  RowWalk dest, source;
  int64_t columns, rows;
};

void ConvertRows(const Paste& paste, ConversionKernels::CopyRow ConversionKernels::*row) {
  const auto convert = KernelsFor(ActiveConversionKernels(), ConversionsOneByOne(), paste.dest,
                                  {paste.source}, paste.columns, paste.rows).*
                       row;
  const bool keeps = row == &ConversionKernels::fill_zeros;
  WriteRows(paste.dest, {paste.source, keeps ? paste.dest : RowWalk()}, paste.columns, paste.rows,
            [&](uint8_t* to, int64_t y, int64_t x, size_t count) {
              convert(to, paste.source.At(x, y), count);
            });
}

/// Replaces zero bytes of the destination, each byte for itself.
void FillZeroBytes(Paste paste) {
  paste.columns *= paste.source.pixel_bytes;
  paste.dest.pixel_bytes = paste.source.pixel_bytes = 1;
  ConvertRows(paste, &ConversionKernels::fill_zeros);
}

/// Expands pixels of five, six and five bits to three bytes, the low five bits first or last.
void ExpandRows(const Paste& paste, bool low_bits_first) {
  const int low = low_bits_first ? 0 : 2;
  for (int64_t y = 0; y < paste.rows; ++y) {
    uint8_t* dest = paste.dest.Row(y);
    const uint8_t* source = paste.source.Row(y);
    for (int64_t x = 0; x < paste.columns; ++x, dest += 3, source += 2) {
      const unsigned value = source[0] | source[1] << 8;
      dest[low] = static_cast<uint8_t>(value << 3);
      dest[1] = static_cast<uint8_t>(value >> 5 << 2);
      dest[2 - low] = static_cast<uint8_t>(value >> 11 << 3);
    }
  }
}

}  // namespace

result_t CQELMaths::Copy(IQEL* dest, IQEL* source, IQEL* mask, int x, int y) {
  if (dest == nullptr || source == nullptr) return kFail;
  const ImageShape dest_shape = ReadSizeAndFormat(*dest);
  const ImageShape source_shape = ReadSizeAndFormat(*source);
  if (static_cast<unsigned>(x) >= static_cast<unsigned>(dest_shape.width) ||
      static_cast<unsigned>(y) >= static_cast<unsigned>(dest_shape.height)) {
    return kFail;
  }
  const ImageView from = ReadPlane(*source, source_shape, 0);
  const ImageView to = ReadPlane(*dest, dest_shape, 0);
  Paste paste;
  paste.columns = std::min(from.Columns(), to.Columns() - x);
  paste.rows = std::min(from.Rows(), to.Rows() - y);
  if (paste.rows <= 0) return kOk;
  const bool has_pixels = from.HasPixels() && to.HasPixels();
  if (has_pixels) {
    paste.source = {from.bits, from.stride, WholePixelBytes(from.bit_count)};
    const int64_t dest_bytes = WholePixelBytes(to.bit_count);
    paste.dest = {to.Row(y) + x * dest_bytes, to.stride, dest_bytes};
  }

  if (from.bit_count == to.bit_count) {
    // Deliberate: a mask is never read; given the destination itself, it stands for "keep what is
    // not zero", byte by byte, so that single channels of a pixel are replaced.
    if (has_pixels && mask == dest) {
      FillZeroBytes(paste);
    } else if (has_pixels) {
      CopyRows(paste.dest.bits, paste.dest.step, paste.source.bits, paste.source.step,
               paste.columns * paste.source.pixel_bytes, paste.rows,
               ActiveConversionKernels().copy);
    }
    return kOk;
  }
  for (const DepthCopy& conversion : kDepthCopies) {
    if (conversion.source_bits != from.bit_count || conversion.dest_bits != to.bit_count) continue;
    if (has_pixels) ConvertRows(paste, conversion.row);
    return kOk;
  }
  const bool expands = from.bit_count == 16 && to.bit_count == 24 && from.model == kModelBgr &&
                       (to.model == kModelBgr || to.model == 0);
  if (expands && has_pixels) {
    paste.source.step = int64_t{from.stride / 2} * 2;
    ExpandRows(paste, to.model == kModelBgr);
  }
  // Deliberate: 16-bit sources are converted and reported as failed all the same.
  return kFail;
}

}  // namespace qel
