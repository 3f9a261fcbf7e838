// Uses the host services of the module as its operations do, one scenario per process: what they
// find they keep. Prints what came back, one word per step.

#include <cstdio>
#include <functional>
#include <string>

#include "component/host_services.h"
#include "host/host_collection.h"

namespace qel {

constinit LazyHolder<IComponentCollection> gGlobalComponentCollection;

namespace {

tagREFString Text(const std::wstring& text) { return {text.size(), text.data()}; }

void Say(const char* what, bool yes) { std::printf("%s %s\n", what, yes ? "yes" : "no"); }

/// Counts what the module asks of the collection that was handed over.
class CountingCollection final : public host::HostObject<IComponentCollection> {
 public:
  int finds = 0;
  int creates = 0;

  result_t GetItem(int index, IUnknown** item) override { return inner_->GetItem(index, item); }
  result_t FindItem(IString* name, int* index) override {
    ++finds;
    return inner_->FindItem(name, index);
  }
  result_t CreateComponent(tagREFString name, const IID* iid, void** object) override {
    ++creates;
    return inner_->CreateComponent(name, iid, object);
  }

 private:
  SmartPtr<host::HostCollection> inner_ = host::HostCollection::MakeWithImages();
};

/// A locator that calls back while its parts are set.
class WatchedLocator final : public host::HostObject<IComponentString> {
 public:
  static inline int live = 0;
  static inline std::function<void(int part)> on_part;

  WatchedLocator() { ++live; }
  ~WatchedLocator() override { --live; }
  result_t ReservedSlot3() override { return kFail; }
  result_t ReservedSlot4() override { return kFail; }
  result_t CreateInstance(const IID*, void** object) override {
    *object = nullptr;
    return kFail;
  }
  result_t SetPart(int part, tagREFString) override {
    if (on_part) on_part(part);
    return kOk;
  }
};

/// Images on both roads, twice.
void MakeImages() {
  const auto plain = QELObject::CreateImage();
  Say("image", static_cast<bool>(plain));
  const auto first = QELObject::CreateImageDIB();
  const auto second = QELObject::CreateImageDIB();
  Say("dib", first && first->Create(3, 2, 1, 24, kModelBgr) == kOk);
  Say("another", second && second.Get() != first.Get());
}

void Lazy() {
  const auto first = GLOBALComponents();
  const auto second = GLOBALComponents();
  Say("collection", static_cast<bool>(first));
  Say("same", first.Get() == second.Get() && first.Get() == gGlobalComponentCollection.Get());
  MakeImages();
  Say("string", static_cast<bool>(CREFString::CreateString()));
}

/// The string locator comes from the sibling module when the collection makes none.
void NoStrings() {
  const auto collection = host::HostCollection::Make();
  collection->OfferImages({});
  gGlobalComponentCollection.Replace(SmartPtr<IComponentCollection>::Retain(collection.Get()));
  MakeImages();
}

/// Whether the string locator of the sibling module leaves references behind: when one of its parts
/// cannot be set, and when the holder is filled meanwhile.
void Locator() {
  const auto collection = host::HostCollection::Make();
  SmartPtr<IComponentString> last;
  collection->Offer(L"ComponentString", [&](const IID&, void** object) {
    last = SmartPtr<IComponentString>::Adopt(new WatchedLocator);
    *object = SmartPtr<IComponentString>::Retain(last.Get()).Detach();
    return kOk;
  });
  gGlobalComponentCollection.Replace(SmartPtr<IComponentCollection>::Retain(collection.Get()));
  for (const int failing : {kLocatorModule, kLocatorComponent}) {
    WatchedLocator::on_part = [=](int part) {
      if (part == failing) throw part;
    };
    try {
      CREFString::CreateString();
    } catch (int part) {
      last.Reset();
      std::printf("part %d thrown, %d left\n", part, WatchedLocator::live);
    }
  }
  WatchedLocator::on_part = [](int) {
    WatchedLocator::on_part = nullptr;
    CREFString::CreateString();
  };
  CREFString::CreateString();
  last->AddRef();
  std::printf("%d left with %u references\n", WatchedLocator::live, last->Release() - 1);
}

void Given() {
  auto* const collection = new CountingCollection;
  gGlobalComponentCollection.Replace(SmartPtr<IComponentCollection>::Adopt(collection));
  collection->AddRef();
  Say("given", GLOBALComponents().Get() == collection);
  MakeImages();
  std::printf("finds %d creates %d\n", collection->finds, collection->creates);
  // A sibling module gets it too, and answers with it.
  const CreationFunction create =
      MODULECreateFunction(Text(L"CollectionsEx"), Text(L"GlobalComponentCollection"));
  SmartPtr<IComponentCollection> shared;
  if (create != nullptr) create(nullptr, &IID_IComponentCollection, shared.PutVoid());
  Say("shared", shared.Get() == collection);
  Say("unknown", MODULECreateFunction(Text(L"CollectionsEx"), Text(L"Nothing")) != nullptr);
}

void Names() {
  // 248 characters fit the path, 249 do not, and a character must be one byte.
  for (const auto& name : {std::wstring(248, L'n'), std::wstring(249, L'n'),
                           std::wstring(70000, L'n'), std::wstring(L"caf\u00E9")}) {
    Say("found", MODULECreateFunction(Text(name), Text(L"x")) != nullptr);
  }
}

}  // namespace
}  // namespace qel

int main(int argc, char** argv) {
  const std::string scenario = argc == 2 ? argv[1] : "";
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  if (scenario == "lazy") qel::Lazy();
  if (scenario == "given") qel::Given();
  if (scenario == "no-strings") qel::NoStrings();
  if (scenario == "locator") qel::Locator();
  if (scenario == "names") qel::Names();
  return 0;
}
