#ifndef QEL_COMPONENT_STRING_REF_H_
#define QEL_COMPONENT_STRING_REF_H_

#include "qel/types.h"

namespace qel {

/// Length of a counted string: its low 32 bits, signed.
constexpr int32_t LengthOf(tagREFString text) { return static_cast<int32_t>(text.length); }

/// True when both have the same length and the same characters, case included. A length of 0 or
/// less has no characters to compare.
constexpr bool SameText(tagREFString a, tagREFString b) {
  if (LengthOf(a) != LengthOf(b)) return false;
  for (int32_t i = 0; i < LengthOf(a); ++i) {
    if (a.text[i] != b.text[i]) return false;
  }
  return true;
}

}  // namespace qel

#endif  // QEL_COMPONENT_STRING_REF_H_
