#include "component/host_services.h"

#include <dlfcn.h>

#include <array>
#include <cstdio>
#include <cstring>

#include "component/string_ref.h"

namespace qel {
namespace {

constexpr char kModuleFolder[] = "./_binLIN64/";
constexpr char kModuleSuffix[] = ".so";
constexpr size_t kPathBytes = 264;
constexpr wchar_t kCollectionsExModule[] = L"CollectionsEx";
constexpr wchar_t kCollectionsModule[] = L"Collections";

using ModulePath = std::array<char, kPathBytes>;

/// Spells the library path of `module`. False when the name does not fit or has a character that is
/// not one byte long.
bool SpellModulePath(tagREFString module, ModulePath& path) {
  constexpr size_t kFolderLength = sizeof(kModuleFolder) - 1;
  const int32_t length = LengthOf(module);
  if (length < 0 ||
      kFolderLength + static_cast<size_t>(length) + sizeof(kModuleSuffix) > path.size())
    return false;
  char* end = path.data();
  std::memcpy(end, kModuleFolder, kFolderLength);
  end += kFolderLength;
  for (int32_t i = 0; i < length; ++i) {
    const wchar_t character = module.text[i];
    if (character <= 0 || character > 0x7F) return false;
    *end++ = static_cast<char>(character);
  }
  std::memcpy(end, kModuleSuffix, sizeof(kModuleSuffix));
  return true;
}

/// Calls a creation function for interface `T`; empty without a function.
template <typename T>
SmartPtr<T> Instantiate(CreationFunction create) {
  SmartPtr<T> object;
  if (create != nullptr) create(nullptr, kIidOf<T>, object.PutVoid());
  return object;
}

}  // namespace

CreationFunction MODULECreateFunction(tagREFString module, tagREFString component) {
  ModulePath path;
  if (!SpellModulePath(module, path)) return nullptr;
  void* const library = dlopen(path.data(), RTLD_NOW);
  if (library == nullptr) {
    const char* const reason = dlerror();
    std::printf("Module not available %s, error %s\n", path.data(), reason ? reason : "");
    dlerror();
    return nullptr;
  }
  const auto create_function =
      reinterpret_cast<CreateFunctionFunction>(dlsym(library, kCreateFunctionSymbol));
  const auto initialize =
      reinterpret_cast<InitializeModuleFunction>(dlsym(library, kInitializeModuleSymbol));
  if (create_function == nullptr) return nullptr;
  if (initialize != nullptr && gGlobalComponentCollection.Get() != nullptr) {
    initialize(nullptr, gGlobalComponentCollection.Get());
  }
  CreationFunction function = nullptr;
  create_function(component, &function);
  return function;
}

SmartPtr<IComponentCollection> GLOBALComponents() {
  if (gGlobalComponentCollection.Get() == nullptr) {
    gGlobalComponentCollection.FillOnce(Instantiate<IComponentCollection>(MODULECreateFunction(
        RefString(kCollectionsExModule), RefString(kCollectionComponentName))));
  }
  return gGlobalComponentCollection.Share();
}

SmartPtr<IComponentString> GetComponentString(IString* name) {
  const SmartPtr<IComponentCollection> collection = GLOBALComponents();
  int index = 0;
  if (!collection || Failed(collection->FindItem(name, &index))) return {};
  SmartPtr<IUnknown> item;
  collection->GetItem(index, item.Put());
  return QueryFor<IComponentString>(item.Get());
}

SmartPtr<ICreatableString> CREFString::CreateString() {
  static LazyHolder<IComponentString> gStringComponent;
  if (gStringComponent.Get() == nullptr && gGlobalComponentCollection.Get() != nullptr) {
    SmartPtr<IComponentString> locator;
    gGlobalComponentCollection.Share()->CreateComponent(RefString(kStringComponentName), nullptr,
                                                        locator.PutVoid());
    gStringComponent.FillOnce(std::move(locator));
  }
  if (gStringComponent.Get() == nullptr) {
    SmartPtr<IComponentString> locator = Instantiate<IComponentString>(
        MODULECreateFunction(RefString(kCollectionsExModule), RefString(kLocatorComponentName)));
    if (!locator) return {};
    // Complete before it is published: another thread may be waiting for the same locator.
    locator->SetPart(kLocatorModule, RefString(kCollectionsModule));
    locator->SetPart(kLocatorComponent, RefString(kStringComponentName));
    IComponentString* const made = locator.Get();
    // Kept for the life of the process: this reference is never given back, only the holder's is.
    if (gStringComponent.FillOnce(std::move(locator))) made->AddRef();
  }
  SmartPtr<ICreatableString> string;
  gStringComponent.Get()->CreateInstance(&IID_ICreatableString, string.PutVoid());
  return string;
}

SmartPtr<IQELImage> QELObject::CreateImage() {
  SmartPtr<IQELImage> image;
  const SmartPtr<IComponentCollection> collection = GLOBALComponents();
  if (collection) {
    collection->CreateComponent(RefString(kImageComponentName), &IID_IQELImage, image.PutVoid());
  }
  return image;
}

SmartPtr<IQELImageDIB> QELObject::CreateImageDIB() {
  static LazyHolder<IComponentString> gQELImageDIB;
  if (gQELImageDIB.Get() == nullptr) {
    const SmartPtr<ICreatableString> name = CREFString::CreateString();
    if (!name) return {};
    const tagREFString text = RefString(kImageComponentName);
    for (int32_t i = 0; i < LengthOf(text); ++i) name->AppendChars(1, &text.text[i]);
    gQELImageDIB.FillOnce(GetComponentString(name.Get()));
  }
  SmartPtr<IQELImageDIB> image;
  if (gQELImageDIB.Get() != nullptr) {
    gQELImageDIB.Get()->CreateInstance(&IID_IQELImageDIB, image.PutVoid());
  }
  return image;
}

}  // namespace qel
