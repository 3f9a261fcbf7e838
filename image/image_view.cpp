#include "image/image_view.h"

#include <algorithm>

namespace qel {

void ReadSize(IQEL& image, ImageShape& shape) {
  shape.width = shape.height = shape.planes = 0;
  image.GetSize(&shape.width, &shape.height, &shape.planes);
}

result_t ReadFormat(IQEL& image, ImageShape& shape) {
  int unread = 0;
  shape.bit_count = 0;
  shape.model = 0;
  return image.GetFormat(&shape.bit_count, &shape.model, &unread);
}

ImageView ReadPlane(IQEL& image, const ImageShape& shape, int plane) {
  ImageView view{shape};
  int unread = 0;
  image.GetBits(plane, &unread, &view.bits, &view.stride);
  return view;
}

NewPixels::NewPixels(IQEL& image, const ImageShape& shape)
    : image_(&image),
      shape_(shape),
      usable_planes_(INT32_MAX),
      result_(image.Create(shape.width, shape.height, shape.planes, shape.bit_count, shape.model)) {
  if (Succeeded(result_)) return;
  const ImageShape kept = ReadShape(image);
  const bool suffices =
      kept.width >= shape.width && kept.height >= shape.height && kept.bit_count == shape.bit_count;
  // Images that report no planes still have one.
  usable_planes_ = suffices ? std::max(kept.planes, 1) : 0;
}

ImageView NewPixels::Plane(int plane) const {
  ImageView view = ReadPlane(*image_, shape_, plane);
  if (plane >= usable_planes_) view.bits = nullptr;
  return view;
}

ImageShape ReadShape(IQEL& image) {
  ImageShape shape;
  ReadFormat(image, shape);
  ReadSize(image, shape);
  return shape;
}

ImageView ReadView(IQEL& image) { return ReadPlane(image, ReadShape(image), 0); }

ImageShape ReadSizeAndFormat(IQEL& image) {
  ImageShape shape;
  ReadSize(image, shape);
  ReadFormat(image, shape);
  return shape;
}

ImageView ReadSizeBitsAndFormat(IQEL& image) {
  ImageShape size;
  ReadSize(image, size);
  ImageView view = ReadPlane(image, size, 0);
  ReadFormat(image, view);
  return view;
}

}  // namespace qel
