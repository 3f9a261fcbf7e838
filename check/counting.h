#ifndef QEL_CHECK_COUNTING_H_
#define QEL_CHECK_COUNTING_H_

#include <span>

#include "qel/unknown.h"

namespace qel::check {

/// Reference count of an object, read by taking one and giving it back.
inline uint32_t CountOf(IUnknown* object) {
  object->AddRef();
  return object->Release();
}

/// Counts references to one object, through its interfaces `pointers`, from several threads at a
/// time. Throws `Broken` when the count is another one afterwards.
void RequireCountsFromThreads(std::span<IUnknown* const> pointers);

}  // namespace qel::check

#endif  // QEL_CHECK_COUNTING_H_
