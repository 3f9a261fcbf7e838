#ifndef QEL_HOST_HOST_COLLECTION_H_
#define QEL_HOST_HOST_COLLECTION_H_

#include <atomic>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/host_image.h"
#include "host/host_object.h"
#include "qel/entry.h"

namespace qel::host {

/// Makes one object and hands out its interface `iid`, as a creation function does.
using Maker = std::function<result_t(const IID& iid, void** object)>;

/// A maker that asks a fresh object for the interface; `make` returns a `SmartPtr`.
template <typename Make>
Maker MakerOf(Make make) {
  return [make](const IID& iid, void** object) { return make()->QueryInterface(iid, object); };
}

/// Text of a counted string, valid as long as that is.
std::wstring_view TextOf(tagREFString text);

/// How this host reads a string back that comes in through `IString`, whichever of its modules made
/// it: one slot more, behind an identifier of its own.
class IHostString : public ICreatableString {
 public:
  /// The text, valid while the string is not changed.
  virtual result_t GetText(tagREFString* text) = 0;

 protected:
  ~IHostString() = default;
};
inline constexpr IID IID_IHostString = __IIDOfc("IHostString");

}  // namespace qel::host

template <>
inline constexpr const qel::IID* qel::kIidOf<qel::host::IHostString> = &qel::host::IID_IHostString;

namespace qel::host {

/// A string that modules append to.
class HostString final : public HostObject<IHostString, ICreatableString, IString> {
 public:
  static SmartPtr<HostString> Make() { return SmartPtr<HostString>::Adopt(new HostString); }

  result_t AppendChars(int count, const wchar_t* characters) override;
  result_t GetText(tagREFString* text) override;

 private:
  HostString() = default;

  std::wstring text_;
};

/// Names a component and makes instances of it.
/// Threads: any for `CreateInstance`, once the parts are set.
class HostLocator final : public HostObject<IComponentString, IString> {
 public:
  /// Keeps `collection`, which may be null.
  static SmartPtr<HostLocator> Make(IComponentCollection* collection, std::wstring component);

  /// Asks the collection for the component; when it has none, the module named by `SetPart`.
  result_t CreateInstance(const IID* iid, void** object) override;
  result_t SetPart(int part, tagREFString text) override;

 private:
  HostLocator(IComponentCollection* collection, std::wstring component)
      : collection_(SmartPtr<IComponentCollection>::Retain(collection)),
        component_(std::move(component)) {}

  SmartPtr<IComponentCollection> collection_;
  std::wstring module_;
  std::wstring component_;
  std::atomic<CreationFunction> found_in_module_{nullptr};
};

/// The components that a host offers to modules, by name. Locators and the collection itself are
/// among them from the start.
/// Threads: one while components are offered, then any.
class HostCollection final : public HostObject<IComponentCollection> {
 public:
  /// A collection without images and strings.
  static SmartPtr<HostCollection> Make() {
    return SmartPtr<HostCollection>::Adopt(new HostCollection);
  }
  /// A collection with all that the image module needs: strings, and images laid out as `options`
  /// say.
  static SmartPtr<HostCollection> MakeWithImages(const ImageOptions& options = {});

  /// Offers a component; a maker under the same name is replaced. An empty maker refuses every
  /// request.
  void Offer(std::wstring_view name, Maker maker);
  /// Offers "QELImageDIB".
  void OfferImages(const ImageOptions& options);
  /// Offers "CreatableString".
  void OfferStrings();

  /// The item is a locator of the component.
  result_t GetItem(int index, IUnknown** item) override;
  /// Finds names that are strings of this host. Result: kFail when there is none, `*index` is then
  /// untouched.
  result_t FindItem(IString* name, int* index) override;
  result_t CreateComponent(tagREFString name, const IID* iid, void** object) override;

 private:
  struct Entry {
    std::wstring name;
    Maker maker;
  };
  HostCollection();
  const Entry* Find(std::wstring_view name) const;

  std::vector<Entry> entries_;
};

}  // namespace qel::host

#endif  // QEL_HOST_HOST_COLLECTION_H_
