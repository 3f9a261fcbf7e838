#ifndef QEL_CLI_TERMINAL_CPU_LEVEL_H_
#define QEL_CLI_TERMINAL_CPU_LEVEL_H_

#include <string>

namespace qel::cli {

/// The processor level that a loaded module uses, by name, from the note that modules of this
/// project carry; empty for others. `function` is any function of the module.
std::string CpuLevelInUse(const void* function);

}  // namespace qel::cli

#endif  // QEL_CLI_TERMINAL_CPU_LEVEL_H_
