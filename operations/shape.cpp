#include "operations/shape.h"

namespace qel::operations {

Shape ShapeOf(IQEL& image) {
  Shape shape;
  int unread = 0;
  image.GetSize(&shape.width, &shape.height, &unread);
  image.GetFormat(&shape.bits, &shape.model, &unread);
  return shape;
}

}  // namespace qel::operations
