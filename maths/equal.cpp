#include <cstring>

#include "image/image_view.h"
#include "maths/conversion_kernels.h"
#include "maths/maths.h"
#include "maths/row_walk.h"

namespace qel {
namespace {

/// What a selected pixel receives.
enum class Unit { kNothing, kByte, kThreeBytes, kWord };

Unit UnitOf(const ImageShape& shape) {
  if (shape.bit_count == 8) return Unit::kByte;
  if (shape.model == kModelMono) return shape.bit_count > 8 ? Unit::kWord : Unit::kNothing;
  return shape.bit_count == 24   ? Unit::kThreeBytes
         : shape.bit_count == 32 ? Unit::kWord
                                 : Unit::kNothing;
}

/// The bytes of `value` as they lie in memory, again and again.
void FillPattern(Unit unit, int value, uint8_t (&pattern)[kFillPeriod]) {
  const auto word = static_cast<uint32_t>(value);
  for (size_t i = 0; i < kFillPeriod; ++i) {
    // Deliberate: 3-byte pixels take the value's bytes from the third down to the lowest, words
    // from the lowest up; the same value is another color at 24 and at 32 bits.
    const size_t byte = unit == Unit::kByte ? 0 : unit == Unit::kWord ? i % 4 : 2 - i % 3;
    pattern[i] = static_cast<uint8_t>(word >> (8 * byte));
  }
}

void FillRows(const RowWalk& dest, const ImageShape& shape, Unit unit, int value) {
  uint8_t pattern[kFillPeriod];
  FillPattern(unit, value, pattern);
  constexpr int64_t kNearCaches = 1 << 20;
  const ConversionKernels& kernels = ActiveConversionKernels();
  const int64_t row_bytes = shape.Columns() * dest.pixel_bytes;
  const bool ahead = row_bytes * shape.Rows() > kNearCaches;
  const auto pixel_bytes = static_cast<size_t>(dest.pixel_bytes);
  WriteRows(dest, {}, shape.Columns(), shape.Rows(),
            [&](uint8_t* to, int64_t, int64_t, size_t count) {
              kernels.fill(to, count * pixel_bytes, pattern, ahead);
            });
}

void FillSelected(const RowWalk& dest, const ImageView& mask, const ImageShape& shape, int value) {
  const RowWalk selected = {mask.bits, mask.stride};
  const ConversionKernels& kernels = KernelsFor(ActiveConversionKernels(), ConversionsOneByOne(),
                                                dest, {selected}, shape.Columns(), shape.Rows());
  const auto columns = static_cast<size_t>(shape.Columns());
  for (int64_t y = 0; y < shape.Rows(); ++y) {
    if (dest.pixel_bytes == 1) {
      kernels.fill_bytes(dest.Row(y), selected.Row(y), columns, static_cast<uint8_t>(value));
    } else {
      kernels.fill_words(dest.Row(y), selected.Row(y), columns, static_cast<uint32_t>(value));
    }
  }
}

}  // namespace

result_t CQELMaths::Equal(IQEL* image, IQEL* mask, int value) {
  if (image == nullptr) return kOk;
  const ImageShape shape = ReadSizeAndFormat(*image);
  const Unit unit = UnitOf(shape);
  for (int plane = 0; plane < shape.planes; ++plane) {
    const ImageView view = ReadPlane(*image, shape, plane);
    const ImageView selection = mask != nullptr ? ReadPlane(*mask, {}, 0) : ImageView{};
    if (unit == Unit::kNothing || !view.HasPixels()) continue;
    RowWalk dest = {view.bits, view.stride, 1};
    if (unit == Unit::kThreeBytes) dest.pixel_bytes = 3;
    if (unit == Unit::kWord) {
      dest.step = int64_t{4} * (view.stride / (shape.bit_count / 8));
      dest.pixel_bytes = 4;
    }
    // Deliberate: 3-byte pixels are filled whatever the mask says.
    if (mask == nullptr || unit == Unit::kThreeBytes) {
      FillRows(dest, shape, unit, value);
    } else if (selection.bits != nullptr) {
      FillSelected(dest, selection, shape, value);
    }
  }
  return kOk;
}

}  // namespace qel
