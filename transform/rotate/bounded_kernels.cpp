#include "transform/rotate/bounded_kernels.h"

#include <utility>

#include "simd/convert.h"
#include "transform/rotate/lanczos_pieces.h"
#include "transform/rotate/sample_offsets.h"
#include "transform/word_vectors.h"

// Weighted sums of 12 x 12 taps down columns, then across: 12 + 1 products for each column and
// channel, lanes are a pixel's taps. Weights are cubics through Chebyshev's points, one set for
// each of 32 fractions of a pixel. What sums may be off from those stated is proven
// (tap_tolerance.h); where no whole number lies that near, their bytes are right. For 12 x 12 taps
// at 8, 24 and 32 bits, until one pixel in eight is in doubt.

namespace qel::QEL_LEVEL {
namespace {

constexpr size_t kLanes = F32::kLanes;
constexpr size_t kTaps = kBoundedTaps;
/// Whole numbers from the pixel before a position to its first tap.
constexpr int kTapsBefore = 5;
/// Vectors that the weights of twelve taps fill.
constexpr size_t kWeightVectors = (kTaps + kLanes - 1) / kLanes;

void Spread(float* __restrict values, const uint8_t* __restrict bytes, size_t count,
            ByteRange& range) {
  for (size_t i = 0; i < count; ++i) values[i] = bytes[i];
  uint8_t lowest = range.lowest;
  uint8_t highest = range.highest;
  for (size_t i = 0; i < count; ++i) {
    lowest = bytes[i] < lowest ? bytes[i] : lowest;
    highest = bytes[i] > highest ? bytes[i] : highest;
  }
  range = {lowest, highest};
}

/// Where the fractions of a vector of positions lie among the pieces of weights; all exact.
struct PiecePlaces {
  explicit PiecePlaces(F32 positions) {
    const F32 fractions = positions - ConvertTo<F32>(ConvertTo<I32>(positions));
    const F32 scaled = fractions * Set<F32>(static_cast<float>(kLanczosPieces));
    const I32 pieces = ConvertTo<I32>(scaled);
    StoreU(pieces, piece);
    StoreU(scaled - ConvertTo<F32>(pieces) - Set<F32>(0.5f), t);
  }

  int32_t piece[kLanes];
  float t[kLanes];
};

/// The twelve weights of one position, side by side, then zeros.
struct TapWeights {
  QEL_SIMD_INLINE TapWeights(const PiecePlaces& places, size_t i) {
    const float* const row = kLanczosPieceTable.of[places.piece[i]][0];
    const F32 t = Set<F32>(places.t[i]);
    for (size_t v = 0; v < kWeightVectors; ++v) {
      const auto power = [=](size_t p) { return LoadU<F32>(row + p * kLanczosRow + v * kLanes); };
      of[v] = MulAdd(MulAdd(MulAdd(power(3), t, power(2)), t, power(1)), t, power(0));
    }
  }

  F32 of[kWeightVectors];
};

void Weigh(float* weights, const float* positions, size_t count) {
  for (size_t first = 0; first < count; first += kLanes) {
    const PiecePlaces places(LoadU<F32>(positions + first));
    for (size_t i = 0; i < kLanes; ++i) {
      const TapWeights of_position(places, i);
      float taps[kWeightVectors * kLanes];
      for (size_t v = 0; v < kWeightVectors; ++v) StoreU(of_position.of[v], taps + v * kLanes);
      for (size_t k = 0; k < kTaps; ++k) weights[k * kSampleChunk + first + i] = taps[k];
    }
  }
}

/// Blocks of four sums that are left of twelve pixels side by side: of one channel or four, the
/// first one; of three, the channels follow each other through all of them.
template <int kBytes>
constexpr size_t kSumBlocks = kBytes == 3 ? 3 : 1;

/// Sums twelve rows of twelve pixels.
template <int kBytes>
class TapSum {
 public:
  /// The sums down the columns of the taps from `values` on.
  QEL_SIMD_INLINE TapSum(const float* values, ptrdiff_t stride, const TapWeights& rows) {
    float weights[kWeightVectors * kLanes];
    for (size_t v = 0; v < kWeightVectors; ++v) StoreU(rows.of[v], weights + v * kLanes);
    F32 sums[kChains][kVectors] = {};
    for (size_t row = 0; row < kTaps; row += kChains) {
      for (size_t chain = 0; chain < kChains; ++chain, values += stride) {
        const F32 weight = Set<F32>(weights[row + chain]);
        for (size_t v = 0; v < kVectors; ++v) {
          F32& sum = sums[chain][v];
          sum = KeepInRegister(MulAdd(weight, LoadU<F32>(values + v * kLanes), sum));
        }
      }
    }
    for (size_t v = 0; v < kVectors; ++v) {
      down_[v] = sums[0][v];
      for (size_t chain = 1; chain < kChains; ++chain) down_[v] += sums[chain][v];
    }
  }

  /// Sums these across as far as lanes are alike: to `kSumBlocks` blocks.
  QEL_SIMD_INLINE void StoreAcross(float* sums, const TapWeights& columns) const {
    // Every third vector has its channels in the same lanes, and so has every third block.
    constexpr size_t kPeriod = kSumBlocks<kBytes>;
    F32 alike[kPeriod];
    for (F32& sum : alike) sum = Zero<F32>();
    [&]<size_t... v>(std::index_sequence<v...>) __attribute__((always_inline)) {
      ((alike[v % kPeriod] = MulAdd(WeightsOf<v>(columns), down_[v], alike[v % kPeriod])), ...);
    }
    (std::make_index_sequence<kVectors>());
    Block<F32> blocks[kPeriod];
    [&]<size_t... b>(std::index_sequence<b...>) __attribute__((always_inline)) {
      constexpr size_t kOfVector = kLanes / 4;
      ((b < kPeriod ? blocks[b % kPeriod] = ExtractBlock<b % kOfVector>(alike[b / kOfVector])
                    : blocks[b % kPeriod] += ExtractBlock<b % kOfVector>(alike[b / kOfVector])),
       ...);
    }
    (std::make_index_sequence<kPeriod * kLanes / 4>());
    for (size_t b = 0; b < kPeriod; ++b) StoreU(blocks[b], sums + 4 * b);
  }

 private:
  static constexpr size_t kVectors = (kBytes * kTaps + kLanes - 1) / kLanes;
  static_assert(kVectors * kLanes - kBytes * kTaps <= kTileMargin);
  /// Where vectors are few, every other row has sums of its own, which need not wait.
  static constexpr size_t kChains = kVectors <= 3 ? 2 : 1;

  /// What vector `v` of the columns is multiplied by.
  template <size_t v>
  QEL_SIMD_INLINE static F32 WeightsOf(const TapWeights& columns) {
    if constexpr (kBytes == 1) {
      return columns.of[v];
    } else {
      // Pixels of four taps, with three or four values, end where a vector does.
      const F32 weights = columns.of[v / kBytes];
      return Shuffled<F32>(weights, weights,
                           [](size_t i) { return (v % kBytes * kLanes + i) / kBytes; });
    }
  }

  F32 down_[kVectors];
};

/// Colors of points, and those in doubt among them.
struct Colors {
  U32 of;
  Mask<U32> in_doubt;
};

/// The colors of points from the blocks of sums of each, which may be off by `bound`.
template <int kBytes>
QEL_SIMD_INLINE Colors ColorsOfBlocks(const float* sums, F32 bound) {
  if constexpr (kBytes == 4) {
    const auto bytes = [=](F32 added) {
      const auto wholes = [=](size_t v) {
        return ConvertTo<I32>(LoadU<F32>(sums + v * kLanes) + added);
      };
      return BitCast<U32>(OrderedDemote4To8(wholes(0), wholes(1), wholes(2), wholes(3)));
    };
    const U32 colors = bytes(bound);
    return {colors, (colors ^ bytes(Zero<F32>() - bound)) != Zero<U32>()};
  } else {
    constexpr size_t kBlocks = kSumBlocks<kBytes>;
    F32 parts[4 * kBlocks];
    for (size_t b = 0; b < kBlocks; ++b) {
      I32 words[4];
      LoadWordColumns(words, [=](size_t i) { return sums + 4 * (kBlocks * i + b); });
      for (size_t k = 0; k < 4; ++k) parts[4 * b + k] = BitCast<F32>(words[k]);
    }
    F32 highest[kBytes];
    I32 differing = Zero<I32>();
    for (size_t c = 0; c < kBytes; ++c) {
      const F32 sum =
          (parts[c] + parts[c + kBytes]) + (parts[c + 2 * kBytes] + parts[c + 3 * kBytes]);
      highest[c] = sum + bound;
      differing |= BytesOf(highest[c]) ^ BytesOf(sum - bound);
    }
    return {BitCast<U32>(ColorsOf<kBytes>(highest)), BitCast<U32>(differing) != Zero<U32>()};
  }
}

template <int kBytes>
uint64_t Blend(uint32_t* colors, const SampleTile& tile, const SamplePoints& points, size_t count) {
  constexpr size_t kSums = 4 * kSumBlocks<kBytes>;
  const F32 bound = Set<F32>(tile.bound);
  const auto stride = static_cast<ptrdiff_t>(tile.stride);
  uint64_t doubts = 0;
  for (size_t first = 0; first < count; first += kLanes) {
    const F32 x = LoadU<F32>(points.x + first);
    const F32 y = LoadU<F32>(points.y + first);
    const PiecePlaces of_columns(x);
    const PiecePlaces of_rows(y);
    const I32 columns = ConvertTo<I32>(x) - Set<I32>(kTapsBefore + tile.column);
    const I32 rows = ConvertTo<I32>(y) - Set<I32>(kTapsBefore + tile.row);
    const LanesOf offsets(columns * Set<I32>(kBytes) + rows * Set<I32>(tile.stride));
    alignas(64) float sums[kSums * kLanes];
    for (size_t i = 0; i < kLanes; ++i) {
      const TapSum<kBytes> sum(tile.values + offsets.at[i], stride, TapWeights(of_rows, i));
      sum.StoreAcross(sums + kSums * i, TapWeights(of_columns, i));
    }
    const Colors of_points = ColorsOfBlocks<kBytes>(sums, bound);
    StoreU(of_points.of, colors + first);
    doubts |= BitsFromMask(of_points.in_doubt) << first;
  }
  return count < kSampleChunk ? doubts & ((uint64_t{1} << count) - 1) : doubts;
}

}  // namespace

extern const BoundedKernels kBoundedKernels;
constinit const BoundedKernels kBoundedKernels = {
    .spread = &Spread, .weigh = &Weigh, .blend = {&Blend<1>, &Blend<3>, &Blend<4>}};

}  // namespace qel::QEL_LEVEL
