#include "module/factory.h"

#include "color/color_transform.h"
#include "component/string_ref.h"
#include "filter/filter_transform.h"
#include "maths/maths.h"
#include "transform/image_deform.h"
#include "transform/image_transform.h"

namespace qel {
namespace {

struct Entry {
  tagREFString name;
  CreationFunction create;
};

template <typename T>
constexpr Entry EntryOf() {
  return {T::m_ObjectName, &T::_CreateInstance};
}

// The order in which names are tried is part of the contract with hosts.
constexpr Entry kEntries[] = {
    EntryOf<CQELFilterTransform>(), EntryOf<CQELImageDeform>(),    EntryOf<CQELImageTransform>(),
    EntryOf<CQELMaths>(),           EntryOf<CQELColorTransform>(),
};

}  // namespace

CreationFunction FindComponent(tagREFString name) {
  for (const Entry& entry : kEntries) {
    if (SameText(entry.name, name)) return entry.create;
  }
  return nullptr;
}

}  // namespace qel
