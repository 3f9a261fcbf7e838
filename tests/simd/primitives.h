#ifndef QEL_TESTS_SIMD_PRIMITIVES_H_
#define QEL_TESTS_SIMD_PRIMITIVES_H_

#include <cstddef>
#include <cstdint>

#include "simd/cpu_level.h"

namespace qel {

/// One function of vectors beside plain loops over their lanes. Both read four vectors of drawn
/// lanes and write as many bytes as they tell.
struct Primitive {
  const char* name;
  size_t (*vectors)(const uint8_t* in, uint8_t* out);
  size_t (*lanes)(const uint8_t* in, uint8_t* out);
};

/// The vocabulary of one level.
struct Primitives {
  size_t vector_bytes;
  const Primitive* all;
  size_t count;
  /// Copies the first `count` bytes of at most a vector by masks.
  void (*copy_masked)(const uint8_t* from, uint8_t* to, size_t count);
};
QEL_TABLES_PER_LEVEL(Primitives)

}  // namespace qel

#endif  // QEL_TESTS_SIMD_PRIMITIVES_H_
