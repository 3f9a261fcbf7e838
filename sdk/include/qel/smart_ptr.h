#ifndef QEL_SMART_PTR_H_
#define QEL_SMART_PTR_H_

#include <utility>

#include "qel/unknown.h"

namespace qel {

/// Owns one reference to an interface, or none. The holder is already null when `Release` runs, so
/// a release that finds its way back here sees an empty holder.
template <typename T>
class SmartPtr {
 public:
  constexpr SmartPtr() = default;
  SmartPtr(SmartPtr&& other) noexcept : pointer_(other.Detach()) {}
  SmartPtr(const SmartPtr& other) : pointer_(other.pointer_) {
    if (pointer_ != nullptr) pointer_->AddRef();
  }
  SmartPtr& operator=(SmartPtr other) noexcept {
    std::swap(pointer_, other.pointer_);
    return *this;
  }
  ~SmartPtr() { Reset(); }

  /// Takes over a reference that the caller owns.
  static SmartPtr Adopt(T* pointer) { return SmartPtr(pointer); }
  /// Adds a reference of its own; the caller keeps his.
  static SmartPtr Retain(T* pointer) {
    if (pointer != nullptr) pointer->AddRef();
    return SmartPtr(pointer);
  }

  T* Get() const { return pointer_; }
  T* operator->() const { return pointer_; }
  T& operator*() const { return *pointer_; }
  explicit operator bool() const { return pointer_ != nullptr; }

  /// Empties the holder and yields its address for an output argument that brings a reference.
  T** Put() {
    Reset();
    return &pointer_;
  }
  /// As `Put`, for the untyped outputs of creation and `QueryInterface`.
  void** PutVoid() { return reinterpret_cast<void**>(Put()); }

  /// Hands the reference to the caller and leaves the holder empty.
  [[nodiscard]] T* Detach() { return std::exchange(pointer_, nullptr); }

  void Reset() {
    T* const old = Detach();
    if (old != nullptr) old->Release();
  }

 private:
  explicit SmartPtr(T* pointer) : pointer_(pointer) {}

  T* pointer_ = nullptr;
};

/// Asks `object` for interface `U`; the pointer that comes back decides, not the result code.
template <typename U>
[[nodiscard]] SmartPtr<U> QueryFor(IUnknown* object) {
  SmartPtr<U> answer;
  if (object != nullptr) object->QueryInterface(*kIidOf<U>, answer.PutVoid());
  return answer;
}

}  // namespace qel

#endif  // QEL_SMART_PTR_H_
