#include <iostream>

#include "cli/commands/command_table.h"
#include "cli/session/session.h"
#include "cli/terminal/cpu_level.h"
#include "cli/terminal/errors.h"
#include "compose/text.h"
#include "pictures/codec_versions.h"

namespace qel::cli {

int VersionCommand(const Words& words) {
  const Options options(words, KnownOptions("version"));
  if (!options.rest().empty()) throw Failure(kUsage, "write qel version [--verbose]");
  std::cout << "qel " << kToolVersion << "\n";
  if (!options.Has("--verbose")) return kDone;
  const Session session(options.Value("--module"));
  const std::string level = CpuLevelInUse(session.module_function());
  std::cout << "module  " << Printable(session.module_path()) << "\n"
            << "level   " << (level.empty() ? "the module does not tell" : level) << "\n"
            << "text    " << (compose::HasText() ? "fontconfig, FreeType" : "not built in") << "\n";
  for (const pictures::CodecVersion& codec : pictures::CodecVersions()) {
    std::cout << codec.format << std::string(8 - codec.format.size(), ' ') << codec.library << "\n";
  }
  return kDone;
}

}  // namespace qel::cli
