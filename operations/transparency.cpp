#include "operations/transparency.h"

namespace qel::operations {

Transparency TransparencyOf(IQEL& image) {
  return TransparencyOf(image, {0, ShapeOf(image).height});
}

Transparency TransparencyOf(IQEL& image, RowRange rows) {
  const Shape shape = ShapeOf(image);
  if (shape.bits != 32 || shape.model == kModelMono || shape.width <= 0 || rows.size() <= 0) {
    return {};
  }
  uint8_t* bits = nullptr;
  int stride = 0, unread = 0;
  image.GetBits(0, &unread, &bits, &stride);
  uint8_t lowest = 255, highest = 0;
  for (int y = rows.begin; y < rows.end; ++y) {
    const uint8_t* const row = bits + int64_t{y} * stride;
    for (int64_t i = 3; i < int64_t{4} * shape.width; i += 4) {
      lowest = std::min(lowest, row[i]);
      highest = std::max(highest, row[i]);
    }
  }
  return {lowest, highest};
}

std::string TransparencyNote(const Operation& operation, const Transparency& before,
                             const Transparency& after) {
  const std::string name(operation.name);
  if (operation.sets_alpha) return {};
  if (after.CannotBeSeen() && !before.CannotBeSeen()) {
    return name +
           ": the picture cannot be seen any more, all of its alpha is 0; follow it by "
           "set-image-alpha alpha=255" +
           (name == "resample" ? ", or use resize" : "");
  }
  if (before.IsSeenThrough() && !after.IsSeenThrough()) {
    return name + ": the picture's transparency is lost";
  }
  return {};
}

}  // namespace qel::operations
