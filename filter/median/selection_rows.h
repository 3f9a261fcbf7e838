#ifndef QEL_FILTER_MEDIAN_SELECTION_ROWS_H_
#define QEL_FILTER_MEDIAN_SELECTION_ROWS_H_

#include "filter/byte_lanes.h"
#include "filter/median/median_kernels.h"

// The middle of small windows by radix selection: the key bit by bit, from the highest. The high
// bits come from counts of columns for 2^bits - 1 limits, `size` additions each; every other bit
// takes a comparison with each key of the window. Keys in rows are centered.

namespace qel::QEL_LEVEL {
namespace {

/// Limit number `i` of `RankRows`: the high bits count from 1 on.
inline size_t LimitOf(const RankRows& ranks, size_t i) { return (i + 1) << (8 - ranks.bits); }

/// Takes 128 from each key.
void CenterKeys(uint8_t* keys, size_t count) {
  for (size_t k = 0; k < count; k += Bytes::kLanes)
    Bytes::Load(keys + k).Centered().Store(keys + k);
}

void CountColumns(const RankRows& ranks, const uint8_t* entering, const uint8_t* leaving,
                  size_t columns) {
  for (size_t i = 0; i < ranks.Limits(); ++i) {
    uint8_t* const counts = ranks.columns + i * ranks.pitch;
    const Bytes limits = Bytes::Set(LimitOf(ranks, i)).Centered();
    for (size_t k = 0; k < columns; k += Bytes::kLanes) {
      Bytes count = Bytes::Load(counts + k);
      count.CountBelow(Bytes::Load(entering + k), limits);
      count.UncountBelow(Bytes::Load(leaving + k), limits);
      count.Store(counts + k);
    }
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
void Rank(const RankRows& ranks, size_t size, size_t count) {
  const Bytes middle = Bytes::Set(size * size / 2);
  const size_t pixels = count + size - 1;
  __builtin_memset(ranks.wanted, 0, count);
  __builtin_memset(ranks.below, 0, count);
  for (size_t i = 0; i < ranks.Limits(); ++i) {
    const uint8_t* const counts = ranks.columns + i * ranks.pitch;
    const size_t limit = LimitOf(ranks, i);
    for (size_t k = 0; k < pixels; k += Bytes::kLanes) {
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
template <typename Lanes>
inline Lanes WantedKeys(const uint8_t* const* rows, const RankRows& ranks, size_t size,
                        size_t first, Lanes& below) {
  const Lanes middle = Lanes::Set(size * size / 2);
  const bool ranked = ranks.bits != 0;
  Lanes wanted = ranked ? Lanes::Load(ranks.wanted + first) : Lanes::Set(0);
  below = ranked ? Lanes::Load(ranks.below + first) : Lanes::Set(0);
  for (unsigned bit = 0x80u >> ranks.bits; bit != 0; bit >>= 1) {
    Lanes limit = wanted;
    limit.AddBit(static_cast<uint8_t>(bit));
    const Lanes centered = limit.Centered();
    Lanes count = Lanes::Set(0);
    for (size_t j = 0; j < size; ++j) {
      const uint8_t* const row = rows[j] + first;
      for (size_t i = 0; i < size; ++i) count.CountBelow(Lanes::Load(row + i), centered);
    }
    wanted.TakeWhereAtMost(limit, count, middle);
    below.TakeWhereAtMost(count, count, middle);
  }
  return wanted;
}

/// The wanted taps of the windows from `first` on.
template <typename Lanes>
inline Lanes WantedTaps(const uint8_t* const* rows, const RankRows& ranks, size_t size,
                        size_t first) {
  Lanes below;
  const Lanes wanted = WantedKeys<Lanes>(rows, ranks, size, first, below);
  // The number of the tap among those that have the wanted key, counted from 1: its place is the
  // number of taps up to which there are fewer.
  Lanes number = Lanes::Set(size * size / 2 + 1);
  number.Subtract(below);
  const Lanes key = wanted.Centered(), limit = number.Centered();
  Lanes equal = Lanes::Set(0).Centered();
  Lanes found = Lanes::Set(0);
  for (size_t i = 0; i < size; ++i) {
    for (size_t j = 0; j < size; ++j) {
      equal.CountEqual(Lanes::Load(rows[j] + first + i), key);
      found.CountBelow(equal, limit);
    }
  }
  return found;
}

/// Stores select(first, lanes) for `count` windows, two vectors at a time as long as there are.
template <typename Select>
inline void StoreSelected(uint8_t* dest, size_t count, const Select& select) {
  size_t k = 0;
  for (; k + TwiceBytes::kLanes <= count; k += TwiceBytes::kLanes) {
    select(k, TwiceBytes()).Store(dest + k);
  }
  for (; k < count; k += Bytes::kLanes) {
    alignas(64) uint8_t rest[Bytes::kLanes];
    select(k, Bytes()).Store(rest);
    __builtin_memcpy(dest + k, rest, count - k < Bytes::kLanes ? count - k : Bytes::kLanes);
  }
}

void SelectKeys(uint8_t* keys, const uint8_t* const* rows, const RankRows& ranks, size_t size,
                size_t count) {
  StoreSelected(keys, count, [&]<typename Lanes>(size_t first, Lanes below) {
    return WantedKeys<Lanes>(rows, ranks, size, first, below);
  });
}

void SelectTaps(uint8_t* taps, const uint8_t* const* rows, const RankRows& ranks, size_t size,
                size_t count) {
  StoreSelected(taps, count, [&]<typename Lanes>(size_t first, Lanes) {
    return WantedTaps<Lanes>(rows, ranks, size, first);
  });
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_MEDIAN_SELECTION_ROWS_H_
