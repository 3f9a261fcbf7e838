#include "host/instrumented_host.h"

namespace qel::host {
namespace {

constexpr int kImageItem = 3;

/// Counting and lookup of a small object that belongs to an instrumented host.
template <typename Interface, typename... Bases>
class Watched : public HostObject<Interface, Bases...> {
 public:
  result_t QueryInterface(const IID& iid, void** object) override {
    if (!host_.OnCall("QueryInterface")) return CallWatch::kFaultCode;
    *object = nullptr;
    return host_.GivesNull() ? kOk : HostObject<Interface, Bases...>::QueryInterface(iid, object);
  }

 protected:
  explicit Watched(InstrumentedHost& host) : host_(host) { ++host_.live_objects; }
  ~Watched() override { --host_.live_objects; }

  InstrumentedHost& host_;
};

class WatchedString final : public Watched<ICreatableString, IString> {
 public:
  explicit WatchedString(InstrumentedHost& host) : Watched(host) {}
  std::wstring_view text() const { return text_; }
  result_t AppendChars(int count, const wchar_t* characters) override {
    if (!host_.OnCall("AppendChars")) return CallWatch::kFaultCode;
    text_.append(characters, static_cast<size_t>(count));
    return kOk;
  }

 private:
  std::wstring text_;
};

result_t MakeComponent(InstrumentedHost& host, std::wstring_view name, const IID& iid,
                       void** object) {
  if (name == kStringComponentName) {
    *object = static_cast<ICreatableString*>(new WatchedString(host));
    return kOk;
  }
  if (name != kImageComponentName) return kFail;
  if (iid != IID_IQELImage && iid != IID_IQELImageDIB) return kNoInterface;
  *object = host.NewImage();
  return *object != nullptr ? kOk : kFail;
}

class WatchedLocator final : public Watched<IComponentString, IString> {
 public:
  WatchedLocator(InstrumentedHost& host, std::wstring_view component)
      : Watched(host), component_(component) {}
  result_t CreateInstance(const IID* iid, void** object) override {
    if (!host_.OnCall("CreateInstance")) return CallWatch::kFaultCode;
    *object = nullptr;
    return host_.GivesNull() ? kOk : MakeComponent(host_, component_, *iid, object);
  }
  result_t SetPart(int /*part*/, tagREFString /*text*/) override { return kOk; }

 private:
  std::wstring component_;
};

class WatchedCollection final : public Watched<IComponentCollection> {
 public:
  explicit WatchedCollection(InstrumentedHost& host) : Watched(host) {}
  result_t GetItem(int index, IUnknown** item) override {
    if (!host_.OnCall("GetItem")) return CallWatch::kFaultCode;
    *item = nullptr;
    if (index != kImageItem) return kFail;
    if (!host_.GivesNull()) *item = new WatchedLocator(host_, kImageComponentName);
    return kOk;
  }
  result_t FindItem(IString* name, int* index) override {
    if (!host_.OnCall("FindItem")) return CallWatch::kFaultCode;
    if (static_cast<WatchedString*>(name)->text() != kImageComponentName) return kFail;
    *index = kImageItem;
    return kOk;
  }
  result_t CreateComponent(tagREFString name, const IID* iid, void** object) override {
    if (!host_.OnCall("CreateComponent")) return CallWatch::kFaultCode;
    *object = nullptr;
    if (host_.GivesNull()) return kOk;
    const std::wstring_view component = TextOf(name);
    if (iid != nullptr && *iid != IID_NULL) return MakeComponent(host_, component, *iid, object);
    *object = static_cast<IComponentString*>(new WatchedLocator(host_, component));
    return kOk;
  }
};

}  // namespace

InstrumentedHost::InstrumentedHost()
    : collection_(SmartPtr<IComponentCollection>::Adopt(new WatchedCollection(*this))) {}

InstrumentedHost::~InstrumentedHost() = default;

}  // namespace qel::host
