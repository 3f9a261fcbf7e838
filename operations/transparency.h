#ifndef QEL_OPERATIONS_TRANSPARENCY_H_
#define QEL_OPERATIONS_TRANSPARENCY_H_

#include <algorithm>
#include <string>

#include "operations/operation.h"

namespace qel::operations {

/// What the alpha of a picture says: its smallest and its largest value, both 255 without alpha.
struct Transparency {
  int lowest = 255;
  int highest = 255;

  bool IsSeenThrough() const { return lowest < 255; }
  bool CannotBeSeen() const { return highest == 0; }
};

/// What alpha says in rows of two kinds together.
inline Transparency Both(const Transparency& one, const Transparency& other) {
  return {std::min(one.lowest, other.lowest), std::max(one.highest, other.highest)};
}

/// Looks at every pixel of a picture of 32 bits, or of some of its rows, at none of others.
Transparency TransparencyOf(IQEL& image);
Transparency TransparencyOf(IQEL& image, RowRange rows);

/// What a step has done to the transparency of a picture that nobody would expect of it: a sentence
/// under its name, empty when there is nothing to say.
std::string TransparencyNote(const Operation& operation, const Transparency& before,
                             const Transparency& after);

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_TRANSPARENCY_H_
