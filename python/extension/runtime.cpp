#include "python/extension/runtime.h"

#include <stdexcept>
#include <utility>

namespace qel::python {
namespace {

thread_local ArrayImage* next_image = nullptr;

result_t MakeImage(const IID& iid, void** object) {
  if (ArrayImage* const image = std::exchange(next_image, nullptr)) {
    return image->QueryInterface(iid, object);
  }
  return host::HostImage::Make({.clear = true})->QueryInterface(iid, object);
}

SmartPtr<host::HostCollection> MakeCollection() {
  auto collection = host::HostCollection::MakeWithImages();
  collection->Offer(kImageComponentName, &MakeImage);
  return collection;
}

host::ModuleLibrary LoadModule(const std::string& path, IComponentCollection* collection) {
  host::ModuleLibrary library(path);
  library.Initialize(collection);
  return library;
}

/// Never destroyed: arrays and threads may outlast the end of the interpreter.
const Runtime*& Current() {
  static const Runtime* runtime = nullptr;
  return runtime;
}

}  // namespace

Runtime::Runtime(const std::string& path)
    : collection_(MakeCollection()),
      library_(LoadModule(path, collection_.Get())),
      engine_(operations::MakeComponents(library_),
              SmartPtr<IComponentCollection>::Retain(collection_.Get())) {}

void Runtime::Load(const std::string& path) {
  if (Current() == nullptr) Current() = new Runtime(path);
}

const Runtime& Runtime::Get() {
  if (Current() == nullptr) throw std::logic_error("the image module is not loaded");
  return *Current();
}

void Runtime::SwapChannels(const Pixels& pixels) const {
  engine_.components().transform->FlipBits(ArrayImage::Of(pixels).Get());
}

Runtime::NextImage::NextImage(ArrayImage* image) { next_image = image; }
Runtime::NextImage::~NextImage() { next_image = nullptr; }

}  // namespace qel::python
