#include "host/host_collection.h"

#include <algorithm>

#include "host/module_library.h"

namespace qel::host {

std::wstring_view TextOf(tagREFString text) {
  return {text.text, static_cast<uint32_t>(text.length)};
}

result_t HostString::QueryInterface(const IID& iid, void** object) {
  // The base answers for the last interface of the chain; these are its bases.
  const bool base = iid == IID_IString || iid == IID_ICreatableString;
  return HostObject::QueryInterface(base ? IID_IHostString : iid, object);
}

result_t HostString::AppendChars(int count, const wchar_t* characters) {
  if (count < 0 || (count > 0 && characters == nullptr)) return kInvalidArgument;
  text_.append(characters, static_cast<size_t>(count));
  return kOk;
}

result_t HostString::GetText(tagREFString* text) {
  *text = {text_.size(), text_.data()};
  return kOk;
}

SmartPtr<HostLocator> HostLocator::Make(IComponentCollection* collection, std::wstring component) {
  return SmartPtr<HostLocator>::Adopt(new HostLocator(collection, std::move(component)));
}

result_t HostLocator::SetPart(int part, tagREFString text) {
  switch (part) {
    case kLocatorComponent:
      component_ = TextOf(text);
      return kOk;
    case kLocatorModule:
      module_ = TextOf(text);
      return kOk;
    default:
      return kInvalidArgument;
  }
}

result_t HostLocator::CreateInstance(const IID* iid, void** object) {
  if (iid == nullptr || object == nullptr) return kNullOutput;
  *object = nullptr;
  const tagREFString name{component_.size(), component_.data()};
  if (module_.empty()) {
    return collection_ ? collection_->CreateComponent(name, iid, object) : kFail;
  }
  const CreationFunction create = FindInSiblingModule(module_, name, collection_.Get());
  return create != nullptr ? create(nullptr, iid, object) : kFail;
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

void HostCollection::OfferStrings() { Offer(L"CreatableString", MakerOf(&HostString::Make)); }

const HostCollection::Entry* HostCollection::Find(std::wstring_view name) const {
  const auto found = std::ranges::find(entries_, name, &Entry::name);
  return found == entries_.end() ? nullptr : &*found;
}

result_t HostCollection::FindItem(IString* name, int* index) {
  const auto text = QueryFor<IHostString>(name);
  if (!text || index == nullptr) return kFail;
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
  *item = HostLocator::Make(this, entries_[static_cast<size_t>(index)].name).Detach();
  return kOk;
}

result_t HostCollection::CreateComponent(tagREFString name, const IID* iid, void** object) {
  if (object == nullptr) return kNullOutput;
  *object = nullptr;
  const Entry* const entry = Find(TextOf(name));
  if (entry == nullptr) return kFail;
  if (iid == nullptr || *iid == IID_NULL) {
    *object = static_cast<IComponentString*>(HostLocator::Make(this, entry->name).Detach());
    return kOk;
  }
  return entry->maker(*iid, object);
}

}  // namespace qel::host
