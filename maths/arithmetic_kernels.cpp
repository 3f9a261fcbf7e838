#include "maths/arithmetic_kernels.h"

#include "maths/sample_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

#ifdef QEL_HAS_COLOUR_VECTORS

void Add(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count) {
  WalkBlocks<kVectorBytes>(
      count,
      [](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        Store(to, AddUnsigned(Load(from_a), Load(from_b)));
      },
      To<1>{dest}, From<1>{a}, From<1>{b});
}

void AddByTable(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
                const uint8_t* table) {
  const TableLookup below_256(table), from_256(table + 256);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        const Vector first = Load(from_a);
        const Vector sum = AddBytes(first, Load(from_b));
        Store(to, BlendBelow(sum, first, below_256(sum), from_256(sum)));
      },
      To<1>{dest}, From<1>{a}, From<1>{b});
}

template <bool kAbsolute, size_t kBytes>
uint64_t Subtract(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count, uint8_t alpha) {
  const Vector colour = FillDwords(kBytes == 4 ? 0x00FFFFFFu : 0xFFFFFFFFu);
  const Vector opacity = FillDwords(kBytes == 4 ? uint32_t{alpha} << 24 : 0);
  const Vector one = FillBytes(1);
  Vector tally = FillBytes(0);
  WalkBlocks<kVectorBytes / kBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        const Vector first = Load(from_a);
        const Vector second = Load(from_b);
        Vector d = SubtractUnsigned(first, second);
        if constexpr (kAbsolute) d |= SubtractUnsigned(second, first);
        d &= colour;
        tally = AddQwords(tally, SumBytes(Min(SubtractUnsigned(d, one), one)));
        Store(to, d | opacity);
      },
      To<kBytes>{dest}, From<kBytes>{a}, From<kBytes>{b});
  return SumQwords(tally);
}

void Mix(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
         const MixWeights& weights) {
  const Mixer mix(weights);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
        Store(to, mix(Load(from_a), Load(from_b)));
      },
      To<1>{dest}, From<1>{a}, From<1>{b});
}

/// Mixes the selected pixels of a block channel by channel.
template <size_t kDest, size_t kA, size_t kB>
void MixColours(uint8_t* to, const uint8_t* from_a, const uint8_t* from_b, Selection selected,
                const Mixer& mix) {
  Vector first[kA], second[kB], channels[kDest];
  LoadPixels<kA>(from_a, first);
  LoadPixels<kB>(from_b, second);
  LoadPixels<kDest>(to, channels);
  for (size_t c = 0; c < 3; ++c) {
    channels[c] = Blend(selected, channels[c], mix(first[c], second[c]));
  }
  StorePixels<kDest>(to, channels);
}
template <size_t kDest, size_t kA, size_t kB>
void MixColours(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* mask,
                size_t pixels, const MixWeights& weights) {
  const Mixer mix(weights);
  if (mask == nullptr) {
    WalkBlocks<kVectorBytes>(
        pixels,
        [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b) {
          MixColours<kDest, kA, kB>(to, from_a, from_b, NotZero(FillBytes(1)), mix);
        },
        To<kDest>{dest}, From<kA>{a}, From<kB>{b});
    return;
  }
  WalkBlocks<kVectorBytes>(
      pixels,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b, const uint8_t* from_mask) {
        MixColours<kDest, kA, kB>(to, from_a, from_b, NotZero(Load(from_mask)), mix);
      },
      To<kDest>{dest}, From<kA>{a}, From<kB>{b}, From<1>{mask});
}

/// Mixes all bytes of the selected pixels in one part of a block.
template <size_t kBytes, size_t kPart>
void MixPart(uint8_t* to, const uint8_t* from_a, const uint8_t* from_b, Vector mask,
             const Mixer& mix) {
  const Selection selected = NotZero(Repeat<kBytes, kPart>(mask));
  const Vector mixed = mix(LoadPart<kBytes, kPart>(from_a), LoadPart<kBytes, kPart>(from_b));
  StorePart<kBytes, kPart>(to, Blend(selected, LoadPart<kBytes, kPart>(to), mixed));
}
template <size_t kBytes>
void MixWhere(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* mask, size_t pixels,
              const MixWeights& weights) {
  const Mixer mix(weights);
  WalkBlocks<kVectorBytes>(
      pixels,
      [&](uint8_t* to, const uint8_t* from_a, const uint8_t* from_b, const uint8_t* from_mask) {
        const Vector selected = Load(from_mask);
        MixPart<kBytes, 0>(to, from_a, from_b, selected, mix);
        if constexpr (kBytes >= 3) {
          MixPart<kBytes, 1>(to, from_a, from_b, selected, mix);
          MixPart<kBytes, 2>(to, from_a, from_b, selected, mix);
        }
        if constexpr (kBytes == 4) MixPart<kBytes, 3>(to, from_a, from_b, selected, mix);
      },
      To<kBytes>{dest}, From<kBytes>{a}, From<kBytes>{b}, From<1>{mask});
}

void MapBytes(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const TableLookup lookup(map.table);
  WalkBlocks<kVectorBytes>(
      count, [&](uint8_t* to, const uint8_t* from) { Store(to, lookup(Load(from))); }, To<1>{dest},
      From<1>{source});
}
void MapTo3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const TableLookup lookup(map.table);
  WalkBlocks<kVectorBytes>(
      count, [&](uint8_t* to, const uint8_t* from) { StoreGreyPixels(to, lookup(Load(from))); },
      To<3>{dest}, From<1>{source});
}
void Map4To3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const TableLookup lookup(map.table);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        Vector channels[4];
        LoadPixels<4>(from, channels);
        for (size_t c = 0; c < 3; ++c) channels[c] = lookup(channels[c]);
        StorePixels<3>(to, channels);
      },
      To<3>{dest}, From<4>{source});
}
void MapBytesWhere(uint8_t* dest, const uint8_t* source, const uint8_t* mask, size_t count,
                   const ScaleMap& map) {
  const TableLookup lookup(map.table);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from, const uint8_t* from_mask) {
        Store(to, Blend(NotZero(Load(from_mask)), Load(to), lookup(Load(from))));
      },
      To<1>{dest}, From<1>{source}, From<1>{mask});
}

template <size_t kBytes>
void GreyOf(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const SumMap scale(map);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        Vector channels[kBytes];
        LoadPixels<kBytes>(from, channels);
        Store(to, scale(ChannelSums(channels)));
      },
      To<1>{dest}, From<kBytes>{source});
}

/// The bytes of a block of 32-bit integers.
Vector BytesOfWords(const uint8_t* words, const LinearMap& scale) {
  const auto bytes = [&](size_t k) {
    return ToBytes(scale(ToFloats(Load(words + k * kVectorBytes))));
  };
  return OrderDwords(PackWords(PackDwords(bytes(0), bytes(1)), PackDwords(bytes(2), bytes(3))));
}
void WordsTo1(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const LinearMap scale(map);
  WalkBlocks<kVectorBytes>(
      count, [&](uint8_t* to, const uint8_t* from) { Store(to, BytesOfWords(from, scale)); },
      To<1>{dest}, From<4>{source});
}
void WordsTo3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const LinearMap scale(map);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) { StoreGreyPixels(to, BytesOfWords(from, scale)); },
      To<3>{dest}, From<4>{source});
}
void WordsTo4(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const LinearMap scale(map);
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        Vector channels[4];
        LoadPixels<4>(to, channels);
        channels[0] = channels[1] = channels[2] = BytesOfWords(from, scale);
        StorePixels<4>(to, channels);
      },
      To<4>{dest}, From<4>{source});
}
void WordsToWords(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  const LinearMap scale(map);
  WalkBlocks<kVectorBytes / 4>(
      count,
      [&](uint8_t* to, const uint8_t* from) { Store(to, FromZero(scale(ToFloats(Load(from))))); },
      To<4>{dest}, From<4>{source});
}

void Scale8(uint8_t* dest, const uint8_t* source, size_t count, double factor, int32_t offset) {
  const Vector offsets = FillDwords(static_cast<uint32_t>(offset));
  WalkBlocks<kVectorBytes>(
      count,
      [&](uint8_t* to, const uint8_t* from) {
        const auto scaled = [&](size_t k) {
          return AddDwords(ScaleDwords(Load(from + k * kVectorBytes), factor), offsets);
        };
        Store(to, OrderDwords(PackWords(PackDwords(scaled(0), scaled(1)),
                                        PackDwords(scaled(2), scaled(3)))));
      },
      To<1>{dest}, From<4>{source});
}

#else

void Add(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[i] = ClampToByte(a[i] + b[i]);
}
void AddByTable(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
                const uint8_t* table) {
  for (size_t i = 0; i < count; ++i) dest[i] = table[a[i] + b[i]];
}

template <bool kAbsolute, size_t kBytes>
uint64_t Subtract(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count, uint8_t alpha) {
  uint64_t tally = 0;
  for (size_t i = 0; i < kBytes * count; ++i) {
    if (kBytes == 4 && i % 4 == 3) {
      dest[i] = alpha;
      continue;
    }
    int d = a[i] - b[i];
    if (d < 0) d = kAbsolute ? -d : 0;
    tally += d >= 2;
    dest[i] = static_cast<uint8_t>(d);
  }
  return tally;
}

void Mix(uint8_t* dest, const uint8_t* a, const uint8_t* b, size_t count,
         const MixWeights& weights) {
  for (size_t i = 0; i < count; ++i) dest[i] = weights(a[i], b[i]);
}
template <size_t kDest, size_t kA, size_t kB, size_t kComputed = 3>
void MixColours(uint8_t* dest, const uint8_t* a, const uint8_t* b, const uint8_t* mask,
                size_t pixels, const MixWeights& weights) {
  for (size_t i = 0; i < pixels; ++i) {
    if (mask != nullptr && mask[i] == 0) continue;
    for (size_t c = 0; c < kComputed; ++c) {
      dest[kDest * i + c] = weights(a[kA * i + c], b[kB * i + c]);
    }
  }
}
template <size_t kBytes>
constexpr auto MixWhere = MixColours<kBytes, kBytes, kBytes, kBytes>;

void MapBytes(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) dest[i] = map.table[source[i]];
}
void MapTo3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    dest[3 * i] = dest[3 * i + 1] = dest[3 * i + 2] = map.table[source[i]];
  }
}
void Map4To3(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < 3; ++c) dest[3 * i + c] = map.table[source[4 * i + c]];
  }
}
void MapBytesWhere(uint8_t* dest, const uint8_t* source, const uint8_t* mask, size_t count,
                   const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    if (mask[i] != 0) dest[i] = map.table[source[i]];
  }
}

template <size_t kBytes>
void GreyOf(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* const pixel = source + kBytes * i;
    dest[i] = TruncateToByte(map(static_cast<float>(pixel[0] + pixel[1] + pixel[2])));
  }
}

inline int32_t WordAt(const uint8_t* row, size_t i) {
  int32_t word;
  __builtin_memcpy(&word, row + 4 * i, sizeof(word));
  return word;
}
/// The byte of an integer into the first `kCopies` of `kBytes`.
template <size_t kBytes, size_t kCopies>
void WordsTo(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    const uint8_t byte = TruncateToByte(map(static_cast<float>(WordAt(source, i))));
    for (size_t c = 0; c < kCopies; ++c) dest[kBytes * i + c] = byte;
  }
}
constexpr auto WordsTo1 = WordsTo<1, 1>;
constexpr auto WordsTo3 = WordsTo<3, 3>;
constexpr auto WordsTo4 = WordsTo<4, 3>;
void WordsToWords(uint8_t* dest, const uint8_t* source, size_t count, const ScaleMap& map) {
  for (size_t i = 0; i < count; ++i) {
    const int32_t word = TruncateFromZero(map(static_cast<float>(WordAt(source, i))));
    __builtin_memcpy(dest + 4 * i, &word, sizeof(word));
  }
}

void Scale8(uint8_t* dest, const uint8_t* source, size_t count, double factor, int32_t offset) {
  for (size_t i = 0; i < count; ++i) {
    const int32_t product = TruncateToInt(static_cast<double>(WordAt(source, i)) * factor);
    dest[i] = ClampToByte(WrapAdd(product, offset));
  }
}

#endif

template <size_t kDest, size_t kA, size_t kB>
constexpr ArithmeticKernels::MixPixels kMixColours = {kDest, kA, kB, 3, &MixColours<kDest, kA, kB>};
template <size_t kBytes>
constexpr ArithmeticKernels::MixPixels kMixWhere = {kBytes, kBytes, kBytes, kBytes,
                                                    MixWhere<kBytes>};

}  // namespace

extern const ArithmeticKernels kArithmeticKernels;
constinit const ArithmeticKernels kArithmeticKernels = {
    .add = &Add,
    .add_by_table = &AddByTable,
    .subtract_bytes = &Subtract<false, 1>,
    .difference_bytes = &Subtract<true, 1>,
    .subtract_pixels = &Subtract<false, 4>,
    .difference_pixels = &Subtract<true, 4>,
    .mix = &Mix,
    .mix_pixels = {kMixWhere<1>, kMixWhere<3>, kMixWhere<4>, kMixColours<3, 3, 4>,
                   kMixColours<3, 4, 3>, kMixColours<3, 4, 4>, kMixColours<4, 3, 3>,
                   kMixColours<4, 3, 4>, kMixColours<4, 4, 3>, kMixColours<4, 4, 4>},
    .map_bytes = &MapBytes,
    .map_to_3 = &MapTo3,
    .map_4_to_3 = &Map4To3,
    .grey_of_3 = &GreyOf<3>,
    .grey_of_4 = &GreyOf<4>,
    .words_to_1 = WordsTo1,
    .words_to_3 = WordsTo3,
    .words_to_4 = WordsTo4,
    .words_to_words = &WordsToWords,
    .map_bytes_where = &MapBytesWhere,
    .scale8 = &Scale8,
};

}  // namespace qel::QEL_LEVEL
