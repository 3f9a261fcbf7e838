#ifndef QEL_CLI_ARGUMENTS_H_
#define QEL_CLI_ARGUMENTS_H_

#include <map>
#include <string>

#include "cli/operation.h"

namespace qel::cli {

/// What a parameter takes, for help and messages: "a whole number from 0 to 255".
std::string DescribeValues(const Parameter& parameter);

/// The arguments of one step, checked against its operation's parameters. Parameters that were left
/// out have their default.
class Arguments {
 public:
  /// Checks `given` (name to text). Throws `Failure(kUsage)` for unknown names, missing arguments
  /// and values that do not fit.
  Arguments(const Operation& operation, const std::map<std::string, std::string>& given);

  /// True when the parameter has a value, its own or a default.
  bool Has(std::string_view name) const { return Find(name) != nullptr; }
  int Int(std::string_view name) const { return static_cast<int>(Number(name)); }
  /// The value as a number: flags are 0 or 1, colours 0xRRGGBB, choices their value.
  double Number(std::string_view name) const;
  /// An extent in pixels, of a picture that has `whole` of them.
  double Pixels(std::string_view name, int whole) const;
  float Real(std::string_view name) const { return static_cast<float>(Number(name)); }
  const std::string& Text(std::string_view name) const;

 private:
  struct Value {
    std::string text;
    double number = 0;
  };
  const Value* Find(std::string_view name) const;
  const Value& Get(std::string_view name) const;

  std::map<std::string, Value, std::less<>> values_;
};

}  // namespace qel::cli

#endif  // QEL_CLI_ARGUMENTS_H_
