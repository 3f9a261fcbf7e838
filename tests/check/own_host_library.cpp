// The host of examples/own_host.cpp as a library, for the checker.

#define main OwnHostMain
#include "examples/own_host.cpp"
#undef main

#define QEL_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

result_t CreateCollection(void*, const IID* iid, void** object) {
  static const auto collection = SmartPtr<Collection>::Adopt(new Collection);
  return collection->QueryInterface(*iid, object);
}

}  // namespace

QEL_EXPORT result_t InitializeModule(void*, IComponentCollection*) { return kOk; }

QEL_EXPORT result_t CreateFunction(tagREFString name, CreationFunction* function) {
  if (std::wstring(name.text, uint32_t(name.length)) != L"GlobalComponentCollection") return kFail;
  *function = &CreateCollection;
  return kOk;
}
