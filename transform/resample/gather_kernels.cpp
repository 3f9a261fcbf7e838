#include "transform/resample/gather_kernels.h"

#include <utility>

#include "simd/prefetch.h"
#include "transform/word_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

/// Pixels one after the other. The fourth byte stays where the plan keeps alpha.
template <int kBytes>
void GatherSingly(uint8_t* dest, const uint8_t* source, const GatherPlan& plan, size_t from,
                  size_t to) {
  constexpr int kColorBytes = kBytes < 3 ? kBytes : 3;
  if (plan.keep_alpha) {
    for (size_t x = from; x < to; ++x) {
      __builtin_memcpy(dest + x * kBytes, source + plan.offsets[x], kColorBytes);
    }
    return;
  }
  for (size_t x = from; x < to; ++x) {
    __builtin_memcpy(dest + x * kBytes, source + plan.offsets[x], kBytes);
  }
}

void MakeOpaque(uint8_t* row, size_t count) {
  for (size_t i = 0; i < count; ++i) {
    uint32_t color;
    __builtin_memcpy(&color, row + 4 * i, 4);
    color |= 0xFF000000u;
    __builtin_memcpy(row + 4 * i, &color, 4);
  }
}

/// Bytes that are fetched in advance.
constexpr int64_t kAhead = 1024;

[[maybe_unused]] inline U8 GatherSpan(const uint8_t* source, const GatherBlock& block) {
  const uint8_t* const from = source + block.base;
  // The processor does not foresee loads under masks.
  for (int64_t at = 0; at < block.span; at += 64) PrefetchLine(from + kAhead + at);
  const U8 index = LoadU<U8>(block.index);
  const U8 part0 = LoadFirst(from, block.span);
  if (block.span <= 64) return TableLookupLanes(part0, index);
  const U8 part1 = LoadFirst(from + 64, block.span - 64);
  const U8 low = TwoTablesLookupLanes(part0, part1, index);
  if (block.span <= 128) return low;
  const U8 part2 = LoadFirst(from + 128, block.span - 128);
  const U8 part3 = LoadFirst(from + 192, block.span - 192);
  return IfNegativeThenElse(index, TwoTablesLookupLanes(part2, part3, index), low);
}

/// Stores the bytes in `lanes`; the others of a whole vector are stored as they were, because
/// masked stores take several times as long as plain ones.
template <bool kAll>
QEL_SIMD_INLINE void StoreGathered(uint8_t* dest, size_t count, U8 gathered) {
  const Mask<U8> lanes = MaskFromBits < U8, kAll ? ~uint64_t{0} : 0x7777'7777'7777'7777u > ();
  if (count < kVectorBytes) return BlendedStore(gathered, FirstN<U8>(count) & lanes, dest);
  if constexpr (!kAll) {
    PrefetchLine<1>(dest + kAhead);
    gathered = IfThenElse(lanes, gathered, LoadU<U8>(dest));
  }
  StoreU(gathered, dest);
}

/// By vectors of 64 bytes, whose places the plan holds.
template <int kBytes, bool kAll>
void GatherBySpans(uint8_t* dest, const uint8_t* source, const GatherPlan& plan) {
  const size_t bytes = plan.pixels * kBytes;
  for (size_t at = 0; at < bytes; at += 64) {
    const GatherBlock& block = plan.blocks[at / 64];
    if (block.span > 0) {
      StoreGathered<kAll>(dest + at, bytes - at, GatherSpan(source, block));
    } else {
      // Pixels that reach into the next block are written twice with the same bytes.
      const size_t end = (at + 64 + kBytes - 1) / kBytes;
      GatherSingly<kBytes>(dest, source, plan, at / kBytes, end < plan.pixels ? end : plan.pixels);
    }
  }
}

/// The processor has lookups in 16 bytes, and each load gives only those bytes whose place lies in
/// it.
struct Quarters {
  /// A vector of bytes of a block from byte `k` on.
  template <int kLoads>
  static QEL_SIMD_INLINE U8 LookUp(const uint8_t* source, const GatherBlock& block, size_t k) {
    const U8 index = LoadU<U8>(block.index + k);
    const auto load = [&](int part) {
      return GatherBlocks<U8>(
          [&](size_t b) { return source + block.base + block.starts[k / 16 + b] + 16 * part; });
    };
    if constexpr (kLoads == 1) return TableLookupBytesOr0(load(0), index);
    U8 gathered = Zero<U8>();
    for (int part = 0; part < kLoads; ++part) {
      // Places of 16 and more of the part leave the range where bytes are looked up.
      const U8 places = (index ^ Set<U8>(static_cast<uint8_t>(16 * part))) + Set<U8>(0x70);
      gathered |= TableLookupBytesOr0(load(part), places);
    }
    return gathered;
  }
};

/// It has lookups of words in whole vectors as well.
struct Vectors {
  template <int kLoads>
  static QEL_SIMD_INLINE U8 LookUp(const uint8_t* source, const GatherBlock& block, size_t k) {
    const auto* const from = source + block.base + block.starts[k / kVectorBytes];
    const U32 index = LoadU<U32>(block.index + k);
    U32 gathered = TableLookupLanes(LoadU<U32>(from), index);
    for (uint32_t part = 1; part < kLoads; ++part) {
      const U32 found = TableLookupLanes(LoadU<U32>(from + part * kVectorBytes), index);
      const auto is_later =
          BitCast<I32>(index) >= Set<I32>(static_cast<int32_t>(part * U32::kLanes));
      gathered = IfThenElse(RebindMask<U32>(is_later), found, gathered);
    }
    return BitCast<U8>(gathered);
  }
};

/// By vectors whose parts come from a few loads of as many bytes of the source each.
template <int kBytes, typename Parts>
void GatherByParts(uint8_t* dest, const uint8_t* source, const GatherPlan& plan) {
  const auto lanes = MaskFromBits<U8, 0x7777'7777'7777'7777u>();
  const bool all = kBytes != 4 || !plan.keep_alpha;
  const size_t bytes = plan.pixels * kBytes;
  size_t at = 0;
  for (; at + 64 <= bytes; at += 64) {
    const GatherBlock& block = plan.blocks[at / 64];
    if (block.span == 0) {
      GatherSingly<kBytes>(dest, source, plan, at / kBytes, (at + 64 + kBytes - 1) / kBytes);
      continue;
    }
    const auto gather = [&]<int kLoads>(std::integral_constant<int, kLoads>) {
      for (size_t k = 0; k < 64; k += kVectorBytes) {
        const U8 gathered = Parts::template LookUp<kLoads>(source, block, k);
        uint8_t* const to = dest + at + k;
        StoreU(all ? gathered : IfThenElse(lanes, gathered, LoadU<U8>(to)), to);
      }
    };
    switch (block.loads) {
      case 1:
        gather(std::integral_constant<int, 1>());
        break;
      case 2:
        gather(std::integral_constant<int, 2>());
        break;
      case 3:
        gather(std::integral_constant<int, 3>());
        break;
      default:
        gather(std::integral_constant<int, kMostPartLoads>());
    }
  }
  GatherSingly<kBytes>(dest, source, plan, at / kBytes, plan.pixels);
}

template <int kBytes>
void GatherPixels(uint8_t* dest, const uint8_t* source, const GatherPlan& plan) {
  if constexpr (kHasTableLookupBytes && kBytes == 4) {
    if (plan.kind == GatherBlockKind::kVectors) {
      return GatherByParts<kBytes, Vectors>(dest, source, plan);
    }
  }
  if constexpr (kHasByteLookup) {
    const bool all = kBytes != 4 || !plan.keep_alpha;
    const auto gather = all ? &GatherBySpans<kBytes, true> : &GatherBySpans<kBytes, false>;
    return gather(dest, source, plan);
  } else if constexpr (kHasTableLookupBytes) {
    if (plan.kind == GatherBlockKind::kQuarters) {
      return GatherByParts<kBytes, Quarters>(dest, source, plan);
    }
  }
  GatherSingly<kBytes>(dest, source, plan, 0, plan.pixels);
}

}  // namespace

extern const GatherKernels kGatherKernels;
constinit const GatherKernels kGatherKernels = {
    .block_kind = kHasByteLookup         ? GatherBlockKind::kSpans
                  : kHasTableLookupBytes ? GatherBlockKind::kQuarters
                                         : GatherBlockKind::kNone,
    .vector_bytes = kHasTableLookupBytes ? kVectorBytes : 0,
    .gather1 = &GatherPixels<1>,
    .gather2 = &GatherPixels<2>,
    .gather3 = &GatherPixels<3>,
    .gather4 = &GatherPixels<4>,
    .make_opaque = &MakeOpaque,
};

}  // namespace qel::QEL_LEVEL
