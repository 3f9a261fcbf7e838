#include "host/module_library.h"

#include <dlfcn.h>

#include <map>
#include <mutex>
#include <utility>

namespace qel::host {
namespace {

std::string Narrow(tagREFString text) {
  return std::string(text.text, text.text + static_cast<uint32_t>(text.length));
}

}  // namespace

ModuleLibrary::ModuleLibrary(const std::string& path)
    : path_(path), library_(dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (library_ == nullptr) {
    const char* const reason = dlerror();
    throw ModuleError("cannot load the module " + path + ": " + (reason ? reason : "no reason"));
  }
  initialize_ =
      reinterpret_cast<InitializeModuleFunction>(dlsym(library_, kInitializeModuleSymbol));
  create_function_ =
      reinterpret_cast<CreateFunctionFunction>(dlsym(library_, kCreateFunctionSymbol));
  for (const auto& [found, symbol] :
       {std::pair(initialize_ != nullptr, kInitializeModuleSymbol),
        std::pair(create_function_ != nullptr, kCreateFunctionSymbol)}) {
    if (found) continue;
    dlclose(library_);
    throw ModuleError(path + " is no module: it does not export " + symbol);
  }
}

ModuleLibrary::ModuleLibrary(ModuleLibrary&& other) noexcept
    : path_(std::move(other.path_)),
      library_(std::exchange(other.library_, nullptr)),
      initialize_(other.initialize_),
      create_function_(other.create_function_) {}

ModuleLibrary::~ModuleLibrary() {
  if (library_ == nullptr) return;
  initialize_(nullptr, nullptr);
  dlclose(library_);
}

void ModuleLibrary::Initialize(IComponentCollection* collection) const {
  initialize_(nullptr, collection);
}

CreationFunction ModuleLibrary::Find(tagREFString component) const {
  CreationFunction function = nullptr;
  create_function_(component, &function);
  return function;
}

void ModuleLibrary::CreateObject(tagREFString component, const IID& iid, void** object) const {
  const CreationFunction create = Find(component);
  if (create == nullptr) {
    throw ModuleError(path_ + " has no component " + Narrow(component));
  }
  create(nullptr, &iid, object);
  if (*object == nullptr) {
    throw ModuleError(path_ + ": the component " + Narrow(component) +
                      " does not answer its interface");
  }
}

CreationFunction FindInSiblingModule(std::wstring_view module, tagREFString component,
                                     IComponentCollection* collection) {
  const std::string name(module.begin(), module.end());
  // Never closed: objects of such a module may outlive everyone who asked for it.
  static std::mutex mutex;
  static auto& libraries = *new std::map<std::string, ModuleLibrary>;
  const std::lock_guard lock(mutex);
  auto found = libraries.find(name);
  if (found == libraries.end()) {
    try {
      found = libraries.emplace(name, ModuleLibrary("./_binLIN64/" + name + ".so")).first;
    } catch (const ModuleError&) {
      return nullptr;
    }
    found->second.Initialize(collection);
  }
  return found->second.Find(component);
}

}  // namespace qel::host
