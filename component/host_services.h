#ifndef QEL_COMPONENT_HOST_SERVICES_H_
#define QEL_COMPONENT_HOST_SERVICES_H_

#include "component/lazy_holder.h"
#include "qel/entry.h"
#include "qel/image.h"

namespace qel {

// The module makes neither images nor strings itself: it obtains them from the host's components.
// Pointers that come back hold one reference for the caller; they are empty when the host has no
// such thing. First use from one thread, or `InitializeModule` first, is what hosts are asked for.

/// The host's component collection, from `InitializeModule` or found at first need.
extern LazyHolder<IComponentCollection> gGlobalComponentCollection;

/// Loads the module library "./_binLIN64/" + `module` + ".so", relative to the working directory,
/// shares the collection with it, and asks it for the creation function of `component`.
/// Null when there is no such library (said on standard output) or component. Libraries stay
/// loaded.
CreationFunction MODULECreateFunction(tagREFString module, tagREFString component);

/// The host's collection; when none was handed over, that of the module "CollectionsEx".
SmartPtr<IComponentCollection> GLOBALComponents();

/// The locator of the component called `name`.
SmartPtr<IComponentString> GetComponentString(IString* name);

/// Strings of the host.
struct CREFString {
  /// A new, empty string.
  static SmartPtr<ICreatableString> CreateString();
};

/// Images of the host.
struct QELObject {
  /// A new image through the collection.
  static SmartPtr<IQELImage> CreateImage();
  /// A new image through the component's locator, which is looked up once per process.
  static SmartPtr<IQELImageDIB> CreateImageDIB();
};

}  // namespace qel

#endif  // QEL_COMPONENT_HOST_SERVICES_H_
