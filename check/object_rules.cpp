#include "check/counting.h"
#include "check/interface_table.h"
#include "check/trial.h"

namespace qel::check {
namespace {

/// A fresh object of a component with all of its interfaces, each holding a reference.
struct Specimen {
  std::vector<IID> iids;
  std::vector<IUnknown*> pointers;  // in the order of `iids`
};

Specimen MakeSpecimen(const Subject& subject, const ComponentRow& component) {
  Doing(PlainName(component.name));
  Specimen specimen{{IID_IUnknown, IID_IObjectInfo, component.Interface().iid}, {}};
  const CreationFunction create = subject.library().Find(component.RefName());
  Require(create != nullptr, "the component is not found");
  void* first = nullptr;
  create(nullptr, &specimen.iids[0], &first);
  Require(first != nullptr, "the component is not created");
  specimen.pointers.push_back(static_cast<IUnknown*>(first));
  Require(CountOf(specimen.pointers[0]) == 1, "a fresh object does not hold one reference");
  for (size_t i = 1; i < specimen.iids.size(); ++i) {
    void* object = nullptr;
    specimen.pointers[0]->QueryInterface(specimen.iids[i], &object);
    Require(object != nullptr, "an interface of the component is not answered");
    specimen.pointers.push_back(static_cast<IUnknown*>(object));
    Require(CountOf(specimen.pointers[0]) == i + 1,
            "QueryInterface does not add exactly one reference");
  }
  return specimen;
}

template <typename Body>
void ForEachSpecimen(const Subject& subject, Body&& body) {
  for (const ComponentRow& component : ModuleComponents()) {
    body(component, MakeSpecimen(subject, component));
  }
}

void CountsReferences(Subject& subject) {
  ForEachSpecimen(subject, [](const ComponentRow&, const Specimen& specimen) {
    for (IUnknown* const pointer : specimen.pointers) {
      Require(pointer->AddRef() == 4, "AddRef does not return the new count");
      Require(pointer->Release() == 3, "Release does not return the new count");
    }
    Require(specimen.pointers[1]->Release() == 2 && specimen.pointers[2]->Release() == 1 &&
                specimen.pointers[0]->Release() == 0,
            "the interfaces of an object do not share one count");
  });
}

void AnswersFromEveryInterface(Subject& subject) {
  ForEachSpecimen(subject, [](const ComponentRow&, const Specimen& specimen) {
    for (IUnknown* const through : specimen.pointers) {
      for (size_t i = 0; i < specimen.iids.size(); ++i) {
        void* found = nullptr;
        Require(through->QueryInterface(specimen.iids[i], &found) == kOk,
                "an interface is not answered from another one");
        Require(found == specimen.pointers[i], "the same interface has two pointers");
        Require(CountOf(through) == 4, "QueryInterface does not add exactly one reference");
        through->Release();
      }
    }
  });
}

void RefusesOtherInterfaces(Subject& subject) {
  ForEachSpecimen(subject, [](const ComponentRow& component, const Specimen& specimen) {
    for (const InterfaceRow& other : InterfaceTable()) {
      if (other.name == "IUnknown" || other.name == "IObjectInfo") continue;
      if (other.name == component.interface_name) continue;
      for (IUnknown* const through : specimen.pointers) {
        void* found = &found;
        Require(through->QueryInterface(other.iid, &found) == kNoInterface,
                std::string(other.name) + " gives another code than 0x80004002");
        Require(found == nullptr, "the output is not null for an interface that is not answered");
      }
    }
    Require(CountOf(specimen.pointers[0]) == 3, "a refused interface changes the count");
  });
}

void TellsItsName(Subject& subject) {
  ForEachSpecimen(subject, [](const ComponentRow& component, const Specimen& specimen) {
    for (const int index : {0, -1, 77}) {
      tagREFString name{};
      const result_t result =
          static_cast<IObjectInfo*>(specimen.pointers[1])->GetName(index, &name);
      Require(result == kOk, "GetName fails");
      Require(host::TextOf(name) == component.name,
              "GetName says \"" + PlainName(host::TextOf(name)) + "\"");
    }
  });
}

void LiesAsHostsExpect(Subject& subject) {
  ForEachSpecimen(subject, [](const ComponentRow&, const Specimen& specimen) {
    const auto place = [&](size_t i) {
      return reinterpret_cast<intptr_t>(specimen.pointers[i]) -
             reinterpret_cast<intptr_t>(specimen.pointers[0]);
    };
    Require(place(1) == 16, "IObjectInfo does not lie 16 bytes behind the object's start");
    Require(place(2) == 24, "the own interface does not lie 24 bytes behind the object's start");
  });
}

void MakesSeparateObjects(Subject& subject) {
  for (const ComponentRow& component : ModuleComponents()) {
    const Specimen first = MakeSpecimen(subject, component);
    const Specimen second = MakeSpecimen(subject, component);
    Require(first.pointers[0] != second.pointers[0], "two creations give one object");
    first.pointers[0]->AddRef();
    Require(CountOf(second.pointers[0]) == 3, "two objects share their count");
  }
}

void CountsFromAllThreads(Subject& subject) {
  ForEachSpecimen(subject, [](const ComponentRow&, const Specimen& specimen) {
    RequireCountsFromThreads(specimen.pointers);
  });
}

}  // namespace

Rules ObjectRules() {
  return {
      {"object", "counting", "The interfaces of an object share one count, which calls return.",
       &CountsReferences, kCounting},
      {"object", "identity", "Every interface answers for all others, always with one pointer.",
       &AnswersFromEveryInterface, kCounting},
      {"object", "refusal", "Other interfaces give 0x80004002 and null, and no reference.",
       &RefusesOtherInterfaces},
      {"object", "name", "GetName gives the object name for every index.", &TellsItsName},
      {"object", "layout", "Interface pointers lie 0, 16 and 24 bytes into the object.",
       &LiesAsHostsExpect},
      {"object", "separate", "Every creation makes an object of its own.", &MakesSeparateObjects},
      {"object", "threads", "References may be counted from several threads.",
       &CountsFromAllThreads},
  };
}

}  // namespace qel::check
