#include "filter/median_kernels.h"

#include <utility>

#include "filter/byte_lanes.h"
#include "filter/middle_network.h"
#include "image/colour_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

constexpr int kBlueWeight = 117, kGreenWeight = 601, kRedWeight = 306, kWeightBits = 10;

#ifdef QEL_HAS_COLOUR_VECTORS

/// The keys of half a vector of pixels, in words of the order that packing restores.
inline Vector KeyWords(Vector blue, Vector green, Vector red) {
  const Vector zero = FillBytes(0);
  const Vector blue_green = FillDwords(kGreenWeight << 16 | kBlueWeight);
  const Vector red_only = FillDwords(kRedWeight);
  const auto keys = [&](Vector pairs, Vector reds) {
    return ShiftDwords<kWeightBits>(
        AddDwords(SumWordPairs(pairs, blue_green), SumWordPairs(reds, red_only)));
  };
  return PackDwords(keys(PairWordsLow(blue, green), PairWordsLow(red, zero)),
                    keys(PairWordsHigh(blue, green), PairWordsHigh(red, zero)));
}

template <size_t kBytes>
void Keys(uint8_t* keys, const uint8_t* pixels, size_t count) {
  const Vector zero = FillBytes(0);
  const auto block = [&](uint8_t* to, const uint8_t* from) {
    Vector channels[kBytes];
    LoadPixels<kBytes>(from, channels);
    const Vector low = KeyWords(PairLow(channels[0], zero), PairLow(channels[1], zero),
                                PairLow(channels[2], zero));
    const Vector high = KeyWords(PairHigh(channels[0], zero), PairHigh(channels[1], zero),
                                 PairHigh(channels[2], zero));
    Store(to, PackWords(low, high));
  };
  WalkBlocks<kVectorBytes>(count, block, To<1>{keys}, From<kBytes>{pixels});
}

#else

template <size_t kBytes>
void Keys(uint8_t* keys, const uint8_t* pixels, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const pixel = pixels + kBytes * i;
    const int sum = kBlueWeight * pixel[0] + kGreenWeight * pixel[1] + kRedWeight * pixel[2];
    keys[i] = static_cast<uint8_t>(sum >> kWeightBits);
  }
}

#endif

template <size_t kTaps>
constexpr MiddleNetwork<kTaps> kNetwork;

template <size_t kTaps, size_t kIndex, typename Lane>
inline void Compare(Lane (&values)[kTaps]) {
  constexpr auto kComparator = kNetwork<kTaps>[kIndex];
  const Lane a = values[kComparator.low];
  const Lane b = values[kComparator.high];
  if constexpr (kComparator.needs_low) values[kComparator.low] = b < a ? b : a;
  if constexpr (kComparator.needs_high) values[kComparator.high] = b < a ? a : b;
}

template <size_t kTaps, typename Lane, size_t... kIndices>
inline Lane Middle(Lane (&values)[kTaps], std::index_sequence<kIndices...>) {
  (Compare<kTaps, kIndices>(values), ...);
  return values[kTaps / 2];
}

/// The middle value of each window. 16-bit lanes hold a key above its tap's place, so that equal
/// keys keep their order and the place comes out; 8-bit lanes hold keys alone.
template <typename Lane, size_t... kPlaces>
void MiddleOfTaps(uint8_t* __restrict out, const uint8_t* const* taps, size_t first, size_t end,
                  std::index_sequence<kPlaces...>) {
  constexpr size_t kTaps = sizeof...(kPlaces);
  const uint8_t* const from[] = {taps[kPlaces]...};
  for (size_t k = first; k < end; ++k) {
    Lane values[kTaps];
    if constexpr (sizeof(Lane) == 1) {
      ((values[kPlaces] = from[kPlaces][k]), ...);
    } else {
      ((values[kPlaces] = static_cast<Lane>(from[kPlaces][k] << 8 | kPlaces)), ...);
    }
    out[k] =
        static_cast<uint8_t>(Middle(values, std::make_index_sequence<kNetwork<kTaps>.size()>{}));
  }
}

template <typename Lane, size_t kSize>
void MiddleByNetwork(uint8_t* out, const uint8_t* const* rows, size_t count) {
  const uint8_t* taps[kSize * kSize];
  for (size_t i = 0; i < kSize; ++i) {
    for (size_t j = 0; j < kSize; ++j) taps[i * kSize + j] = rows[j] + i;
  }
  // The rest of a row overlaps what comes before it: one by one, windows are slow.
  constexpr size_t kBlock = 64;
  constexpr std::make_index_sequence<kSize * kSize> kPlaces;
  const size_t whole = count / kBlock * kBlock;
  MiddleOfTaps<Lane>(out, taps, 0, whole, kPlaces);
  if (whole == count) return;
  MiddleOfTaps<Lane>(out, taps, count < kBlock ? 0 : count - kBlock, count, kPlaces);
}

/// Counts columns in and out for one limit.
void CountColumns(uint8_t* counts, const uint8_t* entering, const uint8_t* leaving, size_t limit,
                  size_t samples) {
  const Bytes limits = Bytes::Set(limit);
  for (size_t k = 0; k < samples; k += Bytes::kLanes) {
    Bytes count = Bytes::Load(counts + k);
    count.CountBelow(Bytes::Load(entering + k), limits);
    count.UncountBelow(Bytes::Load(leaving + k), limits);
    count.Store(counts + k);
  }
}

/// The sum of `size` counts side by side, from those of every three.
inline Bytes WindowCount(const uint8_t* counts, const uint8_t* triples, size_t size) {
  Bytes sum = Bytes::Load(triples);
  size_t i = 3;
  for (; i + 3 <= size; i += 3) sum.Add(Bytes::Load(triples + i));
  for (; i < size; ++i) sum.Add(Bytes::Load(counts + i));
  return sum;
}

/// Counts are larger for larger limits, so the last limit that at most the wanted number of taps
/// lie below gives the high bits.
void Rank(const RankRows& ranks, const uint8_t* entering, const uint8_t* leaving, size_t size,
          size_t count) {
  const Bytes middle = Bytes::Set(size * size / 2);
  const size_t samples = count + size - 1;
  __builtin_memset(ranks.wanted, 0, count);
  __builtin_memset(ranks.below, 0, count);
  for (size_t i = 0; i < ranks.Limits(); ++i) {
    uint8_t* const counts = ranks.columns + i * ranks.pitch;
    const size_t limit = (i + 1) << (8 - ranks.bits);
    CountColumns(counts, entering, leaving, limit, samples);
    for (size_t k = 0; k < samples; k += Bytes::kLanes) {
      Bytes sum = Bytes::Load(counts + k);
      sum.Add(Bytes::Load(counts + k + 1));
      sum.Add(Bytes::Load(counts + k + 2));
      sum.Store(ranks.triples + k);
    }
    for (size_t k = 0; k < count; k += Bytes::kLanes) {
      const Bytes below = WindowCount(counts + k, ranks.triples + k, size);
      Bytes wanted = Bytes::Load(ranks.wanted + k);
      Bytes kept = Bytes::Load(ranks.below + k);
      wanted.TakeWhereAtMost(Bytes::Set(limit), below, middle);
      kept.TakeWhereAtMost(below, below, middle);
      wanted.Store(ranks.wanted + k);
      kept.Store(ranks.below + k);
    }
  }
}

/// The wanted keys, their lower bits one by one: a bit is set where at most the wanted number of
/// taps lie below the key with that bit. `below` becomes the number of taps below the wanted key.
inline Bytes WantedKeys(const uint8_t* const* rows, const RankRows& ranks, size_t size,
                        size_t first, Bytes& below) {
  const Bytes middle = Bytes::Set(size * size / 2);
  const bool ranked = ranks.bits != 0;
  Bytes wanted = ranked ? Bytes::Load(ranks.wanted + first) : Bytes::Set(0);
  below = ranked ? Bytes::Load(ranks.below + first) : Bytes::Set(0);
  for (unsigned bit = 0x80u >> ranks.bits; bit != 0; bit >>= 1) {
    Bytes limit = wanted;
    limit.AddBit(static_cast<uint8_t>(bit));
    Bytes count = Bytes::Set(0);
    for (size_t j = 0; j < size; ++j) {
      const uint8_t* const row = rows[j] + first;
      for (size_t i = 0; i < size; ++i) count.CountBelow(Bytes::Load(row + i), limit);
    }
    wanted.TakeWhereAtMost(limit, count, middle);
    below.TakeWhereAtMost(count, count, middle);
  }
  return wanted;
}

inline void StoreBytes(uint8_t* dest, const Bytes& bytes, size_t count) {
  if (count >= Bytes::kLanes) {
    bytes.Store(dest);
    return;
  }
  alignas(64) uint8_t rest[Bytes::kLanes];
  bytes.Store(rest);
  for (size_t i = 0; i < count; ++i) dest[i] = rest[i];
}

void SelectKey(uint8_t* keys, const uint8_t* const* rows, const RankRows& ranks, size_t size,
               size_t count) {
  if (size == 3) return MiddleByNetwork<uint8_t, 3>(keys, rows, count);
  if (size == 5) return MiddleByNetwork<uint8_t, 5>(keys, rows, count);
  for (size_t k = 0; k < count; k += Bytes::kLanes) {
    Bytes below;
    StoreBytes(keys + k, WantedKeys(rows, ranks, size, k, below), count - k);
  }
}

void SelectTap(uint8_t* taps, const uint8_t* const* rows, const RankRows& ranks, size_t size,
               size_t count) {
  if (size == 3) return MiddleByNetwork<uint16_t, 3>(taps, rows, count);
  if (size == 5) return MiddleByNetwork<uint16_t, 5>(taps, rows, count);
  for (size_t k = 0; k < count; k += Bytes::kLanes) {
    Bytes below;
    const Bytes wanted = WantedKeys(rows, ranks, size, k, below);
    // The number of the tap among those that have the wanted key.
    Bytes rest = Bytes::Set(size * size / 2);
    rest.Subtract(below);
    Bytes found = Bytes::Set(0);
    for (size_t i = 0; i < size; ++i) {
      for (size_t j = 0; j < size; ++j) {
        rest.CountDown(Bytes::Load(rows[j] + k + i), wanted, Bytes::Set(i * size + j), found);
      }
    }
    StoreBytes(taps + k, found, count - k);
  }
}

/// One pixel after the other.
template <size_t kBytes>
void CopyTaps(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
              size_t count) {
  const uint8_t* at[kMostSelected * kMostSelected];
  for (size_t i = 0; i < size; ++i) {
    for (size_t j = 0; j < size; ++j) at[i * size + j] = rows[j] + i * kBytes;
  }
  const size_t last = count - 1;
  // Whole words are quicker than three bytes; the last pixel must not touch what follows.
  for (size_t x = 0; x < last; ++x) {
    __builtin_memcpy(dest + x * kBytes, at[taps[x]] + x * kBytes, 4);
  }
  __builtin_memcpy(dest + last * kBytes, at[taps[last]] + last * kBytes, kBytes);
}

#ifdef QEL_LEVEL_avx512vbmi

/// Largest size whose taps fit the tables of `PickTaps3`.
constexpr size_t kMostPicked = 8;

/// 21 pixels at a time. Two vectors of each row hold all taps of a row; a permutation brings each
/// byte the one at its tap, which counts where the tap lies in that row.
void PickTaps3(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
               size_t count) {
  constexpr size_t kVector = 64;
  constexpr size_t kPixels = kVector / 3;
  alignas(kVector) uint8_t places[kVector], pixels[kVector], columns[kVector], tap_rows[kVector];
  for (size_t i = 0; i < kVector; ++i) {
    places[i] = static_cast<uint8_t>(i);
    pixels[i] = static_cast<uint8_t>(i / 3);
    columns[i] = static_cast<uint8_t>(i / size * 3);
    tap_rows[i] = static_cast<uint8_t>(i % size);
  }
  const __m512i place = _mm512_load_si512(places);
  const __m512i pixel = _mm512_load_si512(pixels);
  const __m512i column = _mm512_load_si512(columns);
  const __m512i tap_row = _mm512_load_si512(tap_rows);
  for (size_t k = 0; k < count; k += kPixels) {
    const __m512i tap = _mm512_permutexvar_epi8(pixel, _mm512_loadu_si512(taps + k));
    const __m512i from = _mm512_add_epi8(place, _mm512_permutexvar_epi8(tap, column));
    const __m512i row = _mm512_permutexvar_epi8(tap, tap_row);
    __m512i out = _mm512_setzero_si512();
    for (size_t j = 0; j < size; ++j) {
      const uint8_t* const samples = rows[j] + k * 3;
      const __m512i here = _mm512_permutex2var_epi8(_mm512_loadu_si512(samples), from,
                                                    _mm512_loadu_si512(samples + kVector));
      const __mmask64 counts = _mm512_cmpeq_epi8_mask(row, _mm512_set1_epi8(static_cast<char>(j)));
      out = _mm512_mask_mov_epi8(out, counts, here);
    }
    if (count - k > kPixels) {
      // The byte that belongs to the next pixel is stored once more with that.
      _mm512_storeu_si512(dest + k * 3, out);
    } else {
      _mm512_mask_storeu_epi8(dest + k * 3, ~__mmask64{0} >> (kVector - (count - k) * 3), out);
    }
  }
}

void CopyTaps3(uint8_t* dest, const uint8_t* const* rows, const uint8_t* taps, size_t size,
               size_t count) {
  const auto copy = size <= kMostPicked ? &PickTaps3 : &CopyTaps<3>;
  copy(dest, rows, taps, size, count);
}

#else

constexpr auto CopyTaps3 = &CopyTaps<3>;

#endif

size_t FindColumn(const uint8_t* keys, size_t pitch, size_t columns, size_t length, uint8_t key,
                  int64_t extra, int64_t* rest) {
  for (size_t column = 0; column < columns; ++column) {
    const int64_t taps =
        static_cast<int64_t>(CountEqual(keys + column * pitch, length, key)) + extra;
    if (*rest < taps) return column;
    *rest -= taps;
  }
  return columns;
}

}  // namespace

extern const MedianKernels kMedianKernels;
constinit const MedianKernels kMedianKernels = {
    .keys3 = &Keys<3>,
    .keys4 = &Keys<4>,
    .rank = &Rank,
    .select_key = &SelectKey,
    .select_tap = &SelectTap,
    .copy_taps3 = CopyTaps3,
    .copy_taps4 = &CopyTaps<4>,
    .find_column = &FindColumn,
};

}  // namespace qel::QEL_LEVEL
