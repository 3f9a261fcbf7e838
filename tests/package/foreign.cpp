// Loads the installed module with nothing but the headers and asks a component for its name.

#include <dlfcn.h>
#include <qel/qel.h>

#include <cstdio>

int main(int argc, char** argv) {
  void* const library = argc == 2 ? dlopen(argv[1], RTLD_NOW) : nullptr;
  if (library == nullptr) return 1;
  const auto create_function =
      reinterpret_cast<qel::CreateFunctionFunction>(dlsym(library, qel::kCreateFunctionSymbol));
  qel::CreationFunction create = nullptr;
  if (create_function(qel::RefString(qel::kMathsName), &create) != qel::kOk) return 2;
  qel::SmartPtr<qel::IObjectInfo> info;
  create(nullptr, &qel::IID_IObjectInfo, info.PutVoid());
  qel::tagREFString name{};
  if (!info || info->GetName(0, &name) != qel::kOk) return 3;
  std::printf("%.*ls\n", static_cast<int>(name.length), name.text);
  return name.length == 8 ? 0 : 4;
}
