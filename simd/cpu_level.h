#ifndef QEL_SIMD_CPU_LEVEL_H_
#define QEL_SIMD_CPU_LEVEL_H_

namespace qel {

// How many of the levels below a build has, from the lowest on: QEL_LEVELS in the build's options.
#ifndef QEL_LEVEL_COUNT
#ifdef __x86_64__
#define QEL_LEVEL_COUNT 4
#else
#define QEL_LEVEL_COUNT 1
#endif
#endif

/// The processor levels that kernels are compiled for, each including those before it.
enum class CpuLevel {
  kSse2,        ///< every x86-64 processor; on others, what the compiler makes of plain C++
  kAvx2,        ///< 256-bit integers and fused multiplication and addition (AVX2, FMA)
  kAvx512,      ///< 512-bit integers with bytes, words and masks (F, BW, VL, DQ)
  kAvx512Vbmi,  ///< byte permutes and dot products (VBMI, VNNI)
};
inline constexpr int kCpuLevelCount = QEL_LEVEL_COUNT;

constexpr bool HasLevel(CpuLevel level) { return static_cast<int>(level) < kCpuLevelCount; }

/// The highest level that this processor and its operating system run and that this build has.
CpuLevel DetectCpuLevel();

/// The level in use, chosen once while the library loads.
extern const CpuLevel kActiveCpuLevel;

/// Declares what a kernel source publishes, one table per level: for the struct `ToneKernels` the
/// tables `kToneKernels` in the namespace of each level, and
///   const ToneKernels& ToneKernelsFor(CpuLevel);
///   const ToneKernels& ActiveToneKernels();
#define QEL_TABLES_PER_LEVEL(Table)                                    \
  namespace sse2 {                                                     \
  extern const Table k##Table;                                         \
  }                                                                    \
  namespace avx2 {                                                     \
  extern const Table k##Table;                                         \
  }                                                                    \
  namespace avx512 {                                                   \
  extern const Table k##Table;                                         \
  }                                                                    \
  namespace avx512vbmi {                                               \
  extern const Table k##Table;                                         \
  }                                                                    \
  inline const Table& Table##For(CpuLevel level) {                     \
    if constexpr (HasLevel(CpuLevel::kAvx512Vbmi)) {                   \
      if (level == CpuLevel::kAvx512Vbmi) return avx512vbmi::k##Table; \
    }                                                                  \
    if constexpr (HasLevel(CpuLevel::kAvx512)) {                       \
      if (level == CpuLevel::kAvx512) return avx512::k##Table;         \
    }                                                                  \
    if constexpr (HasLevel(CpuLevel::kAvx2)) {                         \
      if (level == CpuLevel::kAvx2) return avx2::k##Table;             \
    }                                                                  \
    return sse2::k##Table;                                             \
  }                                                                    \
  inline const Table& Active##Table() { return Table##For(kActiveCpuLevel); }

}  // namespace qel

#endif  // QEL_SIMD_CPU_LEVEL_H_
