// A module "CollectionsEx" whose components are those of the collection that was handed over.

#include "host/sibling_module.h"

namespace {

qel::IComponentCollection* given = nullptr;
qel::tagREFString asked_for = {};

qel::result_t Forward(void* /*reserved*/, const qel::IID* iid, void** object) {
  return given->CreateComponent(asked_for, iid, object);
}

}  // namespace

QEL_EXPORT qel::result_t InitializeModule(void* /*reserved*/,
                                          qel::IComponentCollection* collection) {
  given = collection;
  return qel::kOk;
}

QEL_EXPORT qel::result_t CreateFunction(qel::tagREFString name, qel::CreationFunction* function) {
  asked_for = name;
  *function = &Forward;
  return qel::kOk;
}
