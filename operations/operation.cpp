#include "operations/operation.h"

#include <new>

#include "operations/errors.h"

namespace qel::operations {

SmartPtr<IQELImageDIB> Call::NewImage() const {
  SmartPtr<IQELImageDIB> made;
  const result_t code =
      host.CreateComponent(RefString(kImageComponentName), &IID_IQELImageDIB, made.PutVoid());
  if (Failed(code) || !made) throw std::bad_alloc();
  return made;
}

Shape ShapeOf(IQEL& image) {
  Shape shape;
  int unread = 0;
  image.GetSize(&shape.width, &shape.height, &unread);
  image.GetFormat(&shape.bits, &shape.model, &unread);
  return shape;
}

void Refuse(const Given& given, const std::string& message, std::string_view argument) {
  throw StepError(std::string(given.name) + ": " + message, given.name, argument);
}

}  // namespace qel::operations
