// The image module with one defect, which the environment variable QEL_DEFECT names: the shipped
// module stands behind this one, and single slots of its objects are exchanged.

#include <dlfcn.h>

#include <atomic>
#include <cstdint>
#include <iterator>

#include "qel/qel.h"
#include "tests/check/patched_table.h"

#define QEL_EXPORT extern "C" __attribute__((visibility("default")))

#ifdef QEL_EXTRA_EXPORT
QEL_EXPORT void NobodyAskedForThis() {}
#endif

namespace qel::test {
namespace {

bool Has(std::string_view defect) { return Defect() == defect; }

/// The shipped module.
struct Real {
  void* library = dlopen(QEL_MODULE, RTLD_NOW | RTLD_LOCAL);
  InitializeModuleFunction initialize =
      reinterpret_cast<InitializeModuleFunction>(dlsym(library, kInitializeModuleSymbol));
  CreateFunctionFunction create_function =
      reinterpret_cast<CreateFunctionFunction>(dlsym(library, kCreateFunctionSymbol));
  ~Real() {
    if (!Has("never-unloaded")) dlclose(library);
  }
} real;

struct Kind {
  tagREFString name;
  IID own;
  size_t slots;  // of the own interface
};
const Kind kKinds[] = {{RefString(kColorTransformName), IID_IQELColorTransform, 14},
                       {RefString(kTransformName), IID_IQELTransform, 15},
                       {RefString(kDeformName), IID_IQELDeform, 4},
                       {RefString(kFilterTransformName), IID_IQELFilterTransform, 16},
                       {RefString(kMathsName), IID_IQELMaths, 11}};
enum { kColor, kTransform, kDeform, kFilter, kMaths };

// Defects of every object.

SlotFunction<result_t, const IID&, void**> query;
result_t BadQuery(void* self, const IID& iid, void** object) {
  const result_t result = query(self, iid, object);
  if (Has("query-without-reference") && result == kOk) static_cast<IUnknown*>(*object)->Release();
  if (Has("answers-everything") && result != kOk) {
    *object = self;
    return kOk;
  }
  if (Has("own-identity") && result == kOk && iid == IID_IUnknown) *object = self;
  return result;
}

SlotFunction<uint32_t> add_reference;
uint32_t BadAddRef(void* self) {
  if (Has("returns-old-count")) return add_reference(self) - 1;
  // An object's count is its second word; this is the own interface, 24 bytes into the object.
  auto* const count = reinterpret_cast<volatile uint32_t*>(static_cast<uint8_t*>(self) - 16);
  const uint32_t old = *count;
  test::GiveWay();
  *count = old + 1;
  return old + 1;
}

SlotFunction<result_t, int, tagREFString*> get_name;
result_t BadGetName(void* self, int index, tagREFString* name) {
  const result_t result = get_name(self, index, name);
  if (index != 0) name->length -= 1;
  return result;
}

// Defects of operations.

struct Seen {
  int width = 0, height = 0, planes = 0, stride = 0, unread = 0, bit_count = 0;
  uint32_t model = 0;
  uint8_t* bits = nullptr;
  result_t size;

  explicit Seen(IQEL* image) : size(image->GetSize(&width, &height, &planes)) {
    image->GetFormat(&bit_count, &model, &unread);
    image->GetBits(0, &unread, &bits, &stride);
  }
  bool HasRows() const { return bits != nullptr && width > 0 && height > 0; }
};

SlotFunction<result_t, IQEL*> negative;
result_t BadNegative(void* self, IQEL* image) {
  if (image == nullptr && Has("null-crash")) std::abort();
  if (image == nullptr) return Has("null-success") ? kOk : kFail;
  if (Has("hang")) {
    for (volatile bool forever = true; forever;) {
    }
  }
  if (Has("swallowed-exception")) {
    try {
      return negative(self, image);
    } catch (...) {
      return kFail;
    }
  }
  const result_t result = negative(self, image);
  if (Has("argument-kept")) image->AddRef();
  if (Has("argument-lost")) image->Release();
  const Seen seen(image);
  if (Has("leak-of-empty") && seen.width * seen.height == 0) image->AddRef();
  if (Has("leak-after-failure") && Failed(seen.size)) image->AddRef();
  if (Has("leak-without-pixels") && seen.bits == nullptr) image->AddRef();
  if (!seen.HasRows()) return result;
  if (Has("stride-ignored") && seen.stride < 0) seen.bits[0] ^= 1;
  const int64_t row_bytes = (int64_t{seen.width} * seen.bit_count + 7) / 8;
  if (Has("padding-written")) seen.bits[row_bytes] ^= 1;
  if (Has("past-the-end")) {
    [[maybe_unused]] const uint8_t byte = *(const_cast<volatile uint8_t*>(seen.bits) +
                                            (seen.height - 1) * int64_t{seen.stride} + row_bytes);
  }
  return result;
}

SlotFunction<result_t, IQEL*> gray_scale;
result_t BadGrayScale(void* self, IQEL* image) {
  gray_scale(self, image);
  return image != nullptr ? kOk : kFail;
}

SlotFunction<result_t, IQEL*, IQEL**> mirror;
result_t BadMirror(void* self, IQEL* source, IQEL** result) {
  if (Has("leak-by-exception") && source != nullptr) source->AddRef();
  IQEL* made = nullptr;
  const result_t code = mirror(self, source, &made);
  if (Has("leak-by-exception") && source != nullptr) source->Release();
  if (made == nullptr) return code;
  if (Has("result-without-reference")) made->Release();
  if (Has("result-with-two-references")) made->AddRef();
  if (Has("source-written")) {
    const Seen seen(source);
    if (seen.HasRows()) seen.bits[0] ^= 1;
  }
  if (result != nullptr && !Has("no-result")) {
    *result = made;
  } else if (!Has("leak-without-output")) {
    made->Release();
  }
  return code;
}

result_t BadCircle(void*, IQEL*, int, int, float) { return kOk; }
SlotFunction<result_t, IQEL*, int, int, float> circle;

/// Gives a fresh object its defect.
void Spoil(const Kind& kind, IUnknown* object) {
  void* info = nullptr;
  void* own = nullptr;
  object->QueryInterface(IID_IObjectInfo, &info);
  object->QueryInterface(kind.own, &own);
  PatchedTable info_table(info, 4);
  PatchedTable table(own, kind.slots);
  static_cast<IUnknown*>(info)->Release();
  static_cast<IUnknown*>(own)->Release();

  if (Has("query-without-reference") || Has("answers-everything"))
    table.Replace(0, &BadQuery, query);
  if (Has("own-identity")) info_table.Replace(0, &BadQuery, query);
  if (Has("returns-old-count") || Has("plain-count")) table.Replace(1, &BadAddRef, add_reference);
  if (Has("name-by-index")) info_table.Replace(3, &BadGetName, get_name);

  const auto i = &kind - kKinds;
  if (Has("color-order") && i == kColor) table.Swap(5, 6);
  if (Has("transform-order") && i == kTransform) table.Swap(3, 4);
  if (Has("filter-order") && i == kFilter) table.Swap(13, 14);
  if (Has("maths-order") && i == kMaths) table.Swap(5, 6);
  if (Has("deform-order") && i == kDeform) table.Replace(3, &BadCircle, circle);
  if (i == kColor) {
    if (Has("success-without-image")) table.Replace(6, &BadGrayScale, gray_scale);
    if (!Has("color-order")) table.Replace(5, &BadNegative, negative);
  }
  if (i == kTransform && !Has("transform-order")) table.Replace(4, &BadMirror, mirror);
}

template <int kIndex>
result_t Create(void* reserved, const IID* iid, void** object) {
  const Kind& kind = kKinds[kIndex];
  CreationFunction create = nullptr;
  real.create_function(kind.name, &create);
  static IUnknown* shared = nullptr;
  IUnknown* made = Has("shared-object") ? shared : nullptr;
  if (made == nullptr) {
    create(reserved, &IID_IUnknown, reinterpret_cast<void**>(&made));
    Spoil(kind, made);
    shared = made;
  } else {
    made->AddRef();
  }
  const result_t result = made->QueryInterface(*iid, object);
  made->Release();
  if (Has("creates-unknown-interfaces") && Failed(result)) return kOk;
  return result;
}

constexpr CreationFunction kCreations[] = {&Create<0>, &Create<1>, &Create<2>, &Create<3>,
                                           &Create<4>};

}  // namespace
}  // namespace qel::test

QEL_EXPORT qel::result_t InitializeModule(void* reserved, qel::IComponentCollection* collection) {
  if (qel::test::Has("collection-kept") && collection != nullptr) collection->AddRef();
  return qel::test::real.initialize(reserved, collection);
}

QEL_EXPORT qel::result_t CreateFunction(qel::tagREFString name, qel::CreationFunction* function) {
  using qel::test::Has;
  if (Has("output-on-failure")) *function = nullptr;
  for (size_t i = 0; i < std::size(qel::test::kKinds); ++i) {
    const qel::tagREFString known = qel::test::kKinds[i].name;
    const auto length = static_cast<uint32_t>(name.length);
    const bool long_enough =
        Has("longer-names") ? length >= known.length && length < 99 : length == known.length;
    if (!long_enough || (Has("component-missing") && i == qel::test::kDeform)) continue;
    if (std::memcmp(name.text, known.text, known.length * sizeof(wchar_t)) != 0) continue;
    *function = qel::test::kCreations[i];
    return qel::kOk;
  }
  return qel::kFail;
}
