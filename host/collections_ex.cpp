// The module "CollectionsEx": the component collection of a process in which no program handed one
// over, and component locators.

#include "host/sibling_module.h"

namespace qel::host {
namespace {

/// The collection that the program handed over, if any.
SmartPtr<IComponentCollection>& Given() {
  static SmartPtr<IComponentCollection> given;
  return given;
}

/// The collection of the process. Images live here; strings come from the module "Collections".
IComponentCollection* ProcessCollection() {
  static const SmartPtr<HostCollection> own = [] {
    SmartPtr<HostCollection> made = HostCollection::Make();
    made->OfferImages({.clear = true});
    return made;
  }();
  return Given() ? Given().Get() : own.Get();
}

result_t CreateCollection(void* /*reserved*/, const IID* iid, void** object) {
  return ProcessCollection()->QueryInterface(*iid, object);
}

result_t CreateLocator(void* /*reserved*/, const IID* iid, void** object) {
  return HostLocator::Make(ProcessCollection(), {})->QueryInterface(*iid, object);
}

constexpr SiblingComponent kComponents[] = {
    {L"GlobalComponentCollection", &CreateCollection},
    {L"ComponentString", &CreateLocator},
};

}  // namespace
}  // namespace qel::host

QEL_EXPORT qel::result_t InitializeModule(void* /*reserved*/,
                                          qel::IComponentCollection* collection) {
  qel::host::Given() = qel::SmartPtr<qel::IComponentCollection>::Retain(collection);
  return qel::kOk;
}

QEL_EXPORT qel::result_t CreateFunction(qel::tagREFString name, qel::CreationFunction* function) {
  return qel::host::FindSiblingComponent(qel::host::kComponents, name, function);
}
