#ifndef QEL_TESTS_EMULATED_IMMINTRIN_H_
#define QEL_TESTS_EMULATED_IMMINTRIN_H_

// Stands in for the compiler's header where the AVX-512 levels are built for processors that have
// AVX2 and FMA only: SIMDe takes the wide instructions apart, and what its version 0.7.4 lacks or
// gets wrong stands here. Proves the logic of the kernels and the memory they reach, not what the
// compiler makes of them for AVX-512.

#pragma GCC system_header
#include_next <immintrin.h>
#define SIMDE_ENABLE_NATIVE_ALIASES
#include <simde/x86/avx512.h>

namespace qel_emulated {

// Everything has internal linkage, as in the compiler's header.
#define QEL_EMULATE static inline __attribute__((always_inline))

using I512 = simde__m512i;
using F512 = simde__m512;
using D512 = simde__m512d;

/// Vectors of 64 bytes, by the type of a lane.
template <typename Lane>
struct LanesOf {
  typedef Lane Type __attribute__((vector_size(64), may_alias));
};
template <typename Lane>
using Lanes = typename LanesOf<Lane>::Type;

/// The same bits as another type.
template <typename To, typename From>
QEL_EMULATE To As(const From& v) {
  static_assert(sizeof(To) == sizeof(From));
  To same;
  __builtin_memcpy(&same, &v, sizeof(same));
  return same;
}

/// Joins what `half` makes of the two halves, so that instructions of AVX2 do the rounding.
template <typename To, typename Part, typename Half, typename... From>
QEL_EMULATE To ByHalves(Half half, From... v) {
  struct Halves {
    Part part[2];
  };
  const Halves from[] = {As<Halves>(v)...};
  const auto join = [&](size_t k) {
    if constexpr (sizeof...(From) == 3) {
      return half(from[0].part[k], from[1].part[k], from[2].part[k]);
    }
    if constexpr (sizeof...(From) == 2) return half(from[0].part[k], from[1].part[k]);
    if constexpr (sizeof...(From) == 1) return half(from[0].part[k]);
  };
  const struct { decltype(join(0)) part[2]; } both = {{join(0), join(1)}};
  return As<To>(both);
}

/// Lane i of the comparison number `how` of whole numbers as bit i.
template <typename Mask, typename Lane, typename V>
QEL_EMULATE Mask Compare(V a, V b, int how) {
  struct LanesOfV {
    Lane at[sizeof(V) / sizeof(Lane)];
  };
  const auto x = As<LanesOfV>(a), y = As<LanesOfV>(b);
  uint64_t mask = 0;
  for (size_t i = 0; i < sizeof(V) / sizeof(Lane); ++i) {
    const bool truths[] = {
        x.at[i] == y.at[i],
        x.at[i]<y.at[i], x.at[i] <= y.at[i], false, x.at[i] != y.at[i], x.at[i] >= y.at[i], x.at[i]>
            y.at[i],
        true};
    mask |= uint64_t{truths[how]} << i;
  }
  return static_cast<Mask>(mask);
}

/// Lane i of the result is lane i + by of two vectors, block by block of `kBlock` lanes.
template <typename Lane, size_t kBlock>
QEL_EMULATE I512 ShiftPair(I512 high, I512 low, size_t by) {
  const auto h = As<Lanes<Lane>>(high), l = As<Lanes<Lane>>(low);
  Lanes<Lane> shifted{};
  for (size_t i = 0; i < 64 / sizeof(Lane); ++i) {
    const size_t from = i % kBlock + by;
    const size_t block = i - i % kBlock;
    if (from < kBlock) {
      shifted[i] = l[block + from];
    } else if (from < 2 * kBlock) {
      shifted[i] = h[block + from - kBlock];
    }
  }
  return As<I512>(shifted);
}
/// Loads and stores touch the chosen bytes only.
QEL_EMULATE I512 LoadChosen(simde__mmask64 mask, const void* from) {
  unsigned char bytes[64] = {};
  for (size_t i = 0; i < 64; ++i) {
    if ((mask >> i & 1) != 0) bytes[i] = static_cast<const volatile unsigned char*>(from)[i];
  }
  return As<I512>(bytes);
}
QEL_EMULATE void StoreChosen(void* to, simde__mmask64 mask, I512 v) {
  unsigned char bytes[64];
  __builtin_memcpy(bytes, &v, sizeof(v));
  for (size_t i = 0; i < 64; ++i) {
    if ((mask >> i & 1) != 0) static_cast<volatile unsigned char*>(to)[i] = bytes[i];
  }
}
QEL_EMULATE D512 DwordsToDouble(__m256i v) {
  typedef int32_t Dwords __attribute__((vector_size(32)));
  return As<D512>(__builtin_convertvector(As<Dwords>(v), Lanes<double>));
}
QEL_EMULATE D512 SingleToDouble(__m256 v) {
  typedef float Singles __attribute__((vector_size(32)));
  return As<D512>(__builtin_convertvector(As<Singles>(v), Lanes<double>));
}
QEL_EMULATE __m256i DoubleToDwords(D512 v) {
  return ByHalves<__m256i, __m256d>([](__m256d half) { return _mm256_cvttpd_epi32(half); }, v);
}
QEL_EMULATE I512 SingleToDwords(F512 v) {
  return ByHalves<I512, __m256>([](__m256 half) { return _mm256_cvttps_epi32(half); }, v);
}
QEL_EMULATE I512 MulHighWords(I512 a, I512 b) {
  return ByHalves<I512, __m256i>([](__m256i x, __m256i y) { return _mm256_mulhi_epu16(x, y); }, a,
                                 b);
}
/// Rounded once, where the library rounds the product as well.
QEL_EMULATE D512 MulAdd(D512 a, D512 b, D512 c) {
  return ByHalves<D512, __m256d>(
      [](__m256d x, __m256d y, __m256d z) { return _mm256_fmadd_pd(x, y, z); }, a, b, c);
}
QEL_EMULATE F512 MulAdd(F512 a, F512 b, F512 c) {
  return ByHalves<F512, __m256>(
      [](__m256 x, __m256 y, __m256 z) { return _mm256_fmadd_ps(x, y, z); }, a, b, c);
}

#undef QEL_EMULATE

}  // namespace qel_emulated

// What the library has not.
#define _mm512_alignr_epi8(a, b, by) qel_emulated::ShiftPair<uint8_t, 16>(a, b, by)
#define _mm512_alignr_epi32(a, b, by) qel_emulated::ShiftPair<uint32_t, 16>(a, b, by)
#define _mm512_cmp_epu8_mask(a, b, how) qel_emulated::Compare<simde__mmask64, uint8_t>(a, b, how)
#define _mm512_cmp_epu16_mask(a, b, how) qel_emulated::Compare<simde__mmask32, uint16_t>(a, b, how)
#define _mm512_cvtepi32_pd(v) qel_emulated::DwordsToDouble(v)
#define _mm512_cvtps_pd(v) qel_emulated::SingleToDouble(v)
#define _mm512_cvttpd_epi32(v) qel_emulated::DoubleToDwords(v)
#define _mm512_cvttps_epi32(v) qel_emulated::SingleToDwords(v)
#define _mm512_maskz_loadu_epi8(mask, from) qel_emulated::LoadChosen(mask, from)
#define _mm512_mulhi_epu16(a, b) qel_emulated::MulHighWords(a, b)
#define _mm512_mask_storeu_epi8(to, mask, v) qel_emulated::StoreChosen(to, mask, v)

// What it has with the wrong number of arguments, without end, reaching too far, rounded twice.
#undef _mm512_madd_epi16
#define _mm512_madd_epi16(a, b) simde_mm512_madd_epi16(a, b)
#undef _mm512_fmadd_pd
#undef _mm512_fmadd_ps
#define _mm512_fmadd_pd(a, b, c) qel_emulated::MulAdd(a, b, c)
#define _mm512_fmadd_ps(a, b, c) qel_emulated::MulAdd(a, b, c)

#endif  // QEL_TESTS_EMULATED_IMMINTRIN_H_
