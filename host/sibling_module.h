#ifndef QEL_HOST_SIBLING_MODULE_H_
#define QEL_HOST_SIBLING_MODULE_H_

#include "host/host_collection.h"

// What the sibling modules have in common: each is one source file that names its components and
// exports the two entry points.

#define QEL_EXPORT extern "C" __attribute__((visibility("default")))

namespace qel::host {

/// One component of a sibling module.
struct SiblingComponent {
  const wchar_t* name;
  CreationFunction create;
};

/// The creation function of objects that `kMake` returns as a `SmartPtr`.
template <auto kMake>
result_t CreateWith(void* /*reserved*/, const IID* iid, void** object) {
  if (object == nullptr) return kNullOutput;
  *object = nullptr;
  if (iid == nullptr) return kNoInterface;
  return FailWithoutMemory([&] { return kMake()->QueryInterface(*iid, object); });
}

/// Looks a component up, as the entry point "CreateFunction" does.
template <size_t kCount>
result_t FindSiblingComponent(const SiblingComponent (&components)[kCount], tagREFString name,
                              CreationFunction* function) {
  if (function == nullptr) return kNullOutput;
  for (const SiblingComponent& component : components) {
    if (TextOf(name) != component.name) continue;
    *function = component.create;
    return kOk;
  }
  return kFail;
}

}  // namespace qel::host

#endif  // QEL_HOST_SIBLING_MODULE_H_
