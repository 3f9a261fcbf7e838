#ifndef QEL_HOST_H_
#define QEL_HOST_H_

#include "qel/unknown.h"

namespace qel {

// Services of the host that modules call. Functions named ReservedSlotN keep their place in the
// table and are never called by modules: a host leaves them alone, or gives them a meaning of its
// own.

/// A string object of the host. Modules only pass it on.
class IString : public IUnknown {
 public:
  virtual result_t ReservedSlot3() { return kFail; }
  virtual result_t ReservedSlot4() { return kFail; }

 protected:
  ~IString() = default;
};
inline constexpr IID IID_IString = __IIDOfc("IString");
template <>
inline constexpr const IID* kIidOf<IString> = &IID_IString;

/// A string that grows at its end.
class ICreatableString : public IString {
 public:
  /// Appends `count` characters, which are read during the call only. `count` 0 appends nothing.
  /// Result: kOk; any failure leaves the string as it was. Modules do not look at it.
  /// Threads: one at a time.
  virtual result_t AppendChars(int count, const wchar_t* characters) = 0;

 protected:
  ~ICreatableString() = default;
};
inline constexpr IID IID_ICreatableString = __IIDOfc("ICreatableString");
template <>
inline constexpr const IID* kIidOf<ICreatableString> = &IID_ICreatableString;

/// Parts of a component locator, for `IComponentString::SetPart`.
enum LocatorPart : int { kLocatorComponent = 1, kLocatorModule = 4 };

/// A component locator: names a component and makes instances of it.
class IComponentString : public IString {
 public:
  /// Makes an instance and hands out its interface `*iid` with one reference for the caller.
  /// Result: kOk; a failure, with `*object` null, when there is no such component or interface, or
  /// no memory. Callers go by the pointer, not by the code. Threads: any, once the parts are set.
  virtual result_t CreateInstance(const IID* iid, void** object) = 0;

  /// Sets one part of the name, see `LocatorPart`. The text is read during the call only.
  /// Result: kOk; a failure for parts that the locator does not know. Modules do not look at it.
  /// Threads: one, before the first instance is made.
  virtual result_t SetPart(int part, tagREFString text) = 0;

 protected:
  ~IComponentString() = default;
};
inline constexpr IID IID_IComponentString = __IIDOfc("IComponentString");
template <>
inline constexpr const IID* kIidOf<IComponentString> = &IID_IComponentString;

/// The host's collection of components. Modules keep one reference, see `InitializeModule`.
class IComponentCollection : public IUnknown {
 public:
  virtual result_t ReservedSlot3() { return kFail; }

  /// The item at `index`, a locator, with one reference for the caller.
  /// Result: kOk; a failure with `*item` null for an index that `FindItem` did not give.
  /// Threads: any that operations run on.
  virtual result_t GetItem(int index, IUnknown** item) = 0;

  /// Finds a component by its name, a string that this host made, and writes its index.
  /// Result: not negative when there is one; a failure when there is none. Threads: any that
  /// operations run on.
  virtual result_t FindItem(IString* name, int* index) = 0;

  virtual result_t ReservedSlot6() { return kFail; }
  virtual result_t ReservedSlot7() { return kFail; }
  virtual result_t ReservedSlot8() { return kFail; }
  virtual result_t ReservedSlot9() { return kFail; }
  virtual result_t ReservedSlot10() { return kFail; }
  virtual result_t ReservedSlot11() { return kFail; }
  virtual result_t ReservedSlot12() { return kFail; }
  virtual result_t ReservedSlot13() { return kFail; }
  virtual result_t ReservedSlot14() { return kFail; }
  virtual result_t ReservedSlot15() { return kFail; }

  /// Makes an instance of the component `name` with one reference for the caller. A null `iid` or
  /// `IID_NULL` asks for the component's locator (`IComponentString`) instead.
  /// Result: kOk; a failure, with `*object` null, when there is no such component or interface, or
  /// no memory. Callers go by the pointer, not by the code. Threads: any that operations run on.
  virtual result_t CreateComponent(tagREFString name, const IID* iid, void** object) = 0;

 protected:
  ~IComponentCollection() = default;
};
inline constexpr IID IID_IComponentCollection = __IIDOfc("IComponentCollection");
template <>
inline constexpr const IID* kIidOf<IComponentCollection> = &IID_IComponentCollection;

}  // namespace qel

#endif  // QEL_HOST_H_
