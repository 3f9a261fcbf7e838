#include <iostream>

#include "check/runner.h"
#include "cli/commands/command_table.h"
#include "cli/operations.h"
#include "cli/terminal/console.h"
#include "cli/terminal/errors.h"

namespace qel::cli {
namespace {

/// `qel check` and `qel check-host`: the same but for the rules.
int RunCheck(const std::string& name, const check::Rules& rules, const Words& words) {
  const Options options(words, KnownOptions(name));
  if (options.Has("--list")) {
    check::ListRules(rules, std::cout);
    return kDone;
  }
  if (options.Files().empty()) throw Failure(kUsage, "write qel {} LIBRARY", name);
  check::CheckOptions how{options.Has("--quiet"), options.Value("--filter")};
  const bool json = options.Has("--json");
  how.seconds = options.Number("--time-limit", 1, 3600, how.seconds);
  int code = kDone;
  for (const std::string& path : options.rest()) {
    if (json) {
      how.report = [&](const check::Rule& rule, const std::string& fault,
                       const std::string& missing) {
        if (fault.empty() && how.quiet) return;
        JsonObject object;
        object.Text("library", path)
            .Text("suite", rule.suite)
            .Text("rule", rule.name)
            .Text("text", rule.text)
            .Flag("kept", fault.empty())
            .Text("fault", fault)
            .Text("not_supported", missing);
        std::cout << object.Line() << std::flush;
      };
    }
    if (options.rest().size() > 1 && !how.quiet && !json) std::cout << Printable(path) << "\n";
    try {
      if (!check::CheckLibrary(rules, path, how, std::cout))
        code = std::max<int>(code, kSomeFailed);
    } catch (const std::invalid_argument& error) {
      throw Failure(kUsage, "{}", error.what());
    } catch (const std::runtime_error& error) {
      // Other libraries can be tried nevertheless.
      PrintMessage(error.what());
      code = kModuleFault;
    }
  }
  return code;
}

check::Rules Join(std::initializer_list<check::Rules> suites) {
  check::Rules all;
  for (const check::Rules& suite : suites) all.insert(all.end(), suite.begin(), suite.end());
  return all;
}

}  // namespace

int CheckCommand(const Words& words) {
  return RunCheck("check",
                  Join({check::EntryRules(), check::ObjectRules(), check::SlotRules(),
                        check::ArgumentRules(), check::ResultRules(), check::FaultRules()}),
                  words);
}

int CheckHostCommand(const Words& words) {
  return RunCheck("check-host",
                  Join({check::CollectionRules(), check::StringRules(), check::ImageRules(),
                        check::ImageMemoryRules()}),
                  words);
}

}  // namespace qel::cli
