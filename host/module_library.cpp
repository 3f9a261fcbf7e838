#include "host/module_library.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdio>

#include "host/host_collection.h"

namespace qel::host {
namespace {

/// `text` byte by byte; characters that are not ASCII become '?'.
std::string Narrow(std::wstring_view text) {
  std::string narrow;
  for (const wchar_t c : text) narrow += c > 0 && c < 0x80 ? static_cast<char>(c) : '?';
  return narrow;
}

std::string LoaderMessage() {
  const char* const message = dlerror();
  return message != nullptr ? message : "no reason given";
}

std::string Hexadecimal(result_t result) {
  char text[16];
  std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(result));
  return text;
}

}  // namespace

void ModuleLibrary::Closer::operator()(void* library) const { dlclose(library); }

ModuleLibrary::ModuleLibrary(const std::filesystem::path& path) {
  std::error_code error;
  // A path without a slash would be searched for in the system's library folders.
  path_ = std::filesystem::absolute(path, error).string();
  if (error || !std::filesystem::is_regular_file(path_, error)) {
    throw ModuleError("there is no module file " + path.string());
  }
  library_.reset(dlopen(path_.c_str(), RTLD_NOW | RTLD_LOCAL));
  if (!library_) throw ModuleError("cannot load the module " + path_ + ": " + LoaderMessage());
  initialize_ = reinterpret_cast<InitializeModuleFunction>(FindSymbol(kInitializeModuleSymbol));
  create_function_ = reinterpret_cast<CreateFunctionFunction>(FindSymbol(kCreateFunctionSymbol));
}

ModuleLibrary::~ModuleLibrary() {
  if (library_) initialize_(nullptr, nullptr);
}

void* ModuleLibrary::FindSymbol(const char* symbol) const {
  void* const found = dlsym(library_.get(), symbol);
  if (found == nullptr) throw ModuleError(path_ + " is no module: it does not export " + symbol);
  return found;
}

void ModuleLibrary::Initialize(IComponentCollection* collection) const {
  const result_t result = initialize_(nullptr, collection);
  if (Failed(result)) {
    throw ModuleError(path_ + " does not take the collection: failure " + Hexadecimal(result));
  }
}

CreationFunction ModuleLibrary::Find(tagREFString component) const {
  CreationFunction function = nullptr;
  create_function_(component, &function);
  return function;
}

void ModuleLibrary::CreateObject(tagREFString component, const IID& iid, void** object) const {
  const std::string name = Narrow(TextOf(component));
  const CreationFunction create = Find(component);
  if (create == nullptr) throw ModuleError(path_ + " has no component " + name);
  const result_t result = create(nullptr, &iid, object);
  if (*object == nullptr) {
    throw ModuleError(path_ + " does not create the component " + name +
                      " with this interface: " + "failure " + Hexadecimal(result));
  }
}

CreationFunction FindInSiblingModule(std::wstring_view module, tagREFString component,
                                     IComponentCollection* collection) {
  try {
    ModuleLibrary library("./_binLIN64/" + Narrow(module) + ".so");
    library.Initialize(collection);
    const CreationFunction function = library.Find(component);
    std::move(library).KeepLoaded();
    return function;
  } catch (const ModuleError&) {
    return nullptr;
  }
}

}  // namespace qel::host
