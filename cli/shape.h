#ifndef QEL_CLI_SHAPE_H_
#define QEL_CLI_SHAPE_H_

#include <string>

#include "cli/errors.h"
#include "cli/operation.h"

namespace qel::cli {

// The module trusts its caller: what does not fit is refused by the rows' functions before they
// call it.

/// What decides whether pictures fit together.
struct Shape {
  int width = 0, height = 0, bits = 0;
  uint32_t model = 0;

  std::string Size() const { return std::to_string(width) + " x " + std::to_string(height); }
  std::string Bits() const { return std::to_string(bits) + " bits"; }
  bool Covers(const Shape& other) const { return width >= other.width && height >= other.height; }
  bool HasBytes() const { return bits == 8 || bits == 24 || bits == 32; }
};

inline Shape ShapeOf(IQEL& image) {
  Shape shape;
  int unread = 0;
  image.GetSize(&shape.width, &shape.height, &unread);
  image.GetFormat(&shape.bits, &shape.model, &unread);
  return shape;
}

/// Ends the step: wrong usage, told under its name.
[[noreturn]] inline void Refuse(const Call& call, const std::string& message) {
  throw Failure(kUsage, std::string(call.name) + ": " + message);
}

}  // namespace qel::cli

#endif  // QEL_CLI_SHAPE_H_
