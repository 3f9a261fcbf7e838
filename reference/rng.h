#ifndef QEL_REFERENCE_RNG_H_
#define QEL_REFERENCE_RNG_H_

#include <cstdint>
#include <span>

namespace qel::reference {

/// Small deterministic generator of our own: `rand` belongs to the operations under test. Bytes
/// from elsewhere, of a fuzzer, can decide the first draws.
class Rng {
 public:
  explicit Rng(uint64_t seed) : state_(seed * 0x9E3779B97F4A7C15u + 1) {}
  explicit Rng(std::span<const uint8_t> bytes) : state_(bytes.size()), bytes_(bytes) {}

  uint32_t Next() {
    if (bytes_.size() >= 2) {
      const uint32_t drawn = bytes_[0] | uint32_t{bytes_[1]} << 8;
      bytes_ = bytes_.subspan(2);
      // Small values stay small, and all bits are there for floats.
      return drawn | drawn << 16;
    }
    state_ += 0x9E3779B97F4A7C15u;
    uint64_t z = state_;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return static_cast<uint32_t>(z >> 32);
  }
  /// A whole number from `low` to `high`, both included.
  int Int(int low, int high) {
    const auto range = static_cast<uint64_t>(int64_t{high} - low + 1);
    return static_cast<int>(low + static_cast<int64_t>(Next() % range));
  }
  bool OneIn(int n) { return Int(1, n) == 1; }
  float Float(float low, float high) {
    return low + (high - low) * static_cast<float>(Next() >> 8) * 0x1p-24f;
  }

 private:
  uint64_t state_;
  std::span<const uint8_t> bytes_;
};

}  // namespace qel::reference

#endif  // QEL_REFERENCE_RNG_H_
