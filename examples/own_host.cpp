// A host of its own in one file: images, strings and a collection against the SDK's headers alone.
// It loads the module, brightens a picture in place and writes the median of that as PPM.

#include <dlfcn.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "qel/qel.h"

using namespace qel;

/// An object of one interface that also answers those the interface derives from.
template <typename Interface, typename... Bases>
class Object : public Interface {
 public:
  result_t QueryInterface(const IID& iid, void** object) override {
    const bool known =
        iid == IID_IUnknown || iid == *kIidOf<Interface> || ((iid == *kIidOf<Bases>) || ...);
    *object = known ? static_cast<Interface*>(this) : nullptr;
    if (known) ++references_;
    return known ? kOk : kNoInterface;
  }
  uint32_t AddRef() override { return ++references_; }
  uint32_t Release() override {
    const uint32_t left = --references_;
    if (left == 0) delete this;
    return left;
  }
  virtual ~Object() = default;

 private:
  std::atomic<uint32_t> references_{1};
};

class Image final : public Object<IQELImageDIB, IQELImage, IQEL> {
 public:
  result_t GetSize(int* width, int* height, int* planes) override {
    *width = width_;
    *height = height_;
    *planes = 1;
    return kOk;
  }
  result_t GetFormat(int* bit_count, uint32_t* model, int*) override {
    *bit_count = bit_count_;
    *model = model_;
    return kOk;
  }
  result_t GetBits(int plane, int*, uint8_t** bits, int* stride) override {
    *bits = plane == 0 && !bits_.empty() ? Row(0) : nullptr;
    *stride = stride_;
    return kOk;
  }
  result_t Create(int width, int height, int, int bit_count, uint32_t model) override {
    if (width < 0 || height < 0 || width > 30000 || height > 30000 || bit_count > 32) return kFail;
    const int stride = (width * bit_count + 31) / 32 * 4;
    // Some operations look beyond the rows; this much is enough for all of them.
    const size_t rows = size_t(stride) * size_t(height);
    const size_t ends = 64 + std::max(size_t(stride), 4 * size_t(width)) + (rows >> 21);
    const size_t words = bit_count < 24 || model == kModelMono ? 3 * rows : 0;
    std::vector<uint8_t> fresh(ends + rows + ends + words);  // may throw: the image is as it was
    bits_.swap(fresh);
    width_ = width;
    height_ = height;
    bit_count_ = bit_count;
    model_ = model;
    stride_ = stride;
    first_row_ = ends;
    return kOk;
  }
  result_t Assign(IQEL* source, int) override {
    if (source == this) return kOk;
    int width = 0, height = 0, planes = 0, bit_count = 0, reserved = 0, stride = 0;
    uint32_t model = 0;
    uint8_t* bits = nullptr;
    source->GetSize(&width, &height, &planes);
    source->GetFormat(&bit_count, &model, &reserved);
    source->GetBits(0, &reserved, &bits, &stride);
    if (Failed(Create(width, height, 1, bit_count, model)) || bits == nullptr) return kFail;
    for (int y = 0; y < height; ++y) {
      std::memcpy(Row(y), bits + int64_t{y} * stride, size_t(width * bit_count + 7) / 8);
    }
    return kOk;
  }
  result_t Fill(uint32_t color) override {
    const size_t rows = size_t(stride_) * size_t(height_);
    if (bit_count_ == 4) std::memset(Row(0), int(color & 15) * 0x11, rows);
    if (bit_count_ == 1) std::memset(Row(0), int(color & 1) * 0xFF, rows);
    for (int i = 0; i < width_ * height_; ++i) {
      std::memcpy(Row(i / width_) + i % width_ * (bit_count_ / 8), &color, size_t(bit_count_ / 8));
    }
    return kOk;
  }
  uint8_t* Row(int y) { return bits_.data() + first_row_ + int64_t{y} * stride_; }

 private:
  std::vector<uint8_t> bits_;
  size_t first_row_ = 0;
  int width_ = 0, height_ = 0, bit_count_ = 0, stride_ = 0;
  uint32_t model_ = 0;
};

struct String final : Object<ICreatableString, IString> {
  result_t AppendChars(int count, const wchar_t* characters) override {
    text.append(characters, size_t(count));
    return kOk;
  }
  std::wstring text;
};

template <typename T>
struct Locator final : Object<IComponentString, IString> {
  result_t CreateInstance(const IID* iid, void** object) override {
    return SmartPtr<T>::Adopt(new T)->QueryInterface(*iid, object);
  }
  result_t SetPart(int, tagREFString) override { return kOk; }
};

struct Collection final : Object<IComponentCollection> {
  result_t FindItem(IString* name, int* index) override {
    *index = 0;  // strings that arrive here are our own
    return static_cast<String*>(name)->text == kImageComponentName ? kOk : kFail;
  }
  result_t GetItem(int, IUnknown** item) override {
    *item = new Locator<Image>;
    return kOk;
  }
  result_t CreateComponent(tagREFString name, const IID* iid, void** object) override {
    *object = nullptr;
    const std::wstring text(name.text, uint32_t(name.length));
    const bool image = text == kImageComponentName;
    if (!image && text != kStringComponentName) return kFail;
    const auto locator = SmartPtr<IComponentString>::Adopt(
        image ? static_cast<IComponentString*>(new Locator<Image>) : new Locator<String>);
    const bool wants_locator = iid == nullptr || *iid == IID_NULL;
    return wants_locator ? locator->QueryInterface(IID_IComponentString, object)
                         : locator->CreateInstance(iid, object);
  }
};

/// A component of the module; null when it has none of this name.
template <typename T>
SmartPtr<T> Create(CreateFunctionFunction create_function, tagREFString name) {
  CreationFunction create = nullptr;
  SmartPtr<T> component;
  if (Succeeded(create_function(name, &create))) create(nullptr, kIidOf<T>, component.PutVoid());
  return component;
}

/// Says why the program ends; returns its exit code.
int Fail(const std::string& reason) {
  std::fprintf(stderr, "own_host: %s\n", reason.c_str());
  return 1;
}

int main(int argc, char** argv) {
  if (argc != 2) return Fail("write own_host PATH/QELMaths.so");
  void* const library = dlopen(argv[1], RTLD_NOW);
  if (library == nullptr) return Fail(dlerror());
  const auto initialize = InitializeModuleFunction(dlsym(library, kInitializeModuleSymbol));
  const auto create_function = CreateFunctionFunction(dlsym(library, kCreateFunctionSymbol));
  if (initialize == nullptr || create_function == nullptr) {
    return Fail(std::string(argv[1]) + " is no module");
  }
  const auto collection = SmartPtr<Collection>::Adopt(new Collection);
  initialize(nullptr, collection.Get());
  const auto color = Create<IQELColorTransform>(create_function, RefString(kColorTransformName));
  const auto filter = Create<IQELFilterTransform>(create_function, RefString(kFilterTransformName));
  if (!color || !filter) return Fail("components are missing");

  const auto image = SmartPtr<Image>::Adopt(new Image);
  image->Create(64, 48, 1, 24, kModelBgr);
  for (int i = 0; i < 64 * 48 * 3; ++i) image->Row(i / 192)[i % 192] = uint8_t(i * i / 97);
  SmartPtr<IQEL> median;
  const bool done = Succeeded(color->Light(image.Get(), 20, 10)) &&
                    Succeeded(filter->Median(image.Get(), 3, median.Put()));
  initialize(nullptr, nullptr);
  if (!done) return Fail("an operation failed");
  std::printf("P6 64 48 255\n");
  for (int i = 0; i < 64 * 48 * 3; ++i) {  // red first
    std::putchar(static_cast<Image*>(median.Get())->Row(i / 192)[i % 192 / 3 * 3 + 2 - i % 3]);
  }
  return 0;
}
