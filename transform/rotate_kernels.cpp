#include "transform/rotate_kernels.h"

#include "image/kernel_polynomials.h"
#include "transform/word_pixels.h"

#if defined(QEL_LEVEL_avx512) || defined(QEL_LEVEL_avx512vbmi)
#define QEL_HAS_AVX512 1
#include <immintrin.h>
#else
#define QEL_HAS_AVX512 0
#endif

namespace qel::QEL_LEVEL {
namespace {

// Every position that comes here lies inside the source, so that plain conversions truncate.

constexpr size_t RoundUp(size_t count) {
  return (count + kSampleGroup - 1) / kSampleGroup * kSampleGroup;
}

void Positions(SamplePoints& points, const SampleLine& on, int32_t first, size_t count) {
  const SampleLine line = on;
  for (size_t i = 0; i < count; ++i) {
    const float x = line.start_x + static_cast<float>(first + static_cast<int32_t>(i));
    points.x[i] = line.cosine * x + line.sine_y + line.shift_x;
    points.y[i] = line.cosine_y - line.sine * x + line.shift_y;
  }
  for (size_t i = count; i < RoundUp(count); ++i) {
    points.x[i] = points.x[count - 1];
    points.y[i] = points.y[count - 1];
  }
}

/// Offsets of the pixels at the truncated positions, moved by `move` pixels to the left and up.
template <int kBytes>
void PixelOffsets(int32_t* __restrict offsets, const SampleSource& source,
                  const SamplePoints& points, size_t count, float offset, int32_t move) {
  const int32_t stride = source.stride;
  for (size_t i = 0; i < count; ++i) {
    const int32_t column = static_cast<int32_t>(points.x[i] + offset) - move;
    const int32_t row = static_cast<int32_t>(points.y[i] + offset) - move;
    offsets[i] = row * stride + column * kBytes;
  }
}

template <int kBytes>
void Pick(uint32_t* colours, const SampleSource& source, const SamplePoints& points, size_t count,
          float offset, uint32_t keep, uint32_t add) {
  int32_t offsets[kSampleChunk];
  PixelOffsets<kBytes>(offsets, source, points, count, offset, 0);
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const pixel = source.bits + offsets[i];
    uint32_t colour;
    if constexpr (kBytes == 1) {
      colour = *pixel * 0x010101u;
    } else {
      __builtin_memcpy(&colour, pixel, 4);
    }
    colours[i] = (colour & keep) | add;
  }
}

// As long as the level's registers; every lane rounds as a single number would.
#if defined(QEL_LEVEL_sse2)
constexpr size_t kLanes = 4;
#elif defined(QEL_LEVEL_avx2)
constexpr size_t kLanes = 8;
#else
constexpr size_t kLanes = 16;
#endif
typedef float Floats __attribute__((vector_size(4 * kLanes)));
typedef int32_t Ints __attribute__((vector_size(4 * kLanes)));
constexpr size_t kPositions = kLanes / 4;

/// Each of the first `kPositions` numbers four times.
inline Floats FourOfEach(const float* numbers) {
#if QEL_HAS_AVX512
  const __m512i order = _mm512_set_epi32(3, 3, 3, 3, 2, 2, 2, 2, 1, 1, 1, 1, 0, 0, 0, 0);
  return _mm512_permutexvar_ps(order, _mm512_castps128_ps512(_mm_loadu_ps(numbers)));
#else
  Floats repeated;
  for (size_t lane = 0; lane < kLanes; ++lane) repeated[lane] = numbers[lane / 4];
  return repeated;
#endif
}

/// Four weights for each position.
template <typename Kernel>
void Weights(float* weights, const float* positions, size_t count) {
  Ints taps;
  for (size_t lane = 0; lane < kLanes; ++lane) taps[lane] = static_cast<int32_t>(lane % 4) - 1;
  for (size_t i = 0; i < RoundUp(count); i += kPositions) {
    const Floats position = FourOfEach(positions + i);
    const Ints tap = __builtin_convertvector(position, Ints) + taps;
    const Floats weight = Kernel::Weight(__builtin_convertvector(tap, Floats) - position);
    __builtin_memcpy(weights + 4 * i, &weight, sizeof(weight));
  }
}

#if QEL_HAS_AVX512

/// 16 bytes from each of four addresses.
inline __m512i LoadQuads(const uint8_t* const (&from)[4], int64_t offset) {
  const auto load = [&](int k) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from[k] + offset));
  };
  __m512i quads = _mm512_castsi128_si512(load(0));
  quads = _mm512_inserti32x4(quads, load(1), 1);
  quads = _mm512_inserti32x4(quads, load(2), 2);
  return _mm512_inserti32x4(quads, load(3), 3);
}
/// The same with 4 bytes from each, the rest being 0.
inline __m512i LoadWords(const uint8_t* const (&from)[4], int64_t offset) {
  const auto load = [&](int k) {
    int32_t word;
    __builtin_memcpy(&word, from[k] + offset, 4);
    return _mm_cvtsi32_si128(word);
  };
  __m512i words = _mm512_zextsi128_si512(load(0));
  words = _mm512_inserti32x4(words, load(1), 1);
  words = _mm512_inserti32x4(words, load(2), 2);
  return _mm512_inserti32x4(words, load(3), 3);
}
template <int kBytes>
inline __m512i LoadTaps(const uint8_t* const (&from)[4], int64_t offset) {
  if constexpr (kBytes == 1) return LoadWords(from, offset);
  return LoadQuads(from, offset);
}

/// Shuffle that spreads the bytes of tap `tap` over the words of each pixel, the rest being 0.
template <int kBytes>
inline __m512i SpreadTap(int tap) {
  alignas(64) uint8_t order[64];
  for (int j = 0; j < 64; ++j) {
    order[j] =
        static_cast<uint8_t>(j % 4 == 0 && j / 4 % 4 < kBytes ? tap * kBytes + j / 4 % 4 : 0x80);
  }
  return _mm512_load_si512(order);
}

/// Copies number `kAt` of each pixel's four to all of them.
template <int kAt>
inline __m512 Repeat(__m512 values) {
  return _mm512_permute_ps(values, kAt * 0x55);
}

/// Four pixels side by side, their channels in the four words of each part.
template <int kBytes, int kTaps>
struct PixelQuad {
  static constexpr int kGroups = kTaps / 4;

  const uint8_t* from[4];
  __m512 wx[kGroups];
  __m512 wy[kGroups];
  __m512 sum = _mm512_setzero_ps();

  PixelQuad(const SampleSource& source, const int32_t* offsets, const SampleWeights& weights,
            size_t first) {
    for (size_t k = 0; k < 4; ++k) from[k] = source.bits + offsets[first + k];
    for (int g = 0; g < kGroups; ++g) {
      wx[g] = LoadWeights(weights.x + first * kTaps + 4 * g);
      wy[g] = LoadWeights(weights.y + first * kTaps + 4 * g);
    }
  }

  static __m512 LoadWeights(const float* weights) {
    __m512 quad = _mm512_castps128_ps512(_mm_loadu_ps(weights));
    quad = _mm512_insertf32x4(quad, _mm_loadu_ps(weights + kTaps), 1);
    quad = _mm512_insertf32x4(quad, _mm_loadu_ps(weights + 2 * kTaps), 2);
    return _mm512_insertf32x4(quad, _mm_loadu_ps(weights + 3 * kTaps), 3);
  }

  template <int kAt>
  void AddTap(__m512i taps, __m512 weights, __m512i spread) {
    const __m512 channels = _mm512_cvtepi32_ps(_mm512_shuffle_epi8(taps, spread));
    sum = _mm512_add_ps(sum, _mm512_mul_ps(Repeat<kAt>(weights), channels));
  }

  /// Adds one row of taps with weight `row_weight`.
  void AddRow(int64_t offset, __m512 row_weight, const __m512i (&spread)[4]) {
    for (int g = 0; g < kGroups; ++g) {
      const __m512i taps = LoadTaps<kBytes>(from, offset + 4 * g * kBytes);
      const __m512 weights = _mm512_mul_ps(wx[g], row_weight);
      AddTap<0>(taps, weights, spread[0]);
      AddTap<1>(taps, weights, spread[1]);
      AddTap<2>(taps, weights, spread[2]);
      AddTap<3>(taps, weights, spread[3]);
    }
  }

  void Store(uint32_t* colours) const {
    const __m512 clamped =
        _mm512_max_ps(_mm512_min_ps(sum, _mm512_set1_ps(255.0f)), _mm512_setzero_ps());
    const __m128i packed = _mm512_cvtepi32_epi8(_mm512_cvttps_epi32(clamped));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(colours), packed);
  }
};

template <int kBytes, int kTaps>
void Blend(uint32_t* colours, const SampleSource& source, const SamplePoints& points,
           const SampleWeights& weights, size_t count) {
  int32_t offsets[kSampleChunk];
  const size_t rounded = RoundUp(count);
  PixelOffsets<kBytes>(offsets, source, points, rounded, 0.0f, kTaps / 2 - 1);
  const __m512i spread[4] = {SpreadTap<kBytes>(0), SpreadTap<kBytes>(1), SpreadTap<kBytes>(2),
                             SpreadTap<kBytes>(3)};
  // Two groups of four pixels at a time: the additions of one fill the waits of the other.
  for (size_t i = 0; i < rounded; i += 8) {
    PixelQuad<kBytes, kTaps> a(source, offsets, weights, i);
    PixelQuad<kBytes, kTaps> b(source, offsets, weights, i + 4);
    for (int g = 0; g < kTaps / 4; ++g) {
      const int64_t row = int64_t{4} * g * source.stride;
      a.AddRow(row, Repeat<0>(a.wy[g]), spread);
      b.AddRow(row, Repeat<0>(b.wy[g]), spread);
      a.AddRow(row + source.stride, Repeat<1>(a.wy[g]), spread);
      b.AddRow(row + source.stride, Repeat<1>(b.wy[g]), spread);
      a.AddRow(row + int64_t{2} * source.stride, Repeat<2>(a.wy[g]), spread);
      b.AddRow(row + int64_t{2} * source.stride, Repeat<2>(b.wy[g]), spread);
      a.AddRow(row + int64_t{3} * source.stride, Repeat<3>(a.wy[g]), spread);
      b.AddRow(row + int64_t{3} * source.stride, Repeat<3>(b.wy[g]), spread);
    }
    a.Store(colours + i);
    b.Store(colours + i + 4);
  }
  if constexpr (kBytes == 1) {
    for (size_t i = 0; i < count; ++i) colours[i] *= 0x010101u;
  }
}

#else

/// A sum as a byte: clamped, then truncated.
inline uint32_t ByteOf(float sum) {
  return sum > 255.0f ? 255u : sum > 0.0f ? static_cast<uint32_t>(static_cast<int32_t>(sum)) : 0u;
}

template <int kBytes, int kTaps>
void Blend(uint32_t* colours, const SampleSource& source, const SamplePoints& points,
           const SampleWeights& weights, size_t count) {
  int32_t offsets[kSampleChunk];
  PixelOffsets<kBytes>(offsets, source, points, count, 0.0f, kTaps / 2 - 1);
  for (size_t p = 0; p < count; ++p) {
    const float* const wx = weights.x + p * kTaps;
    const float* const wy = weights.y + p * kTaps;
    float sums[kBytes] = {};
    for (int j = 0; j < kTaps; ++j) {
      const uint8_t* const row = source.bits + offsets[p] + int64_t{j} * source.stride;
      for (int i = 0; i < kTaps; ++i) {
        const float weight = wx[i] * wy[j];
        for (int c = 0; c < kBytes; ++c) {
          sums[c] += weight * static_cast<float>(row[i * kBytes + c]);
        }
      }
    }
    uint32_t colour = 0;
    for (int c = 0; c < kBytes; ++c) colour |= ByteOf(sums[c]) << (8 * c);
    colours[p] = kBytes == 1 ? colour * 0x010101u : colour;
  }
}

#endif

void Store1(uint8_t* __restrict dest, const uint32_t* __restrict colours, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[i] = static_cast<uint8_t>(colours[i] >> 16);
}

#ifdef QEL_LEVEL_avx512vbmi

void Store3(uint8_t* dest, const uint32_t* colours, size_t count) {
  size_t i = 0;
  for (; i + 16 <= count; i += 16) {
    StoreWords<3>(dest + 3 * i, _mm512_loadu_si512(colours + i));
  }
  if (i == count) return;
  const auto rest = static_cast<__mmask16>((1u << (count - i)) - 1);
  StoreWords<3>(dest + 3 * i, _mm512_maskz_loadu_epi32(rest, colours + i), count - i);
}

#else

void Store3(uint8_t* dest, const uint32_t* colours, size_t count) {
  size_t i = 0;
  // Whole words overlap the next pixel, which is written after them.
  for (; i + 1 < count; ++i) __builtin_memcpy(dest + 3 * i, colours + i, 4);
  if (i < count) __builtin_memcpy(dest + 3 * i, colours + i, 3);
}

#endif

void Store4(uint8_t* dest, const uint32_t* colours, size_t count) {
  __builtin_memcpy(dest, colours, 4 * count);
}

}  // namespace

extern const RotateKernels kRotateKernels;
constinit const RotateKernels kRotateKernels = {
    .positions = &Positions,
    .pick1 = &Pick<1>,
    .pick3 = &Pick<3>,
    .pick4 = &Pick<4>,
    .weights = {nullptr, nullptr, &Weights<polynomials::CubicBSpline>,
                &Weights<polynomials::CubicConvolution>,
                &Weights<polynomials::CatmullRomOfDistance>, nullptr, &Weights<polynomials::Box>,
                &Weights<polynomials::Hermite>, &Weights<polynomials::DampedHermite>, nullptr,
                nullptr, nullptr, nullptr, &Weights<polynomials::QuadraticBSpline>,
                &Weights<polynomials::Mitchell>, &Weights<polynomials::CatmullRomOfOffset>},
    .blend4 = {&Blend<1, 4>, &Blend<3, 4>, &Blend<4, 4>},
    .blend12 = {&Blend<1, 12>, &Blend<3, 12>, &Blend<4, 12>},
    .store1 = &Store1,
    .store3 = &Store3,
    .store4 = &Store4,
};

}  // namespace qel::QEL_LEVEL
