// Every function of the vocabulary beside what it means, lane by lane; compiled once per level.

#include <cmath>

#include "all_simd_headers.h"
#include "tests/simd/primitives.h"

namespace qel::QEL_LEVEL {
namespace {

constexpr size_t kVectors = 4;
constexpr size_t kBlockBytes = 16;

/// Lanes from drawn bytes: as they are, or floats with some that are not numbers or do not fit.
template <typename V>
struct Drawn {
  explicit Drawn(const uint8_t* in) {
    __builtin_memcpy(at, in, sizeof(at));
    if constexpr (std::is_floating_point_v<typename V::Lane>) {
      constexpr float kSpecial[] = {-0.0f, 1e30f,    -3e9f,         2147483648.0f,
                                    NAN,   INFINITY, -2147483648.0f};
      for (size_t i = 0; i < kVectors * V::kLanes; ++i) {
        int32_t whole;
        __builtin_memcpy(&whole, in + 4 * (i % (V::kBytes / 4)) + i / (V::kBytes / 4), 4);
        at[i] = static_cast<typename V::Lane>(in[i] < 7 ? kSpecial[in[i]]
                                                        : static_cast<float>(whole) / 4096);
      }
    }
  }
  typename V::Lane at[kVectors * V::kLanes];
};
template <typename R>
size_t Write(const R& lanes, uint8_t* out) {
  __builtin_memcpy(out, &lanes, sizeof(lanes));
  if constexpr (std::is_floating_point_v<typename R::Lane>) {
    // Nothing is said about the bits of what is not a number.
    typename R::Lane lane;
    for (size_t i = 0; i < sizeof(lanes); i += sizeof(lane)) {
      __builtin_memcpy(&lane, out + i, sizeof(lane));
      if (lane != lane) __builtin_memset(out + i, 0xFF, sizeof(lane));
    }
  }
  return sizeof(lanes);
}
template <typename R>
struct Plain {
  using Lane = typename R::Lane;
  Lane at[R::kLanes];
};

/// `expression` of vectors a, b, c, d of type V, beside `lane` for lane i of arrays a, b, c, d; n
/// is the number of lanes of V and m that of a block. Where the lane chooses between the arrays it
/// does so by an index into `at`, all four of them: GCC 12 misreads a choice of pointers here when
/// it instruments loops.
#define CASE(R, V, expression, lane)                                                           \
  {                                                                                            \
#R " " #V ": " #expression,                                                                  \
   [](const uint8_t* in, uint8_t* out) {                                                        \
     const Drawn<V> drawn(in);                                                                  \
     constexpr size_t n = V::kLanes;                                                            \
     const V a = LoadU<V>(drawn.at), b = LoadU<V>(drawn.at + n);                                \
     [[maybe_unused]] const V c = LoadU<V>(drawn.at + 2 * n), d = LoadU<V>(drawn.at + 3 * n);   \
     (void)a, (void)b;                                                                          \
     const R result = expression;                                                               \
     return Write(result, out);                                                                 \
   },                                                                                           \
   [](const uint8_t* in, uint8_t* out) {                                                        \
     const Drawn<V> drawn(in);                                                                  \
     [[maybe_unused]] constexpr size_t n = V::kLanes, m = kBlockBytes / sizeof(V::Lane);        \
     const V::Lane *at = drawn.at, *a = at, *b = a + n, *c = b + n, *d = c + n;                 \
     (void)at, (void)a, (void)b, (void)c, (void)d;                                                \
     Plain<R> result;                                                                           \
     for (size_t i = 0; i < R::kLanes; ++i) result.at[i] = static_cast<R::Lane>(lane);          \
     return Write(result, out);                                                                 \
   } \
  }
#define TRUTHS(V, comparison, lane) CASE(V, V, IfThenElse(comparison, c, d), (lane) ? c[i] : d[i])
#define WHOLE_LANES(V)                                                                  \
  CASE(V, V, a + b, a[i] + uint64_t(b[i])), CASE(V, V, a - b, a[i] - uint64_t(b[i])),   \
      CASE(V, V, a* b, uint64_t(a[i]) * uint64_t(b[i])), CASE(V, V, a& b, a[i] & b[i]), \
      CASE(V, V, (a | b) ^ ~c, (a[i] | b[i]) ^ ~c[i]),                                  \
      CASE(V, V, ShiftLeft<3>(a), uint64_t(a[i]) << 3), COMPARED(V)
#define SHIFTED(V)                                                                      \
  CASE(V, V, ShiftRight<5>(a), a[i] >> 5), CASE(V, V, ShiftRightSame(a, 9), a[i] >> 9), \
      INTERLEAVED(V)
#define INTERLEAVED(V)                                                        \
  CASE(V, V, InterleaveLower(a, b), at[(i % 2) * n + i - i % m + i % m / 2]), \
      CASE(V, V, InterleaveUpper(a, b), at[(i % 2) * n + i - i % m + m / 2 + i % m / 2])
#define COMPARED(V)                                                                                \
  TRUTHS(V, a == b, a[i] == b[i]), TRUTHS(V, a != b, a[i] != b[i]), TRUTHS(V, a < b, a[i] < b[i]), \
      TRUTHS(V, a <= b, a[i] <= b[i]), TRUTHS(V, a > b, a[i] > b[i]),                              \
      TRUTHS(V, a >= b, a[i] >= b[i]),                                                             \
      TRUTHS(V, ((a < b) & (b < c)) | ~(a != d), (a[i] < b[i] && b[i] < c[i]) || a[i] == d[i]),    \
      TRUTHS(V, (a < b) ^ (c < d), (a[i] < b[i]) != (c[i] < d[i])),                                \
      CASE(V, V, Min(a, b), a[i] < b[i] ? a[i] : b[i]),                                            \
      CASE(V, V, Max(a, b), a[i] > b[i] ? a[i] : b[i]),                                            \
      CASE(V, V, a + Iota<V>(3), a[i] + V::Lane(i + 3)),                                           \
      CASE(V, V, a + Set<V>(a.raw[1]), a[i] + a[1])
#define FLOATS(V)                                                                                  \
  CASE(V, V, a + b, a[i] + b[i]), CASE(V, V, a - b, a[i] - b[i]), CASE(V, V, a* b, a[i] * b[i]),   \
      CASE(V, V, a / b, a[i] / b[i]), CASE(V, V, Abs(a), a[i] < 0 || 1 / a[i] < 0 ? -a[i] : a[i]), \
      CASE(V, V, Sqrt(a), static_cast<V::Lane>(__builtin_sqrt(a[i]))),                             \
      CASE(V, V, MulAdd(a, b, c), Fused(a[i], b[i], c[i])), COMPARED(V)

template <typename Lane>
Lane Clamped(int64_t value) {
  constexpr int64_t kLow = std::is_signed_v<Lane> ? -(int64_t{1} << (8 * sizeof(Lane) - 1)) : 0;
  constexpr int64_t kHigh = kLow + (int64_t{1} << 8 * sizeof(Lane)) - 1;
  return static_cast<Lane>(value < kLow ? kLow : value > kHigh ? kHigh : value);
}
float Fused(float a, float b, float c) {
  return kHasFusedMulAdd ? __builtin_fmaf(a, b, c) : a * b + c;
}
double Fused(double a, double b, double c) {
  return kHasFusedMulAdd ? __builtin_fma(a, b, c) : a * b + c;
}
int32_t Truncated(double value) {
  return value > -2147483649.0 && value < 2147483648.0 ? static_cast<int32_t>(value) : INT32_MIN;
}

template <typename Value>
uint64_t SumOf(size_t count, Value value) {
  uint64_t sum = 0;
  for (size_t k = 0; k < count; ++k) sum += value(k);
  return sum;
}
template <typename Test>
uint64_t BitsWhere(size_t count, Test test) {
  return SumOf(count, [&](size_t k) { return uint64_t{test(k)} << k; });
}

template <size_t kChannels>
U8 Channel(const Drawn<U8>* from, size_t channel) {
  U8 channels[kChannels];
  LoadInterleaved<kChannels>(reinterpret_cast<const uint8_t*>(from), channels);
  return channels[channel];
}
template <size_t kChannels>
U8 PartOf(U8 a, U8 b, U8 c, U8 d, size_t part) {
  const U8 channels[] = {a, b, c, d};
  alignas(64) uint8_t together[kChannels * kVectorBytes];
  StoreInterleaved<kChannels>(channels, together);
  return LoadU<U8>(together + part * kVectorBytes);
}
U8 PartOfRepeated(U8 v, size_t part) {
  alignas(64) uint8_t repeated[3 * kVectorBytes];
  StoreRepeated3(v, repeated);
  return LoadU<U8>(repeated + part * kVectorBytes);
}
using QuarterOfBytes = Vec<uint8_t, kVectorBytes / 4>;
constexpr auto kTable = MakePattern<256>([](size_t i) { return i * i / 3; });

const Primitive kAll[] = {
    WHOLE_LANES(U8),
    WHOLE_LANES(I8),
    WHOLE_LANES(U16),
    WHOLE_LANES(I16),
    WHOLE_LANES(U32),
    WHOLE_LANES(I32),
    COMPARED(U64),
    FLOATS(F32),
    FLOATS(F64),
    SHIFTED(U16),
    SHIFTED(I16),
    SHIFTED(U32),
    SHIFTED(I32),
    INTERLEAVED(U8),
    INTERLEAVED(U64),

    CASE(U8, U8, SaturatedAdd(a, b), Clamped<uint8_t>(a[i] + b[i])),
    CASE(U8, U8, SaturatedSub(a, b), Clamped<uint8_t>(a[i] - b[i])),
    CASE(U16, U16, SaturatedAdd(a, b), Clamped<uint16_t>(a[i] + b[i])),
    CASE(U16, U16, SaturatedSub(a, b), Clamped<uint16_t>(a[i] - b[i])),
    CASE(I16, I16, SaturatedAdd(a, b), Clamped<int16_t>(a[i] + b[i])),
    CASE(I16, I16, SaturatedSub(a, b), Clamped<int16_t>(a[i] - b[i])),
    CASE(U8, U8, AverageRound(a, b), (a[i] + b[i] + 1) / 2),
    CASE(U16, U16, MulHigh(a, b), uint32_t{a[i]} * b[i] >> 16),
    CASE(I16, I16, MulHigh(a, b), a[i] * b[i] >> 16),
    CASE(I16, I16, Abs(a), a[i] < 0 ? -a[i] : a[i]),
    CASE(U8, U8, IfNegativeThenElse(a, b, c), a[i] >= 128 ? b[i] : c[i]),
    CASE(I16, U8, SatWidenMulPairwiseAdd(a, BitCast<I8>(b)),
         Clamped<int16_t>(a[2 * i] * int8_t(b[2 * i]) + a[2 * i + 1] * int8_t(b[2 * i + 1]))),
    CASE(I32, I16, WidenMulPairwiseAdd(a, b),
         uint32_t(a[2 * i] * b[2 * i]) + uint32_t(a[2 * i + 1] * b[2 * i + 1])),
    CASE(U64, U8, SumsOf8(a), SumOf(8, [&](size_t k) { return uint64_t{a[8 * i + k]}; })),

    // Masks.
    CASE(U8, U8, MaskedLoad<U8>(a < b, &drawn), a[i] < b[i] ? a[i] : 0),
    CASE(U64, U8, Set<U64>(BitsEqual(a& Set<U8>(3), b& Set<U8>(3))),
         BitsWhere(n, [&](size_t k) { return a[k] % 4 == b[k] % 4; })),
    CASE(U64, U8, Set<U64>(BitsFromMask(a < b)),
         BitsWhere(n, [&](size_t k) { return a[k] < b[k]; })),
    CASE(U64, I16, Set<U64>(BitsFromMask(a < b) << 8),
         BitsWhere(n, [&](size_t k) { return a[k] < b[k]; }) << 8),
    CASE(U64, F64, Set<U64>(BitsFromMask(a < b) << 1 | (AllFalse(a < b) ? 1 : 0)),
         BitsWhere(n, [&](size_t k) { return a[k] < b[k]; }) << 1 |
             (SumOf(n, [&](size_t k) { return uint64_t{a[k] < b[k]}; }) == 0)),
    CASE(U64, I32, Set<U64>(BitsFromMask(a < b)),
         BitsWhere(n, [&](size_t k) { return a[k] < b[k]; })),
    CASE(I16, I16, VecFromMask(a < b), a[i] < b[i] ? -1 : 0),
    CASE(U8, U8, IncrementWhere(a < b, c), c[i] + (a[i] < b[i])),
    CASE(U8, U8, DecrementWhere(a < b, c), c[i] - (a[i] < b[i])),
    CASE(I16, U8, ConvertTo<I16>(LowerHalf(BitCast<I8>(a))), int8_t(a[i])),
    CASE(U8, U8, ShiftedWindow<5>(a, b), a[i + 5]),
    CASE(U8, U8, WithFourthBytes(a, b), i % 4 == 3 ? b[i] : a[i]),
    CASE(U8, I32, BitCast<U8>(OrderedDemote4To8(a, b, c, d)), Clamped<uint8_t>(a[i])),
    CASE(U8, U8, LowerThenUpperHalves(a),
         a[i < n / 2 ? i / 8 * 16 + i % 8 : (i - n / 2) / 8 * 16 + 8 + i % 8]),
    CASE(I32, I32, MulTruncated(a, 1.0e-3), Truncated(a[i] * 1.0e-3)),
    CASE(I32, I32, MulTruncated(a, 1.7f), Truncated(static_cast<float>(a[i]) * 1.7f)),
    CASE(U8, U8, IfThenElse(FirstN<U8>(a.raw[0] % (n + 2)), a, b),
         i < a[0] % (n + 2) ? a[i] : b[i]),
    CASE(U8, U8, (IfThenElse(MaskFromBits<U8, 0x8421'0F35'9669'1248u>(), a, b)),
         (0x8421'0F35'9669'1248u >> i & 1) != 0 ? a[i] : b[i]),
    CASE(Half<I32>, F64,
         IfThenElse(RebindMask<Half<I32>>(a < b), ConvertTo<Half<I32>>(c), Zero<Half<I32>>()),
         a[i] < b[i] ? Truncated(c[i]) : 0),

    // Conversions.
    CASE(I32, F32, ConvertTo<I32>(a), Truncated(static_cast<double>(a[i]))),
    CASE(F32, I32, ConvertTo<F32>(a), static_cast<float>(a[i])),
    CASE(Half<I32>, F64, ConvertTo<Half<I32>>(a), Truncated(a[i])),
    CASE(F64, I32, ConvertTo<F64>(UpperHalf(a)), a[n / 2 + i]),
    CASE(F64, F32, ConvertTo<F64>(Sqrt(LowerHalf(a))), __builtin_sqrtf(a[i])),
    CASE(U16, U16, Combine(LowerHalf(a), UpperHalf(b)), i < n / 2 ? b[n / 2 + i] : a[i - n / 2]),
    CASE(U8, I16, ReorderDemote2To<U8>(a, b),
         Clamped<uint8_t>(at[(i % 16 < 8 ? 0 : n) + i / 16 * 8 + i % 8])),
    CASE(I8, I16, ReorderDemote2To<I8>(a, b),
         Clamped<int8_t>(at[(i % 16 < 8 ? 0 : n) + i / 16 * 8 + i % 8])),
    CASE(I16, I32, ReorderDemote2To<I16>(a, b),
         Clamped<int16_t>(at[(i % 8 < 4 ? 0 : n) + i / 8 * 4 + i % 4])),

    // Lanes moved.
    CASE(U8, U8, TableLookupBytesOr0(a, b), b[i] < 128 ? a[i - i % 16 + b[i] % 16] : 0),
    CASE(U8, U8, CombineShiftRightBytes<5>(a, b), i % 16 < 11 ? b[i + 5] : a[i - 11]),
    CASE(U8, U8, CombineShiftRightBytes<16>(a, b), a[i]),
    CASE(U8, U8, TableLookupLanes(a, b), a[b[i] % n]),
    CASE(U8, U8, TwoTablesLookupLanes(a, b, c), at[c[i] / n % 2 * n + c[i] % n]),
    CASE(U32, U32, TableLookupLanes(a, b), a[b[i] % n]),
    CASE(U8, U8, LoadDup128<U8>(&a), a[i % 16]),
    CASE(U8, U8, LoadBlocks<U8>(reinterpret_cast<const uint8_t*>(&drawn), 32),
         a[i / 16 * 32 + i % 16]),
    CASE(U8, U8, NextBlocks(b, a), a[i + 16]),
    CASE(U8, U8, LanesFrom<U8>([&](size_t k) { return drawn.at[3 * k]; }), a[3 * i]),
    CASE(Block<U8>, U8, ExtractBlock<U8::kBytes / 16 - 1>(a), a[n - 16 + i]),
    CASE(QuarterOfBytes, U32, ConvertTo<QuarterOfBytes>(a), a[i]),

    // What stands on these.
    CASE(U8, U8, TableLookup(kTable.bytes)(a), a[i] * a[i] / 3),
    CASE(U8, U8, Channel<3>(&drawn, 0), a[3 * i]),
    CASE(U8, U8, Channel<3>(&drawn, 1), a[3 * i + 1]),
    CASE(U8, U8, Channel<3>(&drawn, 2), a[3 * i + 2]),
    CASE(U8, U8, Channel<4>(&drawn, 0), a[4 * i]),
    CASE(U8, U8, Channel<4>(&drawn, 1), a[4 * i + 1]),
    CASE(U8, U8, Channel<4>(&drawn, 2), a[4 * i + 2]),
    CASE(U8, U8, Channel<4>(&drawn, 3), a[4 * i + 3]),
    CASE(U8, U8, PartOf<3>(a, b, c, d, 0), a[i % 3 * n + i / 3]),
    CASE(U8, U8, PartOf<3>(a, b, c, d, 1), a[(n + i) % 3 * n + (n + i) / 3]),
    CASE(U8, U8, PartOf<3>(a, b, c, d, 2), a[(2 * n + i) % 3 * n + (2 * n + i) / 3]),
    CASE(U8, U8, PartOf<4>(a, b, c, d, 0), a[i % 4 * n + i / 4]),
    CASE(U8, U8, PartOf<4>(a, b, c, d, 1), a[(n + i) % 4 * n + (n + i) / 4]),
    CASE(U8, U8, PartOf<4>(a, b, c, d, 2), a[(2 * n + i) % 4 * n + (2 * n + i) / 4]),
    CASE(U8, U8, PartOf<4>(a, b, c, d, 3), a[(3 * n + i) % 4 * n + (3 * n + i) / 4]),
    CASE(U8, U8, PartOfRepeated(a, 0), a[i / 3]),
    CASE(U8, U8, PartOfRepeated(a, 1), a[(n + i) / 3]),
    CASE(U8, U8, PartOfRepeated(a, 2), a[(2 * n + i) / 3]),
};

void CopyMasked(const uint8_t* from, uint8_t* to, size_t count) {
  const Mask<U8> first = FirstN<U8>(count);
  BlendedStore(MaskedLoad<U8>(first, from), first, to);
}

}  // namespace

extern const Primitives kPrimitives;
constinit const Primitives kPrimitives = {
    .vector_bytes = kVectorBytes,
    .all = kAll,
    .count = sizeof(kAll) / sizeof(kAll[0]),
    .copy_masked = &CopyMasked,
};

}  // namespace qel::QEL_LEVEL
