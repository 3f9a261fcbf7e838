#include <iostream>

#include "check/runner.h"
#include "cli/commands/command_table.h"
#include "cli/operations.h"
#include "cli/terminal/console.h"
#include "cli/terminal/errors.h"

namespace qel::cli {
namespace {

/// `qel check` and `qel check-host`: the same but for the rules.
int RunCheck(const std::string& name, const Rules& rules, const Words& words) {
  const Options options(words, KnownOptions(name));
  if (options.Has("--list")) {
    ListRules(rules, std::cout);
    return kDone;
  }
  if (options.rest().empty()) throw Failure(kUsage, "write qel " + name + " LIBRARY");
  CheckOptions check{options.Has("--quiet"), options.Value("--filter")};
  const bool json = options.Has("--json");
  check.seconds = options.Number("--time-limit", 1, 3600, check.seconds);
  int code = kDone;
  for (const std::string& path : options.rest()) {
    if (json) {
      check.report = [&](const Rule& rule, const std::string& fault, const std::string& missing) {
        if (fault.empty() && check.quiet) return;
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
    if (options.rest().size() > 1 && !check.quiet && !json) std::cout << path << "\n";
    try {
      code = std::max(code, CheckLibrary(rules, path, check, std::cout));
    } catch (const Failure& failure) {
      // Other libraries can be tried nevertheless, unless the words are wrong.
      if (failure.code() == kUsage) throw;
      PrintMessage(failure.what());
      code = std::max<int>(code, failure.code());
    }
  }
  return code;
}

Rules Join(std::initializer_list<Rules> suites) {
  Rules all;
  for (const Rules& suite : suites) all.insert(all.end(), suite.begin(), suite.end());
  return all;
}

}  // namespace

int CheckCommand(const Words& words) {
  return RunCheck("check",
                  Join({EntryRules(), ObjectRules(), SlotRules(), ArgumentRules(), ResultRules(),
                        FaultRules()}),
                  words);
}

int CheckHostCommand(const Words& words) {
  return RunCheck("check-host",
                  Join({CollectionRules(), StringRules(), ImageRules(), ImageMemoryRules()}),
                  words);
}

}  // namespace qel::cli
