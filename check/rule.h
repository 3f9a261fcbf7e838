#ifndef QEL_CHECK_RULE_H_
#define QEL_CHECK_RULE_H_

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/module_library.h"

namespace qel::check {

/// A rule is broken; the message says by what.
class Broken : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Notes what is being done, for the report in case this process ends or hangs there.
void Doing(const std::string& what);

/// Notes something that the library does not do and need not do.
void NotSupported(const std::string& what);

/// Notes `fault` at once: what is destroyed on the way out may end the process.
void Found(const std::string& fault);

/// Throws `Broken` with `otherwise` unless `kept`.
inline void Require(bool kept, const std::string& otherwise) {
  if (kept) return;
  Found(otherwise);
  throw Broken(otherwise);
}

/// The library that a rule is tried on, freshly loaded in a process of its own.
class Subject {
 public:
  /// Throws `host::ModuleError`.
  explicit Subject(const std::filesystem::path& path) : path_(path) { library_.emplace(path); }

  const std::filesystem::path& path() const { return path_; }
  const host::ModuleLibrary& library() const { return *library_; }
  /// Gives the library back, as a host does at its end.
  void Unload() { library_.reset(); }

 private:
  std::filesystem::path path_;
  std::optional<host::ModuleLibrary> library_;
};

/// What a broken rule explains.
enum RuleKind {
  kOrdinary,
  kCounting,  ///< about reference counts alone: objects that go too early end other rules by a
              ///< signal
};

/// Something that a library must keep.
struct Rule {
  std::string suite;
  std::string name;
  std::string text;                 ///< what must hold, as a sentence
  void (*check)(Subject& subject);  ///< throws `Broken`, or any exception, when it does not
  RuleKind kind = kOrdinary;

  std::string FullName() const { return suite + "/" + name; }
};

using Rules = std::vector<Rule>;

// The rules of modules, suite by suite.
Rules EntryRules();
Rules ObjectRules();
Rules SlotRules();
Rules ArgumentRules();
Rules ResultRules();
Rules FaultRules();

// The rules of a host's components.
Rules CollectionRules();
Rules StringRules();
Rules ImageRules();
Rules ImageMemoryRules();

}  // namespace qel::check

#endif  // QEL_CHECK_RULE_H_
