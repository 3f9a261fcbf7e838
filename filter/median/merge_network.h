#ifndef QEL_FILTER_MEDIAN_MERGE_NETWORK_H_
#define QEL_FILTER_MEDIAN_MERGE_NETWORK_H_

#include "filter/median/selection_network.h"

namespace qel {
// Computed by the compiler; each kernel source has its own.
namespace {

/// A network of comparators that merges `kA` sorted values with the `kB` sorted ones after them: an
/// odd-even merge (Batcher 1968), without what the values number `kFirst` to `kLast` in the common
/// order do not depend on.
template <size_t kA, size_t kB, size_t kFirst, size_t kLast>
class MergeNetwork {
 public:
  static constexpr size_t kValues = kA + kB;
  constexpr MergeNetwork() {
    Merge({0, kA}, {kA, kB}, 1, places_);
    bool needed[kValues] = {};
    for (size_t i = kFirst; i <= kLast; ++i) needed[places_[i]] = true;
    size_ = PruneComparators(comparators_, size_, needed);
  }
  constexpr size_t size() const { return size_; }
  constexpr const Comparator& operator[](size_t i) const { return comparators_[i]; }
  /// Where value number `i` comes to stand.
  constexpr size_t PlaceOf(size_t i) const { return places_[i]; }

 private:
  /// Every `stride`-th value from `first` on.
  struct Run {
    size_t first;
    size_t count;
  };

  /// Even ones of both runs are merged, and odd ones; then neighbours are compared.
  constexpr void Merge(Run a, Run b, size_t stride, size_t* places) {
    if (a.count + b.count == 0) return;
    if (a.count == 0 || b.count == 0) {
      const Run& run = a.count == 0 ? b : a;
      for (size_t i = 0; i < run.count; ++i) places[i] = run.first + i * stride;
      return;
    }
    if (a.count == 1 && b.count == 1) {
      comparators_[size_++] = {a.first, b.first};
      places[0] = a.first;
      places[1] = b.first;
      return;
    }
    size_t even[kValues] = {};
    size_t odd[kValues] = {};
    Merge({a.first, (a.count + 1) / 2}, {b.first, (b.count + 1) / 2}, 2 * stride, even);
    Merge({a.first + stride, a.count / 2}, {b.first + stride, b.count / 2}, 2 * stride, odd);
    const size_t evens = (a.count + 1) / 2 + (b.count + 1) / 2;
    const size_t odds = a.count / 2 + b.count / 2;
    *places++ = even[0];
    for (size_t i = 0; i < odds || i + 1 < evens; ++i) {
      if (i < odds && i + 1 < evens) comparators_[size_++] = {odd[i], even[i + 1]};
      if (i < odds) *places++ = odd[i];
      if (i + 1 < evens) *places++ = even[i + 1];
    }
  }

  static constexpr size_t kMost = kValues * 8;
  Comparator comparators_[kMost] = {};
  size_t places_[kValues] = {};
  size_t size_ = 0;
};

}  // namespace
}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_MERGE_NETWORK_H_
