// The module "CollectionsEx": the component collection of a process in which no program handed one
// over, and component locators.

#include "host/sibling_module.h"

namespace qel::host {
namespace {

/// The collection that was handed over, if any.
SmartPtr<IComponentCollection>& Given() {
  static SmartPtr<IComponentCollection> given;
  return given;
}

/// The collection of the process: the one handed over, else one of this module's own, which lasts.
/// It offers images; strings come from the module "Collections".
SmartPtr<IComponentCollection> ProcessCollection() {
  if (Given()) return Given();
  static const SmartPtr<HostCollection> own = [] {
    SmartPtr<HostCollection> made = HostCollection::Make();
    made->OfferImages({.clear = true});
    return made;
  }();
  return SmartPtr<IComponentCollection>::Retain(own.Get());
}

SmartPtr<HostLocator> MakeLocator() { return HostLocator::Make(ProcessCollection().Get(), {}); }

constexpr SiblingComponent kComponents[] = {
    {kCollectionComponentName, &CreateWith<&ProcessCollection>},
    {kLocatorComponentName, &CreateWith<&MakeLocator>},
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
