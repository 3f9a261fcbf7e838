#ifndef QEL_CHECK_ELF_SYMBOLS_H_
#define QEL_CHECK_ELF_SYMBOLS_H_

#include <filesystem>
#include <string>
#include <vector>

namespace qel::check {

/// What a shared library says of itself to the loader.
struct ElfNames {
  std::vector<std::string> exports;  ///< defined dynamic symbols, sorted
  std::vector<std::string> needs;    ///< libraries that it depends on
};

/// Reads a 64-bit ELF file as the loader does: by its dynamic segment, whatever its sections say.
/// Throws `std::runtime_error` when it has none, or when a place in the file leads out of it.
ElfNames ReadElf(const std::filesystem::path& path);

}  // namespace qel::check

#endif  // QEL_CHECK_ELF_SYMBOLS_H_
