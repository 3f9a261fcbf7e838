#ifndef QEL_HOST_MODULE_LIBRARY_H_
#define QEL_HOST_MODULE_LIBRARY_H_

#include <stdexcept>
#include <string>
#include <string_view>

#include "qel/entry.h"
#include "qel/smart_ptr.h"

namespace qel::host {

/// A module could not be loaded or lacks something; the message says which step failed.
class ModuleError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A loaded module library. Closes it at the end, after the module has given the collection back;
/// objects and images of the module must be gone by then.
class ModuleLibrary {
 public:
  /// Loads the library at `path` and finds its two entry points. Throws `ModuleError`.
  explicit ModuleLibrary(const std::string& path);
  ModuleLibrary(ModuleLibrary&& other) noexcept;
  ModuleLibrary& operator=(ModuleLibrary&&) = delete;
  ~ModuleLibrary();

  /// Hands the host's collection over. Call it before components are created.
  void Initialize(IComponentCollection* collection) const;

  /// The creation function of a component, or null.
  CreationFunction Find(tagREFString component) const;

  /// Creates a component and asks for interface `Interface`. Throws `ModuleError`.
  template <typename Interface>
  SmartPtr<Interface> Create(tagREFString component) const {
    SmartPtr<Interface> object;
    CreateObject(component, *kIidOf<Interface>, object.PutVoid());
    return object;
  }

 private:
  void CreateObject(tagREFString component, const IID& iid, void** object) const;

  std::string path_;
  void* library_ = nullptr;
  InitializeModuleFunction initialize_ = nullptr;
  CreateFunctionFunction create_function_ = nullptr;
};

/// The creation function of a component in the module "./_binLIN64/" + `module` + ".so", relative
/// to the working directory, or null. The module gets `collection` first, stays loaded, and is
/// looked for again at the next call when it was not there.
CreationFunction FindInSiblingModule(std::wstring_view module, tagREFString component,
                                     IComponentCollection* collection);

}  // namespace qel::host

#endif  // QEL_HOST_MODULE_LIBRARY_H_
