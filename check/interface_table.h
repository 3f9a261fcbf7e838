#ifndef QEL_CHECK_INTERFACE_TABLE_H_
#define QEL_CHECK_INTERFACE_TABLE_H_

#include <string>
#include <string_view>
#include <vector>

#include "qel/qel.h"

namespace qel::check {

/// An interface of the framework: its identifier and its functions in the order of their slots,
/// those of `IUnknown` included.
struct InterfaceRow {
  std::string_view name;
  IID iid;
  std::vector<std::string_view> slots;
};

/// A component: the name it is created under and the interface that makes it what it is.
struct ComponentRow {
  std::wstring_view name;
  std::string_view interface_name;

  tagREFString RefName() const { return {name.size(), name.data()}; }
  const InterfaceRow& Interface() const;
};

/// Every interface that objects are asked for, of the module and of hosts.
const std::vector<InterfaceRow>& InterfaceTable();

/// The components of the image module.
const std::vector<ComponentRow>& ModuleComponents();
/// The components of hosts.
const std::vector<ComponentRow>& HostComponents();

/// A component's name as plain text.
std::string PlainName(std::wstring_view name);

/// Four groups of hexadecimal digits, in memory order.
std::string FormatIid(const IID& iid);

}  // namespace qel::check

#endif  // QEL_CHECK_INTERFACE_TABLE_H_
