#include "transform/resample/doubling_kernels.h"

#include <utility>

#include "simd/convert.h"
#include "transform/word_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

template <size_t kChannels>
void SpreadPixels(float* __restrict values, size_t stride, const uint8_t* __restrict pixels,
                  size_t count) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < kChannels; ++c) values[c * stride + i] = pixels[kChannels * i + c];
  }
}

void Spread(float* values, size_t stride, const uint8_t* pixels, size_t count, size_t channels) {
  if (channels == 1) return SpreadPixels<1>(values, stride, pixels, count);
  if (channels == 3) return SpreadPixels<3>(values, stride, pixels, count);
  return SpreadPixels<4>(values, stride, pixels, count);
}

/// Vectors of columns that are summed together: the additions of one fill the waits of the other.
constexpr size_t kVectors = 2;
constexpr size_t kColumnsAtOnce = kVectors * F32::kLanes;
static_assert(kDoubledUnit % kColumnsAtOnce == 0);

/// The sums of some even or odd columns of a row.
using Sums = F32[kVectors];

/// Bytes of even and odd columns by turns. Sums of taps are far from leaving the range of integers,
/// and narrowing clamps; what is not a number becomes the lowest one.
QEL_SIMD_INLINE U8 BytesByTurns(const Sums& even, const Sums& odd) {
  const auto bytes = [](const Sums& sums) {
    const I16 words = ReorderDemote2To<I16>(ConvertTo<I32>(sums[0]), ConvertTo<I32>(sums[1]));
    return ReorderDemote2To<U8>(words, words);
  };
  return LowerThenUpperHalves(InterleaveLower(bytes(even), bytes(odd)));
}

/// A vector of neighbouring even or odd columns of a row whose bytes are in doubt.
struct Doubt {
  const float* values;  ///< of the first tap
  const TapProducts* products;
  uint8_t* bytes;  ///< every second one
};

/// Doubts wait until there are as many as are summed together: the additions of one fill the waits
/// of the others.
class Doubts {
 public:
  void Add(const Doubt& doubt) {
    doubts_[count_++] = doubt;
    if (count_ == kTogether) Settle();
  }
  void Settle() {
    if (count_ == 0) return;
    for (size_t d = count_; d < kTogether; ++d) doubts_[d] = doubts_[0];
    F32 sums[kTogether] = {};
    for (size_t row = 0; row < kBoundedTaps; ++row) {
      for (size_t column = 0; column < kBoundedTaps; ++column) {
        for (size_t d = 0; d < kTogether; ++d) {
          sums[d] += Set<F32>((*doubts_[d].products)[row][column]) *
                     LoadU<F32>(doubts_[d].values + row * kDoubledValues + column);
        }
      }
    }
    for (size_t d = 0; d < kTogether; ++d) {
      const LanesOf bytes(BytesOf(sums[d]));
      for (size_t i = 0; i < I32::kLanes; ++i) {
        doubts_[d].bytes[2 * i] = static_cast<uint8_t>(bytes.at[i]);
      }
    }
    count_ = 0;
  }

 private:
  static constexpr size_t kTogether = 4;
  Doubt doubts_[kTogether];
  size_t count_ = 0;
};

/// Doubles a tile by sums down columns, then across rows.
class BoundedDoubler {
 public:
  explicit BoundedDoubler(const BoundedTile& tile) : tile_(tile) {
    for (size_t k = 0; k < kBoundedTaps; ++k) StoreU(Set<F32>(tile.weights[k]), weights_[k]);
    F32 least = LoadU<F32>(tile.values);
    F32 most = least;
    for (size_t i = 0; i < (tile.rows + kBoundedTaps) * kDoubledValues; i += F32::kLanes) {
      const F32 values = LoadU<F32>(tile.values + i);
      least = Min(least, values);
      most = Max(most, values);
    }
    const LanesOf lows(least);
    const LanesOf highs(most);
    float low = lows.at[0];
    float high = highs.at[0];
    for (size_t i = 1; i < F32::kLanes; ++i) {
      low = lows.at[i] < low ? lows.at[i] : low;
      high = highs.at[i] > high ? highs.at[i] : high;
    }
    bound_ = Set<F32>(static_cast<float>(
        tile.tolerance.Of(static_cast<double>(low), static_cast<double>(high))));
  }

  void Run() {
    for (size_t row = 0; row < tile_.rows; ++row) {
      SumDown(tile_.values + row * kDoubledValues);
      SumAcross(row, false);
      SumAcross(row, true);
    }
    doubts_.Settle();
  }

 private:
  F32 Weight(size_t k) const { return LoadU<F32>(weights_[k]); }

  /// Sums of an even and of the odd row behind it, whose first taps are at `values` and one row
  /// further. The weights of the odd one are in reverse.
  void SumDown(const float* values) {
    for (size_t x = 0; x < tile_.columns + kBoundedTaps; x += F32::kLanes) {
      F32 value = LoadU<F32>(values + x);
      F32 even = Zero<F32>();
      F32 odd = Zero<F32>();
      for (size_t k = 0; k < kBoundedTaps; ++k) {
        even = KeepInRegister(MulAdd(Weight(k), value, even));
        value = LoadU<F32>(values + (k + 1) * kDoubledValues + x);
        odd = KeepInRegister(MulAdd(Weight(kBoundedTaps - 1 - k), value, odd));
      }
      StoreU(even, down_[0] + x);
      StoreU(odd, down_[1] + x);
    }
  }

  /// The bytes of an even or odd row, its columns weighed as the rows were.
  void SumAcross(size_t row, bool is_odd) {
    uint8_t* const bytes = tile_.bytes + (2 * row + is_odd) * 2 * kDoubledColumns;
    for (size_t x = 0; x < tile_.columns; x += kColumnsAtOnce) {
      Sums even = {};
      Sums odd = {};
      const float* const sums = down_[is_odd] + x;
      F32 sum[kVectors];
      for (size_t v = 0; v < kVectors; ++v) sum[v] = LoadU<F32>(sums + v * F32::kLanes);
      for (size_t k = 0; k < kBoundedTaps; ++k) {
        for (size_t v = 0; v < kVectors; ++v) {
          // In registers at once: the compiler would put one sum behind the other.
          even[v] = KeepInRegister(MulAdd(Weight(k), sum[v], even[v]));
          sum[v] = LoadU<F32>(sums + v * F32::kLanes + k + 1);
          odd[v] = KeepInRegister(MulAdd(Weight(kBoundedTaps - 1 - k), sum[v], odd[v]));
        }
      }
      const auto moved = [&](F32 by) {
        return BytesByTurns({even[0] + by, even[1] + by}, {odd[0] + by, odd[1] + by});
      };
      const U8 most = moved(bound_);
      StoreU(most, bytes + 2 * x);
      if (AllFalse(most != moved(Zero<F32>() - bound_))) [[likely]]
        continue;
      for (size_t v = 0; v < kVectors; ++v) {
        Doubting(even[v], row, x + v * F32::kLanes, is_odd, false);
        Doubting(odd[v], row, x + v * F32::kLanes, is_odd, true);
      }
    }
  }

  /// Notes sums that may have other bytes when they are summed as stated.
  void Doubting(F32 sums, size_t row, size_t x, bool odd_row, bool odd_column) {
    if (AllFalse(BytesOf(sums + bound_) != BytesOf(sums - bound_))) return;
    doubts_.Add(
        {.values = tile_.values + (row + odd_row) * kDoubledValues + x + odd_column,
         .products = tile_.products + 2 * odd_row + odd_column,
         .bytes = tile_.bytes + (2 * row + odd_row) * 2 * kDoubledColumns + 2 * x + odd_column});
  }

  const BoundedTile& tile_;
  F32 bound_;
  Doubts doubts_;
  alignas(64) float weights_[kBoundedTaps][F32::kLanes];
  alignas(64) float down_[2][kDoubledValues];
};

void Bounded12(const BoundedTile& tile) { BoundedDoubler(tile).Run(); }

template <size_t kChannels>
void JoinChannels(uint8_t* dest, const uint8_t* channels, size_t stride, size_t count) {
  size_t i = 0;
  for (; i + kVectorBytes <= count; i += kVectorBytes) {
    U8 of[kChannels];
    for (size_t c = 0; c < kChannels; ++c) of[c] = LoadU<U8>(channels + c * stride + i);
    StoreInterleaved<kChannels>(of, dest + kChannels * i);
  }
  for (; i < count; ++i) {
    for (size_t c = 0; c < kChannels; ++c) dest[kChannels * i + c] = channels[c * stride + i];
  }
}

void Join(uint8_t* dest, const uint8_t* channels, size_t stride, size_t count,
          size_t channel_count) {
  (channel_count == 3 ? &JoinChannels<3> : &JoinChannels<4>)(dest, channels, stride, count);
}

}  // namespace

extern const DoublingKernels kDoublingKernels;
constinit const DoublingKernels kDoublingKernels = {
    .spread = &Spread,
    .bounded12 = &Bounded12,
    .join = &Join,
};

}  // namespace qel::QEL_LEVEL
