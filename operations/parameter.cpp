#include "operations/parameter.h"

namespace qel::operations {

std::string_view KindName(Kind kind) {
  switch (kind) {
    case Kind::kInt:
      return "integer";
    case Kind::kNumber:
      return "number";
    case Kind::kExtent:
      return "extent";
    case Kind::kFlag:
      return "flag";
    case Kind::kColor:
      return "color";
    case Kind::kPaint:
      return "paint";
    case Kind::kChoice:
      return "choice";
    case Kind::kNumbers:
      return "numbers";
    case Kind::kPoint:
      return "point";
    case Kind::kText:
      return "text";
    case Kind::kPicture:
      return "picture";
  }
  return "";
}

}  // namespace qel::operations
