// Operation, images and arguments from the input; module against plain reading.

#include <cstdio>
#include <cstdlib>

#include "component/host_services.h"
#include "module/factory.h"
#include "operations/components.h"
#include "tests/fuzz/fuzz.h"
#include "tests/support/paired_operations.h"

namespace qel::test {
namespace {

/// The module that is linked in.
struct LinkedModule {
  template <typename Interface>
  SmartPtr<Interface> Create(tagREFString name) const {
    SmartPtr<Interface> object;
    FindComponent(name)(nullptr, kIidOf<Interface>, object.PutVoid());
    return object;
  }
};

const ComponentSet& Components() {
  static const auto* const components = [] {
    gGlobalComponentCollection.Replace(
        SmartPtr<IComponentCollection>::Retain(TestHost::Instance().collection()));
    return new ComponentSet(operations::MakeComponents(LinkedModule()));
  }();
  return *components;
}

}  // namespace
}  // namespace qel::test

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace qel::test;
  const ComponentSet& components = Components();
  Rng rng(std::span(data, size));
  const auto& operations = PairedOperations();
  const auto& operation =
      operations[static_cast<size_t>(rng.Int(0, static_cast<int>(operations.size()) - 1))];
  const PairedCase drawn = operation.draw(rng);
  const std::string difference = PlainOutcome(drawn).Difference(components);
  if (!difference.empty()) {
    std::fprintf(stderr, "%s: %s\n", operation.name.c_str(), difference.c_str());
    std::abort();
  }
  return 0;
}
