#ifndef QEL_HOST_MODULE_LIBRARY_H_
#define QEL_HOST_MODULE_LIBRARY_H_

#include <filesystem>
#include <memory>
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

/// A loaded module library. At the end the module gives the collection back and the library is
/// closed: objects that it made must be gone by then.
class ModuleLibrary {
 public:
  /// Loads the library at `path`, relative to the working directory, and finds its two entry
  /// points. Throws `ModuleError`.
  explicit ModuleLibrary(const std::filesystem::path& path);
  ModuleLibrary(ModuleLibrary&&) = default;
  ModuleLibrary& operator=(ModuleLibrary&&) = delete;
  ~ModuleLibrary();

  /// Hands the host's collection over. Call it before components are created.
  /// Throws `ModuleError`.
  void Initialize(IComponentCollection* collection) const;

  /// The entry points themselves, for callers that look at what they do.
  InitializeModuleFunction initialize() const { return initialize_; }
  CreateFunctionFunction create_function() const { return create_function_; }

  /// The creation function of a component, or null.
  CreationFunction Find(tagREFString component) const;

  /// Creates a component and asks for interface `Interface`. Throws `ModuleError`.
  template <typename Interface>
  SmartPtr<Interface> Create(tagREFString component) const {
    SmartPtr<Interface> object;
    CreateObject(component, *kIidOf<Interface>, object.PutVoid());
    return object;
  }

  /// Leaves the library loaded for the rest of the process, with the collection that it has.
  void KeepLoaded() && { [[maybe_unused]] void* const library = library_.release(); }

 private:
  struct Closer {
    void operator()(void* library) const;
  };
  void* FindSymbol(const char* symbol) const;
  void CreateObject(tagREFString component, const IID& iid, void** object) const;

  std::string path_;
  std::unique_ptr<void, Closer> library_;
  InitializeModuleFunction initialize_ = nullptr;
  CreateFunctionFunction create_function_ = nullptr;
};

/// The creation function of a component in the module "./_binLIN64/" + `module` + ".so", relative
/// to the working directory, or null. The module gets `collection` first and stays loaded: objects
/// of such a module may outlive everyone who asked for it.
CreationFunction FindInSiblingModule(std::wstring_view module, tagREFString component,
                                     IComponentCollection* collection);

}  // namespace qel::host

#endif  // QEL_HOST_MODULE_LIBRARY_H_
