#ifndef QEL_COMPONENT_OBJECT_H_
#define QEL_COMPONENT_OBJECT_H_

#include <atomic>
#include <new>

#include "qel/entry.h"
#include "qel/unknown.h"

namespace qel {

// Every component is one object of 32 bytes: the primary table pointer at 0, the reference count at
// 8, the IObjectInfo table pointer at 16 and the own interface's at 24. The primary table holds the
// three IUnknown slots, the four hooks below, and from slot 7 the operations of the component class
// in their order of declaration there.

/// Reference count, life-cycle hooks and creation of component class `T`.
template <typename T>
class CObject : public IUnknown {
 public:
  // Slots 3 to 6 of the primary table; hooks that none of the components needs.
  virtual result_t FinalConstruct() { return kOk; }
  virtual void FinalRelease() {}
  virtual void Lock() {}
  virtual void Unlock() {}

  /// Creates one object and hands out its interface `*iid`; see `CreationFunction`.
  /// Result: kFail when there is no memory.
  static result_t _CreateInstance(void* reserved, const IID* iid, void** object);

 protected:
  CObject() = default;
  ~CObject() = default;
  CObject(const CObject&) = delete;
  CObject& operator=(const CObject&) = delete;

  uint32_t AddReference() {
    count_.fetch_add(1, std::memory_order_relaxed);
    return count_.load(std::memory_order_relaxed);
  }
  uint32_t ReleaseReference();

 private:
  /// What is created and deleted as a `T`.
  struct Whole;

  std::atomic<uint32_t> count_{1};
};

/// Name of component class `T`, which provides it as `m_ObjectName`.
template <typename T>
class IObjectInfoImpl : public IObjectInfo {
 public:
  result_t GetName(int /*index*/, tagREFString* name) override {
    if (name == nullptr) return kNullOutput;
    *name = T::m_ObjectName;
    return kOk;
  }

 protected:
  ~IObjectInfoImpl() = default;
};

/// The bases of component class `T` with interface `Interface`, in the order of the object layout.
///
/// No `T` is final: operations that build on another one of their class call it through the
/// object's table, where whoever replaces a slot changes them too; of a final class the compiler
/// would know the function. Tables have no place for a destructor, so that of `T` is protected.
template <typename T, typename Interface>
class Component : public CObject<T>, public IObjectInfoImpl<T>, public Interface {
 public:
  result_t QueryInterface(const IID& iid, void** object) final {
    if (object == nullptr) return kNullOutput;
    IUnknown* const primary = static_cast<CObject<T>*>(this);
    void* found = nullptr;
    if (iid == IID_IUnknown) {
      found = primary;
    } else if (iid == IID_IObjectInfo) {
      found = static_cast<IObjectInfo*>(this);
    } else if (iid == *kIidOf<Interface>) {
      found = static_cast<Interface*>(this);
    }
    *object = found;
    if (found == nullptr) return kNoInterface;
    AddRef();
    return kOk;
  }
  uint32_t AddRef() final { return this->AddReference(); }
  uint32_t Release() final { return this->ReleaseReference(); }

 protected:
  ~Component() = default;
};

template <typename T>
struct CObject<T>::Whole final : T {};

template <typename T>
uint32_t CObject<T>::ReleaseReference() {
  // The decision follows the value that the decrement itself brings: a second read could see zero
  // in two threads at once.
  const uint32_t count = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
  if (count != 0) return count;
  FinalRelease();
  delete static_cast<Whole*>(this);
  return 0;
}

template <typename T>
result_t CObject<T>::_CreateInstance(void* /*reserved*/, const IID* iid, void** object) {
  if (object == nullptr) return kNullOutput;
  *object = nullptr;
  if (iid == nullptr) return kNoInterface;
  auto* const created = new (std::nothrow) Whole;
  if (created == nullptr) return kFail;
  const result_t result = created->QueryInterface(*iid, object);
  if (result == kOk) {
    created->Release();
    return kOk;
  }
  created->FinalRelease();
  delete created;
  return result;
}

}  // namespace qel

#endif  // QEL_COMPONENT_OBJECT_H_
