// The module "Collections": strings.

#include "host/sibling_module.h"

namespace qel::host {
namespace {

constexpr SiblingComponent kComponents[] = {{kStringComponentName, &CreateWith<&HostString::Make>}};

}  // namespace
}  // namespace qel::host

QEL_EXPORT qel::result_t InitializeModule(void* /*reserved*/,
                                          qel::IComponentCollection* /*collection*/) {
  return qel::kOk;  // strings need nothing of the host
}

QEL_EXPORT qel::result_t CreateFunction(qel::tagREFString name, qel::CreationFunction* function) {
  return qel::host::FindSiblingComponent(qel::host::kComponents, name, function);
}
