#include <dlfcn.h>

#include "check/elf_symbols.h"
#include "check/interface_table.h"
#include "check/trial.h"

namespace qel::check {
namespace {

/// Asks for `name` and returns whether it was found; the output must be written then only.
bool Finds(const Subject& subject, tagREFString name) {
  const auto unwritten = reinterpret_cast<CreationFunction>(uintptr_t{16});
  CreationFunction function = unwritten;
  const result_t result = subject.library().create_function()(name, &function);
  Require(result == kOk || result == kFail, "CreateFunction gives neither 0 nor 0x80004005");
  Require((result == kOk) == (function != unwritten), "the output is written on success only");
  Require(result != kOk || function != nullptr, "CreateFunction succeeds with a null function");
  return result == kOk;
}

void ExportsEntryPointsOnly(Subject& subject) {
  for (const std::string& symbol : ReadElf(subject.path()).exports) {
    Require(symbol == kInitializeModuleSymbol || symbol == kCreateFunctionSymbol,
            "exports " + symbol + " as well");
  }
}

void FindsComponents(Subject& subject) {
  for (const ComponentRow& component : ModuleComponents()) {
    const std::string name = PlainName(component.name);
    Doing(name);
    Require(Finds(subject, component.RefName()), "the component is not found");
    Require(Finds(subject, {component.name.size() | uint64_t{9} << 32, component.name.data()}),
            "only the low 32 bits of the length count");
  }
}

void FindsExactNamesOnly(Subject& subject) {
  for (const ComponentRow& component : ModuleComponents()) {
    Doing(PlainName(component.name));
    std::wstring name(component.name);
    name += L'X';
    Require(!Finds(subject, {name.size(), name.data()}), "a longer name is found");
    Require(Finds(subject, {name.size() - 1, name.data()}), "what follows the text counts");
    Require(!Finds(subject, {name.size() - 2, name.data()}), "a shorter name is found");
    name[3] = static_cast<wchar_t>(name[3] + 32);
    Require(!Finds(subject, {name.size() - 1, name.data()}), "case does not count");
  }
  Doing("an empty name");
  Require(!Finds(subject, {0, nullptr}) && !Finds(subject, {0xFFFFFFFFu, nullptr}), "it is found");
}

void CreatesAnsweredInterfaces(Subject& subject) {
  for (const ComponentRow& component : ModuleComponents()) {
    Doing(PlainName(component.name));
    const CreationFunction create = subject.library().Find(component.RefName());
    Require(create != nullptr, "the component is not found");
    for (const IID& iid : {IID_IUnknown, IID_IObjectInfo, component.Interface().iid}) {
      void* object = nullptr;
      Require(create(nullptr, &iid, &object) == kOk && object != nullptr,
              "an interface of the component is not created");
      static_cast<IUnknown*>(object)->Release();
    }
    for (const IID& iid : {IID_NULL, IID_IQEL}) {
      void* object = &object;
      Require(create(nullptr, &iid, &object) == kNoInterface,
              "an interface that it does not answer gives another code than 0x80004002");
      Require(object == nullptr, "the output is not null for such an interface");
    }
  }
}

void KeepsOneCollectionReference(Subject& subject) {
  WatchedHost host;
  const int64_t before = host.References();
  const InitializeModuleFunction initialize = subject.library().initialize();
  for (int times = 1; times <= 2; ++times) {
    Doing("InitializeModule, time " + std::to_string(times));
    Require(initialize(nullptr, host.collection()) == kOk, "it fails");
    Require(host.References() == before + 1, "the module does not hold exactly one reference");
  }
  Doing("InitializeModule with null");
  Require(initialize(nullptr, nullptr) == kOk, "it fails");
  Require(host.References() == before, "the reference is not given back");
}

void UnloadsCompletely(Subject& subject) {
  int64_t before = 0;
  auto* const bench = new Workbench(subject);  // outlives the module
  WarmUp(*bench);
  bench->ReleaseComponents();
  bench->host().ForgetImages();
  Doing("unloading");
  before = WatchedHost().References();
  subject.Unload();
  Require(bench->host().References() == before,
          "references to the host's collection, strings or locators stay behind");
  void* const still_there = dlopen(subject.path().c_str(), RTLD_NOW | RTLD_NOLOAD);
  Require(still_there == nullptr, "the library stays loaded");
}

}  // namespace

Rules EntryRules() {
  return {
      {"entry", "exports", "Two functions are exported and nothing else.", &ExportsEntryPointsOnly},
      {"entry", "names", "CreateFunction finds the five components.", &FindsComponents},
      {"entry", "exact-names", "Only a component's exact name finds it.", &FindsExactNamesOnly},
      {"entry", "creation", "Creation gives the interfaces of the component and no others.",
       &CreatesAnsweredInterfaces},
      {"entry", "collection", "InitializeModule holds one reference to the collection.",
       &KeepsOneCollectionReference},
      {"entry", "unloading", "An unloaded module gives back all that it held.", &UnloadsCompletely},
  };
}

}  // namespace qel::check
