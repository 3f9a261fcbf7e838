#ifndef QEL_HOST_HOST_OBJECT_H_
#define QEL_HOST_HOST_OBJECT_H_

#include <atomic>
#include <new>

#include "qel/unknown.h"

namespace qel::host {

/// Reference counting and lookup for an object with one chain of interfaces: `Interface` and those
/// of its `Bases` that it answers for. Created with one reference.
template <typename Interface, typename... Bases>
class HostObject : public Interface {
 public:
  result_t QueryInterface(const IID& iid, void** object) override {
    if (object == nullptr) return kNullOutput;
    *object = nullptr;
    const bool answers =
        iid == IID_IUnknown || iid == *kIidOf<Interface> || (... || (iid == *kIidOf<Bases>));
    if (!answers) return kNoInterface;
    this->AddRef();
    *object = static_cast<Interface*>(this);
    return kOk;
  }
  uint32_t AddRef() override { return count_.fetch_add(1, std::memory_order_relaxed) + 1; }
  uint32_t Release() override {
    const uint32_t left = count_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    if (left == 0) delete this;
    return left;
  }

 protected:
  HostObject() = default;
  HostObject(const HostObject&) = delete;
  HostObject& operator=(const HostObject&) = delete;
  virtual ~HostObject() = default;

 private:
  std::atomic<uint32_t> count_{1};
};

/// Runs the body of an interface function: callers get a result when memory runs out.
template <typename Body>
result_t FailWithoutMemory(Body&& body) {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return kFail;
  }
}

}  // namespace qel::host

#endif  // QEL_HOST_HOST_OBJECT_H_
