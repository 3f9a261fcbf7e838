#ifndef QEL_FILTER_BYTE_LANES_H_
#define QEL_FILTER_BYTE_LANES_H_

#include "simd/simd.h"

// Bytes that are counted and compared, for medians. Everything has internal linkage.

namespace qel::QEL_LEVEL {
namespace {

/// `kVectors` vectors of bytes side by side: while one waits for its last sum, another goes on.
template <size_t kVectors>
class ByteLanes {
 public:
  static constexpr size_t kLanes = kVectors * kVectorBytes;
  QEL_SIMD_INLINE static ByteLanes Load(const uint8_t* from) {
    ByteLanes bytes;
    for (size_t i = 0; i < kVectors; ++i) bytes.v_[i] = LoadU<U8>(from + i * kVectorBytes);
    return bytes;
  }
  QEL_SIMD_INLINE static ByteLanes Set(size_t value) {
    ByteLanes bytes;
    for (U8& v : bytes.v_) v = QEL_LEVEL::Set<U8>(static_cast<uint8_t>(value));
    return bytes;
  }
  QEL_SIMD_INLINE void Store(uint8_t* to) const {
    for (size_t i = 0; i < kVectors; ++i) StoreU(v_[i], to + i * kVectorBytes);
  }
  QEL_SIMD_INLINE void AddBit(uint8_t bit) {
    for (U8& v : v_) v |= QEL_LEVEL::Set<U8>(bit);
  }
  QEL_SIMD_INLINE void Add(const ByteLanes& other) {
    for (size_t i = 0; i < kVectors; ++i) v_[i] += other.v_[i];
  }
  QEL_SIMD_INLINE void Subtract(const ByteLanes& other) {
    for (size_t i = 0; i < kVectors; ++i) v_[i] -= other.v_[i];
  }
  /// Lanes less 128: ordered as signed numbers, which all levels compare by one instruction.
  QEL_SIMD_INLINE ByteLanes Centered() const {
    ByteLanes centered;
    for (size_t i = 0; i < kVectors; ++i) centered.v_[i] = v_[i] ^ QEL_LEVEL::Set<U8>(0x80);
    return centered;
  }
  /// Counts lanes of `keys` that are below `limits`, both centered.
  QEL_SIMD_INLINE void CountBelow(const ByteLanes& keys, const ByteLanes& limits) {
    for (size_t i = 0; i < kVectors; ++i) {
      v_[i] = IncrementWhere(IsBelow(keys.v_[i], limits.v_[i]), v_[i]);
    }
  }
  QEL_SIMD_INLINE void UncountBelow(const ByteLanes& keys, const ByteLanes& limits) {
    for (size_t i = 0; i < kVectors; ++i) {
      v_[i] = DecrementWhere(IsBelow(keys.v_[i], limits.v_[i]), v_[i]);
    }
  }
  QEL_SIMD_INLINE void CountEqual(const ByteLanes& keys, const ByteLanes& others) {
    for (size_t i = 0; i < kVectors; ++i) {
      v_[i] = IncrementWhere(keys.v_[i] == others.v_[i], v_[i]);
    }
  }
  /// Takes `from` where `counts` is at most `most`.
  QEL_SIMD_INLINE void TakeWhereAtMost(const ByteLanes& from, const ByteLanes& counts,
                                       const ByteLanes& most) {
    for (size_t i = 0; i < kVectors; ++i) {
      v_[i] = IfThenElse(counts.v_[i] <= most.v_[i], from.v_[i], v_[i]);
    }
  }

 private:
  QEL_SIMD_INLINE static Mask<U8> IsBelow(U8 a, U8 b) {
    return {(BitCast<I8>(a) < BitCast<I8>(b)).raw};
  }

  U8 v_[kVectors];
};
using Bytes = ByteLanes<1>;
using TwiceBytes = ByteLanes<2>;

/// Bit i is set where keys[i] is `key`, of the first `length` keys. Reads a whole vector.
QEL_SIMD_INLINE uint64_t EqualBits(const uint8_t* keys, size_t length, uint8_t key) {
  const uint64_t valid = length >= 64 ? ~uint64_t{0} : (uint64_t{1} << length) - 1;
  return BitsEqual(LoadU<U8>(keys), Set<U8>(key)) & valid;
}

inline size_t CountEqual(const uint8_t* keys, size_t length, uint8_t key) {
  size_t count = 0;
  for (size_t i = 0; i < length; i += kVectorBytes) {
    count += static_cast<size_t>(__builtin_popcountll(EqualBits(keys + i, length - i, key)));
  }
  return count;
}
/// Where `key` stands for the time number `number`, counted from 0; `length` when not so often.
inline size_t FindEqual(const uint8_t* keys, size_t length, uint8_t key, size_t number) {
  for (size_t i = 0; i < length; i += kVectorBytes) {
    uint64_t bits = EqualBits(keys + i, length - i, key);
    const auto found = static_cast<size_t>(__builtin_popcountll(bits));
    if (number < found) {
      // Mostly there are few before it, but processors would guess wrong how many.
      constexpr size_t kFew = 4;
      for (size_t k = 0; k < kFew; ++k) bits &= bits - uint64_t{number > k};
      for (; number > kFew; --number) bits &= bits - 1;
      return i + static_cast<size_t>(__builtin_ctzll(bits));
    }
    number -= found;
  }
  return length;
}

}  // namespace
}  // namespace qel::QEL_LEVEL

#endif  // QEL_FILTER_BYTE_LANES_H_
