#include "simd/cpu_level.h"

namespace qel {
namespace {

#ifdef __x86_64__

CpuLevel LevelOfProcessor() {
  __builtin_cpu_init();
  if (!__builtin_cpu_supports("avx2") || !__builtin_cpu_supports("fma")) return CpuLevel::kSse2;
#ifdef QEL_EMULATED_AVX512
  return CpuLevel::kAvx512Vbmi;
#endif
  if (!__builtin_cpu_supports("avx512f") || !__builtin_cpu_supports("avx512bw") ||
      !__builtin_cpu_supports("avx512vl") || !__builtin_cpu_supports("avx512dq")) {
    return CpuLevel::kAvx2;
  }
  if (!__builtin_cpu_supports("avx512vbmi") || !__builtin_cpu_supports("avx512vnni")) {
    return CpuLevel::kAvx512;
  }
  return CpuLevel::kAvx512Vbmi;
}

#else

CpuLevel LevelOfProcessor() { return CpuLevel::kSse2; }

#endif

}  // namespace

CpuLevel DetectCpuLevel() {
  constexpr auto kHighest = static_cast<CpuLevel>(kCpuLevelCount - 1);
  const CpuLevel level = LevelOfProcessor();
  return HasLevel(level) ? level : kHighest;
}

}  // namespace qel
