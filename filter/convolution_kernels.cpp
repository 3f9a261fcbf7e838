#include "filter/convolution_kernels.h"

#include "image/numeric.h"

#ifndef QEL_LEVEL_sse2
#include <immintrin.h>
#endif

namespace qel::QEL_LEVEL {
namespace {

/// Outputs that are computed side by side.
constexpr size_t kBlock = 64;

template <typename Lane>
void Slide(Lane* __restrict sums, const uint8_t* __restrict entering,
           const uint8_t* __restrict leaving, Lane weight, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const auto change = static_cast<Lane>(Lane{entering[i]} - Lane{leaving[i]});
    sums[i] = static_cast<Lane>(sums[i] + static_cast<Lane>(weight * change));
  }
}

/// Products of lanes in unsigned arithmetic that cannot overflow: 16-bit lanes would be promoted to
/// signed integers.
template <typename Lane>
inline Lane Product(Lane weight, uint32_t value) {
  return static_cast<Lane>(uint32_t{weight} * value);
}

template <size_t kTaps, typename Lane>
void DownFew(Lane* __restrict sums, const uint8_t* const* rows, const Lane* weights, size_t count) {
  const uint8_t* const a = rows[0];
  const uint8_t* const b = rows[1];
  const uint8_t* const c = rows[2];
  const uint8_t* const d = rows[kTaps > 3 ? 3 : 0];
  const uint8_t* const e = rows[kTaps > 4 ? 4 : 0];
  const Lane w0 = weights[0], w1 = weights[1], w2 = weights[2];
  const Lane w3 = kTaps > 3 ? weights[3] : Lane{0};
  const Lane w4 = kTaps > 4 ? weights[4] : Lane{0};
  for (size_t i = 0; i < count; ++i) {
    auto sum = static_cast<Lane>(Product(w0, a[i]) + Product(w1, b[i]) + Product(w2, c[i]));
    if constexpr (kTaps > 3) sum = static_cast<Lane>(sum + Product(w3, d[i]));
    if constexpr (kTaps > 4) sum = static_cast<Lane>(sum + Product(w4, e[i]));
    sums[i] = sum;
  }
}

template <typename Lane>
void Down(Lane* __restrict sums, const uint8_t* const* rows, const Lane* weights, size_t taps,
          size_t count) {
  if (taps == 3) return DownFew<3>(sums, rows, weights, count);
  if (taps == 5) return DownFew<5>(sums, rows, weights, count);
  for (size_t i = 0; i < count; ++i) sums[i] = 0;
  for (size_t tap = 0; tap < taps; ++tap) {
    const uint8_t* const row = rows[tap];
    const Lane weight = weights[tap];
    for (size_t i = 0; i < count; ++i) {
      sums[i] = static_cast<Lane>(sums[i] + Product(weight, row[i]));
    }
  }
}

template <size_t kTaps, typename Lane>
void AcrossFew(Lane* __restrict out, const Lane* sums, const Lane* weights, size_t step,
               size_t count) {
  const Lane* const b = sums + step;
  const Lane* const c = b + step;
  const Lane* const d = c + step;
  const Lane* const e = d + step;
  const Lane w0 = weights[0], w1 = weights[1], w2 = weights[2];
  const Lane w3 = kTaps > 3 ? weights[3] : Lane{0};
  const Lane w4 = kTaps > 4 ? weights[4] : Lane{0};
  for (size_t i = 0; i < count; ++i) {
    auto sum = static_cast<Lane>(Product(w0, sums[i]) + Product(w1, b[i]) + Product(w2, c[i]));
    if constexpr (kTaps > 3) sum = static_cast<Lane>(sum + Product(w3, d[i]));
    if constexpr (kTaps > 4) sum = static_cast<Lane>(sum + Product(w4, e[i]));
    out[i] = sum;
  }
}

template <typename Lane>
void Across(Lane* __restrict out, const Lane* sums, const Lane* weights, size_t taps, size_t step,
            size_t count) {
  if (taps == 3) return AcrossFew<3>(out, sums, weights, step, count);
  if (taps == 5) return AcrossFew<5>(out, sums, weights, step, count);
  for (size_t i = 0; i < count; ++i) out[i] = 0;
  for (size_t tap = 0; tap < taps; ++tap) {
    const Lane* const from = sums + tap * step;
    const Lane weight = weights[tap];
    for (size_t i = 0; i < count; ++i)
      out[i] = static_cast<Lane>(out[i] + Product(weight, from[i]));
  }
}

template <typename Lane>
void Join(Lane* __restrict to, const Lane* a, const Lane* b, size_t count) {
  for (size_t i = 0; i < count; ++i) to[i] = static_cast<Lane>(a[i] + b[i]);
}

/// Windows whose width doubles; those of the widths that make up `taps` are added.
template <typename Lane>
void Box(Lane* __restrict out, const Lane* __restrict sums, Lane* __restrict spare, size_t taps,
         size_t step, size_t count) {
  const size_t room = count + (taps - 1) * step;
  const Lane* from = sums;
  Lane* to = spare;
  bool first = true;
  size_t done = 0;
  for (size_t width = 1; width <= taps; width *= 2) {
    if ((taps & width) != 0) {
      const Lane* const part = from + done * step;
      for (size_t i = 0; i < count; ++i) {
        out[i] = static_cast<Lane>((first ? 0 : out[i]) + part[i]);
      }
      first = false;
      done += width;
    }
    if (2 * width > taps) break;
    Join(to, from, from + width * step, count + (taps - 2 * width) * step);
    from = to;
    to = to == spare ? spare + room : spare;
  }
}

void Accumulate(uint32_t* __restrict sums, const uint8_t* __restrict row, uint32_t weight,
                size_t count) {
  for (size_t i = 0; i < count; ++i) sums[i] += weight * row[i];
}

void Finish16(uint8_t* __restrict dest, const uint16_t* __restrict sums, ShortDivision division,
              size_t count) {
  if (division.multiplier == 0) {
    for (size_t i = 0; i < count; ++i) {
      dest[i] = static_cast<uint8_t>(sums[i] < 255 ? sums[i] : 255);
    }
    return;
  }
  const uint32_t multiplier = division.multiplier;
  for (size_t i = 0; i < count; ++i) {
    const auto high = static_cast<uint16_t>(sums[i] * multiplier >> 16);
    const auto quotient = static_cast<uint16_t>(high >> division.shift);
    dest[i] = static_cast<uint8_t>(quotient < 255 ? quotient : 255);
  }
}

inline uint8_t FinishOne(int32_t quotient, int32_t offset) {
  return ClampToByte(WrapAdd(quotient, offset));
}

void Finish32(uint8_t* __restrict dest, const uint32_t* __restrict sums, const Division& division,
              size_t count) {
  const int32_t offset = division.offset;
  if (division.in_single) {
    const float factor = division.single_factor;
    for (size_t i = 0; i < count; ++i) {
      const auto sum = static_cast<float>(static_cast<int32_t>(sums[i]));
      dest[i] = FinishOne(static_cast<int32_t>(sum * factor), offset);
    }
    return;
  }
  const double factor = division.factor;
  for (size_t i = 0; i < count; ++i) {
    // The lowest sum divided by -1 leaves the range and comes back as itself.
    dest[i] = FinishOne(TruncateToInt(static_cast<int32_t>(sums[i]) * factor), offset);
  }
}

void Direct32(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  for (size_t first = 0; first < count; first += kBlock) {
    const size_t block = count - first < kBlock ? count - first : kBlock;
    uint32_t sums[kBlock] = {};
    for (size_t j = 0; j < weights.rows; ++j) {
      for (size_t i = 0; i < weights.words_per_row; ++i) {
        const auto weight = static_cast<uint32_t>(weights.words[j * weights.stride + i]);
        if (weight == 0) continue;
        const uint8_t* const row = rows[j] + first + i * weights.step;
        for (size_t k = 0; k < kBlock; ++k) sums[k] += weight * row[k];
      }
    }
    Finish32(dest + first, sums, division, block);
  }
}

#ifdef QEL_LEVEL_sse2

constexpr ConvolutionKernels::Direct kDirect16 = nullptr;
constexpr ConvolutionKernels::Direct kDirect8 = nullptr;

#else

#ifdef QEL_LEVEL_avx2

struct Vector {
  using Type = __m256i;
  static Type Load(const uint8_t* from) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
  }
  static void Store(uint8_t* to, Type value) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), value);
  }
  static Type Zero() { return _mm256_setzero_si256(); }
  static Type Set(int32_t value) { return _mm256_set1_epi32(value); }
  static Type Low8(Type a, Type b) { return _mm256_unpacklo_epi8(a, b); }
  static Type High8(Type a, Type b) { return _mm256_unpackhi_epi8(a, b); }
  static Type PairSum(Type a, Type b) { return _mm256_madd_epi16(a, b); }
  static Type Add(Type a, Type b) { return _mm256_add_epi32(a, b); }
  static Type Pack(Type a, Type b, Type c, Type d) {
    return _mm256_packus_epi16(_mm256_packs_epi32(a, b), _mm256_packs_epi32(c, d));
  }
  static Type Single(Type sums, float factor) {
    return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(sums), _mm256_set1_ps(factor)));
  }
  static Type Precise(Type sums, double factor) {
    const __m256d scale = _mm256_set1_pd(factor);
    const __m256d low = _mm256_cvtepi32_pd(_mm256_castsi256_si128(sums));
    const __m256d high = _mm256_cvtepi32_pd(_mm256_extracti128_si256(sums, 1));
    return _mm256_set_m128i(_mm256_cvttpd_epi32(_mm256_mul_pd(high, scale)),
                            _mm256_cvttpd_epi32(_mm256_mul_pd(low, scale)));
  }
};

#else

struct Vector {
  using Type = __m512i;
  static Type Load(const uint8_t* from) { return _mm512_loadu_si512(from); }
  static void Store(uint8_t* to, Type value) { _mm512_storeu_si512(to, value); }
  static Type Zero() { return _mm512_setzero_si512(); }
  static Type Set(int32_t value) { return _mm512_set1_epi32(value); }
  static Type Low8(Type a, Type b) { return _mm512_unpacklo_epi8(a, b); }
  static Type High8(Type a, Type b) { return _mm512_unpackhi_epi8(a, b); }
  static Type PairSum(Type a, Type b) { return _mm512_madd_epi16(a, b); }
  static Type Add(Type a, Type b) { return _mm512_add_epi32(a, b); }
  static Type Pack(Type a, Type b, Type c, Type d) {
    return _mm512_packus_epi16(_mm512_packs_epi32(a, b), _mm512_packs_epi32(c, d));
  }
  static Type Single(Type sums, float factor) {
    return _mm512_cvttps_epi32(_mm512_mul_ps(_mm512_cvtepi32_ps(sums), _mm512_set1_ps(factor)));
  }
  static Type Precise(Type sums, double factor) {
    const __m512d scale = _mm512_set1_pd(factor);
    const __m512d low = _mm512_cvtepi32_pd(_mm512_castsi512_si256(sums));
    const __m512d high = _mm512_cvtepi32_pd(_mm512_extracti64x4_epi64(sums, 1));
    return _mm512_inserti64x4(
        _mm512_castsi256_si512(_mm512_cvttpd_epi32(_mm512_mul_pd(low, scale))),
        _mm512_cvttpd_epi32(_mm512_mul_pd(high, scale)), 1);
  }
};

#endif

using Int = Vector::Type;
constexpr size_t kVector = sizeof(Int);

/// Divides, offsets, clamps and stores the sums of `count` (at most `kVector`) bytes. Packing
/// saturates twice, which is the clamp.
template <bool kInSingle>
inline void Finish(uint8_t* dest, Int (&sums)[4], const Division& division, size_t count) {
  const Int offset = Vector::Set(division.offset);
  for (Int& sum : sums) {
    sum = kInSingle ? Vector::Single(sum, division.single_factor)
                    : Vector::Precise(sum, division.factor);
    sum = Vector::Add(sum, offset);
  }
  const Int bytes = Vector::Pack(sums[0], sums[1], sums[2], sums[3]);
  if (count >= kVector) {
    Vector::Store(dest, bytes);
    return;
  }
  alignas(64) uint8_t rest[kVector];
  Vector::Store(rest, bytes);
  for (size_t i = 0; i < count; ++i) dest[i] = rest[i];
}

/// Two neighbours at a time: their bytes are interleaved, widened and summed in pairs. Interleaving
/// within 128-bit parts gives the sums the order that packing undoes.
template <bool kInSingle>
void PairRows(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  const Int zero = Vector::Zero();
  for (size_t k = 0; k < count; k += kVector) {
    Int sums[4] = {zero, zero, zero, zero};
    for (size_t j = 0; j < weights.rows; ++j) {
      const uint8_t* from = rows[j] + k;
      const int32_t* const words = weights.words + j * weights.stride;
      for (size_t i = 0; i < weights.words_per_row; ++i, from += 2 * weights.step) {
        if (words[i] == 0) continue;
        const Int weight = Vector::Set(words[i]);
        const Int left = Vector::Load(from);
        const Int right = Vector::Load(from + weights.step);
        const Int low = Vector::Low8(left, right);
        const Int high = Vector::High8(left, right);
        sums[0] = Vector::Add(sums[0], Vector::PairSum(Vector::Low8(low, zero), weight));
        sums[1] = Vector::Add(sums[1], Vector::PairSum(Vector::High8(low, zero), weight));
        sums[2] = Vector::Add(sums[2], Vector::PairSum(Vector::Low8(high, zero), weight));
        sums[3] = Vector::Add(sums[3], Vector::PairSum(Vector::High8(high, zero), weight));
      }
    }
    Finish<kInSingle>(dest + k, sums, division, count - k);
  }
}

void Direct16(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  const auto function = division.in_single ? &PairRows<true> : &PairRows<false>;
  function(dest, rows, weights, division, count);
}
constexpr ConvolutionKernels::Direct kDirect16 = &Direct16;

#ifdef QEL_LEVEL_avx512vbmi

/// Four neighbours at a time: a permute lays them side by side for the dot product.
class QuadOrder {
 public:
  /// Byte t of lane i: output `first` + i, neighbour t.
  QuadOrder(size_t first, size_t step) {
    for (size_t i = 0; i < 16; ++i) {
      for (size_t t = 0; t < 4; ++t) bytes_[4 * i + t] = static_cast<uint8_t>(first + i + t * step);
    }
  }
  Int Load() const { return _mm512_load_si512(bytes_); }

 private:
  alignas(64) uint8_t bytes_[64];
};

/// The order of sums that packing undoes: 128-bit part p of accumulator a has the outputs
/// 16 * p + 4 * a and following.
inline void InterleaveSums(Int (&sums)[4]) {
  const Int a = _mm512_shuffle_i32x4(sums[0], sums[1], 0x88);
  const Int b = _mm512_shuffle_i32x4(sums[0], sums[1], 0xDD);
  const Int c = _mm512_shuffle_i32x4(sums[2], sums[3], 0x88);
  const Int d = _mm512_shuffle_i32x4(sums[2], sums[3], 0xDD);
  sums[0] = _mm512_shuffle_i32x4(a, c, 0x88);
  sums[1] = _mm512_shuffle_i32x4(b, d, 0x88);
  sums[2] = _mm512_shuffle_i32x4(a, c, 0xDD);
  sums[3] = _mm512_shuffle_i32x4(b, d, 0xDD);
}

template <bool kInSingle>
void QuadRows(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
              const Division& division, size_t count) {
  const Int order0 = QuadOrder(0, weights.step).Load();
  const Int order1 = QuadOrder(16, weights.step).Load();
  const Int order2 = QuadOrder(32, weights.step).Load();
  for (size_t k = 0; k < count; k += kVector) {
    Int sums[4] = {Vector::Zero(), Vector::Zero(), Vector::Zero(), Vector::Zero()};
    for (size_t j = 0; j < weights.rows; ++j) {
      const uint8_t* from = rows[j] + k;
      const int32_t* const words = weights.words + j * weights.stride;
      for (size_t i = 0; i < weights.words_per_row; ++i, from += 4 * weights.step) {
        if (words[i] == 0) continue;
        const Int weight = Vector::Set(words[i]);
        const Int here = Vector::Load(from);
        const Int ahead = Vector::Load(from + 16);
        sums[0] = _mm512_dpbusd_epi32(sums[0], _mm512_permutexvar_epi8(order0, here), weight);
        sums[1] = _mm512_dpbusd_epi32(sums[1], _mm512_permutexvar_epi8(order1, here), weight);
        sums[2] = _mm512_dpbusd_epi32(sums[2], _mm512_permutexvar_epi8(order2, here), weight);
        sums[3] = _mm512_dpbusd_epi32(sums[3], _mm512_permutexvar_epi8(order2, ahead), weight);
      }
    }
    InterleaveSums(sums);
    Finish<kInSingle>(dest + k, sums, division, count - k);
  }
}

void Direct8(uint8_t* dest, const uint8_t* const* rows, const DirectWeights& weights,
             const Division& division, size_t count) {
  const auto function = division.in_single ? &QuadRows<true> : &QuadRows<false>;
  function(dest, rows, weights, division, count);
}
constexpr ConvolutionKernels::Direct kDirect8 = &Direct8;

#else

constexpr ConvolutionKernels::Direct kDirect8 = nullptr;

#endif
#endif

template <typename Lane>
constexpr SplitKernels<Lane> SplitKernelsOf() {
  return {.slide = &Slide<Lane>, .down = &Down<Lane>, .across = &Across<Lane>, .box = &Box<Lane>};
}

}  // namespace

extern const ConvolutionKernels kConvolutionKernels;
constinit const ConvolutionKernels kConvolutionKernels = {
    .split16 = SplitKernelsOf<uint16_t>(),
    .split32 = SplitKernelsOf<uint32_t>(),
    .accumulate = &Accumulate,
    .direct32 = &Direct32,
    .direct16 = kDirect16,
    .direct8 = kDirect8,
    .finish16 = &Finish16,
    .finish32 = &Finish32,
};

}  // namespace qel::QEL_LEVEL
