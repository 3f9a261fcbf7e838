#ifndef QEL_CLI_TERMINAL_OPTIONS_H_
#define QEL_CLI_TERMINAL_OPTIONS_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace qel::cli {

/// What is told of an input whose name is empty.
inline constexpr char kNamelessInput[] = "an input has no name; is a variable empty?";

/// The options of a command, split from its other words.
class Options {
 public:
  /// What an option takes; a file has a name that is not empty.
  enum class Takes { kNothing, kValue, kFile, kOptionalValue };
  using Known = std::map<std::string, Takes, std::less<>>;

  /// Splits `words`. Options start with '-'; "--name=value" works as well, and is the only way to
  /// give an optional value. "--" ends them, but for -o and --in-place, which part the words.
  /// Throws `Failure(kUsage)` for options that are not in `known` or lack their value.
  Options(const std::vector<std::string>& words, const Known& known);

  bool Has(const std::string& name) const { return values_.contains(name); }
  /// The option's last value, or `otherwise` when it was not given.
  std::string Value(const std::string& name, const std::string& otherwise = {}) const;
  /// Every value that the option was given, in order.
  std::vector<std::string> Values(const std::string& name) const;
  /// The option's value as a whole number. Throws `Failure(kUsage)`.
  int Number(const std::string& name, int minimum, int maximum, int otherwise) const;
  /// The option's value as a whole number from 1 on, K, M, G or T after it being powers of `unit`.
  /// Throws `Failure(kUsage)`.
  int64_t Size(const std::string& name, int64_t unit, int64_t otherwise) const;
  /// The words that are no options, in order.
  const std::vector<std::string>& rest() const { return rest_; }
  /// The same of commands whose words are names of files. Throws `Failure(kNoInput)` for an empty
  /// one.
  const std::vector<std::string>& Files() const;
  /// How many of these stand before the option, which was given.
  size_t RestBefore(const std::string& name) const { return rest_before_.at(name); }

 private:
  std::map<std::string, std::vector<std::string>> values_;
  std::map<std::string, size_t> rest_before_;
  std::vector<std::string> rest_;
};

}  // namespace qel::cli

#endif  // QEL_CLI_TERMINAL_OPTIONS_H_
