#ifndef QEL_COMPONENT_LAZY_HOLDER_H_
#define QEL_COMPONENT_LAZY_HOLDER_H_

#include <atomic>

#include "qel/smart_ptr.h"

namespace qel {

/// Owns one reference that is filled at first need and given back when the library unloads. A race
/// of first fills is harmless: one wins, the others release what they brought.
template <typename T>
class LazyHolder {
 public:
  constexpr LazyHolder() = default;
  LazyHolder(const LazyHolder&) = delete;
  LazyHolder& operator=(const LazyHolder&) = delete;
  ~LazyHolder() { Replace({}); }

  /// The held pointer without a reference of the caller's own, or null.
  T* Get() const { return pointer_.load(std::memory_order_acquire); }

  /// A reference of the caller's own, or empty.
  [[nodiscard]] SmartPtr<T> Share() const { return SmartPtr<T>::Retain(Get()); }

  /// Keeps `pointer` and returns true if nothing is held yet.
  bool FillOnce(SmartPtr<T> pointer) {
    T* empty = nullptr;
    if (!pointer_.compare_exchange_strong(empty, pointer.Get(), std::memory_order_acq_rel)) {
      return false;
    }
    [[maybe_unused]] T* const kept = pointer.Detach();
    return true;
  }

  /// Releases what is held, with the holder already empty, and then holds `pointer`.
  void Replace(SmartPtr<T> pointer) {
    SmartPtr<T>::Adopt(pointer_.exchange(nullptr, std::memory_order_acq_rel)).Reset();
    pointer_.store(pointer.Detach(), std::memory_order_release);
  }

 private:
  std::atomic<T*> pointer_{nullptr};
};

}  // namespace qel

#endif  // QEL_COMPONENT_LAZY_HOLDER_H_
