#ifndef QEL_SIMD_CPU_LEVEL_H_
#define QEL_SIMD_CPU_LEVEL_H_

namespace qel {

/// The processor levels that kernels are compiled for, each including those before it.
enum class CpuLevel {
  kSse2,        ///< every x86-64 processor
  kAvx2,        ///< 256-bit integers
  kAvx512,      ///< 512-bit integers with bytes, words and masks (F, BW, VL, DQ)
  kAvx512Vbmi,  ///< byte permutes and dot products (VBMI, VNNI)
};
inline constexpr int kCpuLevelCount = 4;

/// The highest level that this processor and its operating system run.
CpuLevel DetectCpuLevel();

/// The level in use, chosen once while the library loads.
extern const CpuLevel kActiveCpuLevel;

/// Picks the table of `level` among the four copies of a kernel source.
template <typename Table>
const Table& TableForLevel(CpuLevel level, const Table& sse2, const Table& avx2,
                           const Table& avx512, const Table& avx512vbmi) {
  switch (level) {
    case CpuLevel::kAvx512Vbmi:
      return avx512vbmi;
    case CpuLevel::kAvx512:
      return avx512;
    case CpuLevel::kAvx2:
      return avx2;
    case CpuLevel::kSse2:
      break;
  }
  return sse2;
}

}  // namespace qel

#endif  // QEL_SIMD_CPU_LEVEL_H_
