#include "operations/shape_after.h"

#include "operations/errors.h"

namespace qel::operations {
namespace {

void CheckDepth(const Operation& operation, const Given& given, int bits) {
  if (operation.WorksOn(bits)) return;
  std::string text = "it works on " + std::string(operation.depths) +
                     " bits per pixel, the picture has " + std::to_string(bits);
  if (bits < 8) {
    text += "; leave out what keeps the depth of palettes";
  } else if (operation.WorksOn(32)) {
    text += "; put increase-bpp before it";
  }
  RefuseDepth(given, text);
}

}  // namespace

Shape ShapeAfter(const Step& step, const Shape& shape, int64_t max_pixels,
                 const ShapeOfPicture& second) {
  const Operation& operation = *step.operation;
  const Given given = step.AsGiven();
  CheckDepth(operation, given, shape.bits);
  if (operation.check_shapes != nullptr) operation.check_shapes(given, shape, second);
  Shape result = operation.ResultShape(given, shape, second);
  if (result.width < 1 || result.height < 1) {
    Refuse(given, "the result would have " + result.Size() + " pixels; ask for one at least");
  }
  if (result.width > max_pixels / result.height) {
    Refuse(given, "the result would have " + result.Size() + " pixels, more than the limit of " +
                      std::to_string(max_pixels));
  }
  if (result.bits != shape.bits) result.model = ModelOf(result.bits);
  return result;
}

}  // namespace qel::operations
