#ifndef QEL_FILTER_MEDIAN_SELECTION_NETWORK_H_
#define QEL_FILTER_MEDIAN_SELECTION_NETWORK_H_

#include <cstddef>

namespace qel {
// Computed by the compiler; each kernel source has its own.
namespace {

struct Comparator {
  size_t low = 0;  ///< takes the smaller value
  size_t high = 0;
  bool needs_low = false;
  bool needs_high = false;
};

/// Leaves out what the values `needed` at the end do not depend on, and returns how many are left
/// of `size` comparators.
template <size_t kMost, size_t kValues>
constexpr size_t PruneComparators(Comparator (&comparators)[kMost], size_t size,
                                  bool (&needed)[kValues]) {
  size_t kept = kMost;
  while (size > 0) {
    Comparator comparator = comparators[--size];
    comparator.needs_low = needed[comparator.low];
    comparator.needs_high = needed[comparator.high];
    if (!comparator.needs_low && !comparator.needs_high) continue;
    needed[comparator.low] = needed[comparator.high] = true;
    comparators[--kept] = comparator;
  }
  for (; kept < kMost; ++kept) comparators[size++] = comparators[kept];
  return size;
}

/// A network of comparators that brings those of `kTaps` values to their places that are number
/// `kFirst` to `kLast` in their order: a sorting network by merge exchange (Batcher 1968), without
/// the comparators and half comparators that do not matter.
template <size_t kTaps, size_t kFirst, size_t kLast>
class SelectionNetwork {
 public:
  constexpr SelectionNetwork() {
    Sort();
    bool needed[kTaps] = {};
    for (size_t i = kFirst; i <= kLast; ++i) needed[i] = true;
    size_ = PruneComparators(comparators_, size_, needed);
  }
  constexpr size_t size() const { return size_; }
  constexpr const Comparator& operator[](size_t i) const { return comparators_[i]; }

 private:
  constexpr void Sort() {
    size_t top = 1;
    while (2 * top < kTaps) top *= 2;
    for (size_t distance = top; distance > 0; distance /= 2) {
      size_t bits = 0;
      for (size_t step = top, gap = distance;; step /= 2) {
        for (size_t i = 0; i + gap < kTaps; ++i) {
          if ((i & distance) == bits) comparators_[size_++] = {i, i + gap};
        }
        if (step == distance) break;
        gap = step - distance;
        bits = distance;
      }
    }
  }

  static constexpr size_t kMost = kTaps * kTaps;
  Comparator comparators_[kMost] = {};
  size_t size_ = 0;
};

}  // namespace
}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_SELECTION_NETWORK_H_
