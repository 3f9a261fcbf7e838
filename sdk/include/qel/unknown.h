#ifndef QEL_UNKNOWN_H_
#define QEL_UNKNOWN_H_

#include "qel/iid.h"
#include "qel/types.h"

namespace qel {

// Interfaces have no data, no virtual destructor and no overloads. The order of their functions is
// the binary interface: callers use slot positions.

/// What every object of the framework answers.
class IUnknown {
 public:
  /// Asks for another interface of the same object.
  /// Result: kOk with one reference in `*object` for the caller; kNoInterface with `*object` null;
  /// kNullOutput for a null `object`. Callers go by the pointer, not by the code. Threads: any.
  virtual result_t QueryInterface(const IID& iid, void** object) = 0;

  /// Adds a reference and returns the count, which other threads may have changed meanwhile.
  /// Threads: any.
  virtual uint32_t AddRef() = 0;

  /// Gives a reference back and returns the count; at 0 the object is gone.
  /// Threads: any.
  virtual uint32_t Release() = 0;

 protected:
  ~IUnknown() = default;
};
template <>
inline constexpr const IID* kIidOf<IUnknown> = &IID_IUnknown;

/// Tells the name under which a component is created.
class IObjectInfo : public IUnknown {
 public:
  /// Writes the object name to `*name`; `index` is ignored.
  /// Result: kOk. Ownership: the text is valid while the module is loaded.
  /// Threads: any.
  virtual result_t GetName(int index, tagREFString* name) = 0;

 protected:
  ~IObjectInfo() = default;
};
inline constexpr IID IID_IObjectInfo = __IIDOfc("IObjectInfo");
template <>
inline constexpr const IID* kIidOf<IObjectInfo> = &IID_IObjectInfo;

}  // namespace qel

#endif  // QEL_UNKNOWN_H_
