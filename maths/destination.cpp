#include "component/result_image.h"
#include "maths/maths.h"

namespace qel {

result_t CQELMaths::CreateDestImage(IQEL** dest, IQEL* model, int bit_count, int color_model) {
  if (model == nullptr) return kInvalidArgument;
  if (dest == nullptr) return kNullOutput;
  ResultImage image = ResultImage::FromCollection();
  if (!image) {
    *dest = nullptr;
    return kFail;
  }
  ImageShape shape = ReadSizeAndFormat(*model);
  if (bit_count != 0) shape.bit_count = bit_count;
  if (color_model != 0) shape.model = static_cast<uint32_t>(color_model);
  image.Create(shape);
  image.Store(dest);
  return kOk;
}

}  // namespace qel
