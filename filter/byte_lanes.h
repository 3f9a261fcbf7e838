#ifndef QEL_FILTER_BYTE_LANES_H_
#define QEL_FILTER_BYTE_LANES_H_

// Vectors of bytes for counting and comparing, at the level that QEL_LEVEL names. Everything has
// internal linkage.

#include <cstddef>
#include <cstdint>

#ifndef QEL_LEVEL_sse2
#include <immintrin.h>
#endif

namespace qel::QEL_LEVEL {
namespace {

#if defined(QEL_LEVEL_sse2)

/// Byte lanes as plain arrays.
class Bytes {
 public:
  static constexpr size_t kLanes = 64;
  static Bytes Load(const uint8_t* from) {
    Bytes bytes;
    for (size_t i = 0; i < kLanes; ++i) bytes.lanes_[i] = from[i];
    return bytes;
  }
  static Bytes Set(size_t value) {
    Bytes bytes;
    for (uint8_t& lane : bytes.lanes_) lane = static_cast<uint8_t>(value);
    return bytes;
  }
  void Store(uint8_t* to) const {
    for (size_t i = 0; i < kLanes; ++i) to[i] = lanes_[i];
  }
  void AddBit(uint8_t bit) {
    for (uint8_t& lane : lanes_) lane = static_cast<uint8_t>(lane | bit);
  }
  /// Counts lanes of `keys` that are below `limits`.
  void CountBelow(const Bytes& keys, const Bytes& limits) {
    for (size_t i = 0; i < kLanes; ++i) {
      lanes_[i] = static_cast<uint8_t>(lanes_[i] + (keys.lanes_[i] < limits.lanes_[i] ? 1 : 0));
    }
  }
  void UncountBelow(const Bytes& keys, const Bytes& limits) {
    for (size_t i = 0; i < kLanes; ++i) {
      lanes_[i] = static_cast<uint8_t>(lanes_[i] - (keys.lanes_[i] < limits.lanes_[i] ? 1 : 0));
    }
  }
  /// Takes `from` where `counts` is at most `most`.
  void TakeWhereAtMost(const Bytes& from, const Bytes& counts, const Bytes& most) {
    for (size_t i = 0; i < kLanes; ++i) {
      lanes_[i] = counts.lanes_[i] <= most.lanes_[i] ? from.lanes_[i] : lanes_[i];
    }
  }
  /// The lanes are tap numbers among equals: where `keys` and `wanted` agree, a lane of 0 sends
  /// `place` to `found`, and each counts one down.
  void CountDown(const Bytes& keys, const Bytes& wanted, const Bytes& place, Bytes& found) {
    for (size_t i = 0; i < kLanes; ++i) {
      const bool equal = keys.lanes_[i] == wanted.lanes_[i];
      found.lanes_[i] = equal && lanes_[i] == 0 ? place.lanes_[i] : found.lanes_[i];
      lanes_[i] = static_cast<uint8_t>(lanes_[i] - (equal ? 1 : 0));
    }
  }
  void Add(const Bytes& other) {
    for (size_t i = 0; i < kLanes; ++i) {
      lanes_[i] = static_cast<uint8_t>(lanes_[i] + other.lanes_[i]);
    }
  }
  void Subtract(const Bytes& other) {
    for (size_t i = 0; i < kLanes; ++i) {
      lanes_[i] = static_cast<uint8_t>(lanes_[i] - other.lanes_[i]);
    }
  }

 private:
  uint8_t lanes_[kLanes];
};

inline size_t CountEqual(const uint8_t* keys, size_t length, uint8_t key) {
  size_t count = 0;
  for (size_t i = 0; i < length; ++i) count += keys[i] == key ? 1 : 0;
  return count;
}
/// Where `key` stands for the time number `number`, counted from 0; `length` when not so often.
inline size_t FindEqual(const uint8_t* keys, size_t length, uint8_t key, int64_t number) {
  for (size_t i = 0; i < length; ++i) {
    if (keys[i] == key && number-- == 0) return i;
  }
  return length;
}

#elif defined(QEL_LEVEL_avx2)

class Bytes {
 public:
  static constexpr size_t kLanes = 32;
  static Bytes Load(const uint8_t* from) {
    return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from))};
  }
  static Bytes Set(size_t value) { return {_mm256_set1_epi8(static_cast<char>(value))}; }
  void Store(uint8_t* to) const { _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), lanes_); }
  void AddBit(uint8_t bit) { lanes_ = _mm256_or_si256(lanes_, Set(bit).lanes_); }
  void CountBelow(Bytes keys, Bytes limits) {
    const __m256i not_below =
        _mm256_cmpeq_epi8(_mm256_max_epu8(keys.lanes_, limits.lanes_), keys.lanes_);
    lanes_ = _mm256_sub_epi8(lanes_, _mm256_xor_si256(not_below, _mm256_set1_epi8(-1)));
  }
  void UncountBelow(Bytes keys, Bytes limits) {
    const __m256i not_below =
        _mm256_cmpeq_epi8(_mm256_max_epu8(keys.lanes_, limits.lanes_), keys.lanes_);
    lanes_ = _mm256_add_epi8(lanes_, _mm256_xor_si256(not_below, _mm256_set1_epi8(-1)));
  }
  void TakeWhereAtMost(Bytes from, Bytes counts, Bytes most) {
    const __m256i at_most =
        _mm256_cmpeq_epi8(_mm256_min_epu8(counts.lanes_, most.lanes_), counts.lanes_);
    lanes_ = _mm256_blendv_epi8(lanes_, from.lanes_, at_most);
  }
  void CountDown(Bytes keys, Bytes wanted, Bytes place, Bytes& found) {
    const __m256i equal = _mm256_cmpeq_epi8(keys.lanes_, wanted.lanes_);
    const __m256i here = _mm256_cmpeq_epi8(lanes_, _mm256_setzero_si256());
    found.lanes_ = _mm256_blendv_epi8(found.lanes_, place.lanes_, _mm256_and_si256(equal, here));
    lanes_ = _mm256_add_epi8(lanes_, equal);
  }
  void Add(Bytes other) { lanes_ = _mm256_add_epi8(lanes_, other.lanes_); }
  void Subtract(Bytes other) { lanes_ = _mm256_sub_epi8(lanes_, other.lanes_); }

  __m256i lanes_;
};

inline uint64_t EqualBits(const uint8_t* keys, size_t length, uint8_t key) {
  const __m256i equal =
      _mm256_cmpeq_epi8(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(keys)),
                        _mm256_set1_epi8(static_cast<char>(key)));
  const uint32_t valid = length >= 32 ? ~0u : (1u << length) - 1;
  return static_cast<uint32_t>(_mm256_movemask_epi8(equal)) & valid;
}

#else

class Bytes {
 public:
  static constexpr size_t kLanes = 64;
  static Bytes Load(const uint8_t* from) { return {_mm512_loadu_si512(from)}; }
  static Bytes Set(size_t value) { return {_mm512_set1_epi8(static_cast<char>(value))}; }
  void Store(uint8_t* to) const { _mm512_storeu_si512(to, lanes_); }
  void AddBit(uint8_t bit) { lanes_ = _mm512_or_si512(lanes_, Set(bit).lanes_); }
  void CountBelow(Bytes keys, Bytes limits) {
    const __mmask64 below = _mm512_cmplt_epu8_mask(keys.lanes_, limits.lanes_);
    lanes_ = _mm512_mask_add_epi8(lanes_, below, lanes_, Set(1).lanes_);
  }
  void UncountBelow(Bytes keys, Bytes limits) {
    const __mmask64 below = _mm512_cmplt_epu8_mask(keys.lanes_, limits.lanes_);
    lanes_ = _mm512_mask_sub_epi8(lanes_, below, lanes_, Set(1).lanes_);
  }
  void TakeWhereAtMost(Bytes from, Bytes counts, Bytes most) {
    const __mmask64 at_most = _mm512_cmple_epu8_mask(counts.lanes_, most.lanes_);
    lanes_ = _mm512_mask_mov_epi8(lanes_, at_most, from.lanes_);
  }
  void CountDown(Bytes keys, Bytes wanted, Bytes place, Bytes& found) {
    const __mmask64 equal = _mm512_cmpeq_epi8_mask(keys.lanes_, wanted.lanes_);
    const __mmask64 here = _mm512_mask_cmpeq_epi8_mask(equal, lanes_, _mm512_setzero_si512());
    found.lanes_ = _mm512_mask_mov_epi8(found.lanes_, here, place.lanes_);
    lanes_ = _mm512_mask_sub_epi8(lanes_, equal, lanes_, Set(1).lanes_);
  }
  void Add(Bytes other) { lanes_ = _mm512_add_epi8(lanes_, other.lanes_); }
  void Subtract(Bytes other) { lanes_ = _mm512_sub_epi8(lanes_, other.lanes_); }

  __m512i lanes_;
};

inline uint64_t EqualBits(const uint8_t* keys, size_t length, uint8_t key) {
  const __mmask64 valid = length >= 64 ? ~__mmask64{0} : (__mmask64{1} << length) - 1;
  return _mm512_mask_cmpeq_epi8_mask(valid, _mm512_loadu_si512(keys),
                                     _mm512_set1_epi8(static_cast<char>(key)));
}

#endif

#ifndef QEL_LEVEL_sse2

inline size_t CountEqual(const uint8_t* keys, size_t length, uint8_t key) {
  size_t count = 0;
  for (size_t i = 0; i < length; i += Bytes::kLanes) {
    count += static_cast<size_t>(__builtin_popcountll(EqualBits(keys + i, length - i, key)));
  }
  return count;
}
/// Where `key` stands for the time number `number`, counted from 0; `length` when not so often.
inline size_t FindEqual(const uint8_t* keys, size_t length, uint8_t key, int64_t number) {
  for (size_t i = 0; i < length; i += Bytes::kLanes) {
    uint64_t bits = EqualBits(keys + i, length - i, key);
    const int64_t found = __builtin_popcountll(bits);
    if (number < found) {
      for (; number > 0; --number) bits &= bits - 1;
      return i + static_cast<size_t>(__builtin_ctzll(bits));
    }
    number -= found;
  }
  return length;
}

#endif

/// Two vectors side by side: while one waits for its last sum, the other one goes on.
class TwiceBytes {
 public:
  static constexpr size_t kLanes = 2 * Bytes::kLanes;
  static TwiceBytes Load(const uint8_t* from) {
    return {Bytes::Load(from), Bytes::Load(from + Bytes::kLanes)};
  }
  static TwiceBytes Set(size_t value) { return {Bytes::Set(value), Bytes::Set(value)}; }
  void Store(uint8_t* to) const {
    first_.Store(to);
    second_.Store(to + Bytes::kLanes);
  }
  void AddBit(uint8_t bit) {
    first_.AddBit(bit);
    second_.AddBit(bit);
  }
  void CountBelow(const TwiceBytes& keys, const TwiceBytes& limits) {
    first_.CountBelow(keys.first_, limits.first_);
    second_.CountBelow(keys.second_, limits.second_);
  }
  void TakeWhereAtMost(const TwiceBytes& from, const TwiceBytes& counts, const TwiceBytes& most) {
    first_.TakeWhereAtMost(from.first_, counts.first_, most.first_);
    second_.TakeWhereAtMost(from.second_, counts.second_, most.second_);
  }
  void CountDown(const TwiceBytes& keys, const TwiceBytes& wanted, const TwiceBytes& place,
                 TwiceBytes& found) {
    first_.CountDown(keys.first_, wanted.first_, place.first_, found.first_);
    second_.CountDown(keys.second_, wanted.second_, place.second_, found.second_);
  }
  void Subtract(const TwiceBytes& other) {
    first_.Subtract(other.first_);
    second_.Subtract(other.second_);
  }

  Bytes first_;
  Bytes second_;
};

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_BYTE_LANES_H_
