#include "component/host_services.h"
#include "module/factory.h"

// The module's entry points and its one piece of state.

#define QEL_EXPORT extern "C" __attribute__((visibility("default")))

namespace qel {

constinit LazyHolder<IComponentCollection> gGlobalComponentCollection;

}  // namespace qel

QEL_EXPORT qel::result_t InitializeModule(void* /*reserved*/,
                                          qel::IComponentCollection* collection) {
  // The new reference is taken before the old one is given back: the same collection may come
  // again.
  qel::gGlobalComponentCollection.Replace(
      qel::SmartPtr<qel::IComponentCollection>::Retain(collection));
  return qel::kOk;
}

QEL_EXPORT qel::result_t CreateFunction(qel::tagREFString name, qel::CreationFunction* function) {
  const qel::CreationFunction found = qel::FindComponent(name);
  if (found == nullptr) return qel::kFail;
  if (function == nullptr) return qel::kNullOutput;
  *function = found;
  return qel::kOk;
}
