#include "host/host_collection.h"

#include <algorithm>

#include "host/module_library.h"

namespace qel::host {

std::wstring_view TextOf(tagREFString text) {
  const auto length = static_cast<int32_t>(text.length);
  if (length <= 0 || text.text == nullptr) return {};
  return {text.text, static_cast<size_t>(length)};
}

result_t HostString::AppendChars(int count, const wchar_t* characters) {
  if (count < 0 || (count > 0 && characters == nullptr)) return kInvalidArgument;
  return FailWithoutMemory([&] {
    text_.append(characters, static_cast<size_t>(count));
    return kOk;
  });
}

result_t HostString::GetText(tagREFString* text) {
  *text = {text_.size(), text_.data()};
  return kOk;
}

SmartPtr<HostLocator> HostLocator::Make(IComponentCollection* collection, std::wstring component) {
  return SmartPtr<HostLocator>::Adopt(new HostLocator(collection, std::move(component)));
}

result_t HostLocator::SetPart(int part, tagREFString text) {
  if (part != kLocatorComponent && part != kLocatorModule) return kInvalidArgument;
  return FailWithoutMemory([&] {
    (part == kLocatorComponent ? component_ : module_) = TextOf(text);
    found_in_module_ = nullptr;
    return kOk;
  });
}

result_t HostLocator::CreateInstance(const IID* iid, void** object) {
  if (object == nullptr) return kNullOutput;
  *object = nullptr;
  if (iid == nullptr) return kInvalidArgument;
  const tagREFString name{component_.size(), component_.data()};
  if (collection_) {
    const result_t result = collection_->CreateComponent(name, iid, object);
    if (*object != nullptr || module_.empty()) return result;
  }
  CreationFunction create = found_in_module_;
  if (create == nullptr && !module_.empty()) {
    create = FindInSiblingModule(module_, name, collection_.Get());
    found_in_module_ = create;
  }
  return create != nullptr ? create(nullptr, iid, object) : kFail;
}

HostCollection::HostCollection() {
  Offer(kLocatorComponentName, MakerOf([this] { return HostLocator::Make(this, {}); }));
  Offer(kCollectionComponentName,
        [this](const IID& iid, void** object) { return QueryInterface(iid, object); });
}

SmartPtr<HostCollection> HostCollection::MakeWithImages(const ImageOptions& options) {
  SmartPtr<HostCollection> collection = Make();
  collection->OfferImages(options);
  collection->OfferStrings();
  return collection;
}

void HostCollection::Offer(std::wstring_view name, Maker maker) {
  const auto found = std::ranges::find(entries_, name, &Entry::name);
  if (found != entries_.end()) {
    found->maker = std::move(maker);
  } else {
    entries_.push_back({std::wstring(name), std::move(maker)});
  }
}

void HostCollection::OfferImages(const ImageOptions& options) {
  Offer(kImageComponentName, MakerOf([options] { return HostImage::Make(options); }));
}

void HostCollection::OfferStrings() { Offer(kStringComponentName, MakerOf(&HostString::Make)); }

const HostCollection::Entry* HostCollection::Find(std::wstring_view name) const {
  const auto found = std::ranges::find(entries_, name, &Entry::name);
  return found == entries_.end() ? nullptr : &*found;
}

result_t HostCollection::FindItem(IString* name, int* index) {
  if (index == nullptr) return kNullOutput;
  const auto text = QueryFor<IHostString>(name);
  if (!text) return kFail;
  tagREFString spelled{};
  text->GetText(&spelled);
  const Entry* const entry = Find(TextOf(spelled));
  if (entry == nullptr) return kFail;
  *index = static_cast<int>(entry - entries_.data());
  return kOk;
}

result_t HostCollection::GetItem(int index, IUnknown** item) {
  if (item == nullptr) return kNullOutput;
  *item = nullptr;
  if (index < 0 || static_cast<size_t>(index) >= entries_.size()) return kInvalidArgument;
  return FailWithoutMemory([&] {
    *item = HostLocator::Make(this, entries_[static_cast<size_t>(index)].name).Detach();
    return kOk;
  });
}

result_t HostCollection::CreateComponent(tagREFString name, const IID* iid, void** object) {
  if (object == nullptr) return kNullOutput;
  *object = nullptr;
  const Entry* const entry = Find(TextOf(name));
  if (entry == nullptr) return kFail;
  return FailWithoutMemory([&] {
    if (iid == nullptr || *iid == IID_NULL) {
      *object = static_cast<IComponentString*>(HostLocator::Make(this, entry->name).Detach());
      return kOk;
    }
    return entry->maker ? entry->maker(*iid, object) : kFail;
  });
}

}  // namespace qel::host
