#include "simd/cpu_level.h"

// An ELF note tells tools which processor level is in use, since nothing but the entry points is
// exported: the distance from the note's content to `kActiveCpuLevel`, then the names of its
// values.

#ifdef __x86_64__
#define QEL_LOWEST_LEVEL "sse2"
#else
#define QEL_LOWEST_LEVEL "base"
#endif

#ifdef __ELF__

namespace qel {

static_assert(sizeof(kActiveCpuLevel) == 4);

asm(R"(
  .pushsection .note.qel.level, "a", %note
  .balign 4
  .long 4, 2f - 1f, 1
  .asciz "QEL"
1:
  .long _ZN3qel15kActiveCpuLevelE - 1b
  .asciz ")" QEL_LOWEST_LEVEL R"(", "avx2", "avx512", "avx512vbmi"
2:
  .balign 4
  .popsection
)");

}  // namespace qel

#endif
