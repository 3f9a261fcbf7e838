#include "image/image_view.h"

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

ImageShape ReadShape(IQEL& image) {
  ImageShape shape;
  ReadSize(image, shape);
  ReadFormat(image, shape);
  return shape;
}

ImageView ReadView(IQEL& image) { return ReadPlane(image, ReadShape(image), 0); }

}  // namespace qel
