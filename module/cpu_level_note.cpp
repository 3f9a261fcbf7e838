#include "simd/cpu_level.h"

// An ELF note tells tools which processor level is in use, since nothing but the entry points is
// exported: the distance from the note's content to `kActiveCpuLevel`, then the names of its
// values.

namespace qel {

static_assert(kCpuLevelCount == 4 && sizeof(kActiveCpuLevel) == 4);

asm(R"(
  .pushsection .note.qel.level, "a", @note
  .balign 4
  .long 4, 2f - 1f, 1
  .asciz "QEL"
1:
  .long _ZN3qel15kActiveCpuLevelE - 1b
  .asciz "sse2", "avx2", "avx512", "avx512vbmi"
2:
  .balign 4
  .popsection
)");

}  // namespace qel
