#include "simd/cpu_level.h"

namespace qel {

CpuLevel DetectCpuLevel() {
  __builtin_cpu_init();
  if (!__builtin_cpu_supports("avx2")) return CpuLevel::kSse2;
  if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512bw") ||
      !__builtin_cpu_supports("avx512vl") || !__builtin_cpu_supports("avx512dq")) {
    return CpuLevel::kAvx2;
  }
  if (!__builtin_cpu_supports("avx512vbmi") || !__builtin_cpu_supports("avx512vnni")) {
    return CpuLevel::kAvx512;
  }
  return CpuLevel::kAvx512Vbmi;
}

}  // namespace qel
