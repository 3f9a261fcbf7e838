#ifndef QEL_ENTRY_H_
#define QEL_ENTRY_H_

#include "qel/host.h"

namespace qel {

/// Creates one object of a component. `reserved` is null.
/// Result: kOk with one reference in `*object` for the caller; kNoInterface for an interface that
/// the component does not answer, kFail without memory, both with `*object` null; kNullOutput for a
/// null `object`. Threads: any.
using CreationFunction = result_t (*)(void* reserved, const IID* iid, void** object);

/// Exported by every module as "InitializeModule". The module keeps one reference to `collection`,
/// which may be null, and gives back the one it held; objects that it made do not keep it.
/// Result: kOk. Threads: one, while no other thread is in the module; call it before the module's
/// components are used.
using InitializeModuleFunction = result_t (*)(void* reserved, IComponentCollection* collection);

/// Exported by every module as "CreateFunction". Writes the creation function of the component
/// `name` to `*function`, valid while the module is loaded.
/// Result: kOk; kFail for an unknown name, `*function` then untouched; kNullOutput for a null
/// `function`. Threads: any.
using CreateFunctionFunction = result_t (*)(tagREFString name, CreationFunction* function);

inline constexpr char kInitializeModuleSymbol[] = "InitializeModule";
inline constexpr char kCreateFunctionSymbol[] = "CreateFunction";

// Object names of this module's components.
inline constexpr wchar_t kColorTransformName[] = L"QELColorTransform";
inline constexpr wchar_t kTransformName[] = L"QELTransform";
inline constexpr wchar_t kDeformName[] = L"QELDeform";
inline constexpr wchar_t kFilterTransformName[] = L"QELFilterTransform";
inline constexpr wchar_t kMathsName[] = L"QELMaths";

// Names of the host's components: images, strings, and, where a module has got no collection, the
// collection and the locators that the sibling module CollectionsEx makes.
inline constexpr wchar_t kImageComponentName[] = L"QELImageDIB";
inline constexpr wchar_t kStringComponentName[] = L"CreatableString";
inline constexpr wchar_t kCollectionComponentName[] = L"GlobalComponentCollection";
inline constexpr wchar_t kLocatorComponentName[] = L"ComponentString";

/// View of a string literal, without its terminator.
template <uint64_t kSize>
constexpr tagREFString RefString(const wchar_t (&text)[kSize]) {
  return tagREFString{kSize - 1, text};
}

}  // namespace qel

#endif  // QEL_ENTRY_H_
