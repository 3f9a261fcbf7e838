#ifndef QEL_CLI_SHAPE_H_
#define QEL_CLI_SHAPE_H_

#include <string>

#include "cli/operation.h"
#include "operations/errors.h"

namespace qel::cli {

// The module trusts its caller: what does not fit is refused by the rows' functions before they
// call it.

inline Shape ShapeOf(IQEL& image) {
  Shape shape;
  int unread = 0;
  image.GetSize(&shape.width, &shape.height, &unread);
  image.GetFormat(&shape.bits, &shape.model, &unread);
  return shape;
}

/// Ends the step: wrong usage, told under its name.
[[noreturn]] inline void Refuse(const Given& given, const std::string& message) {
  throw Failure(kUsage, std::string(given.name) + ": " + message);
}

}  // namespace qel::cli

#endif  // QEL_CLI_SHAPE_H_
