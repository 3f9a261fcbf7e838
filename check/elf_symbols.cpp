#include "check/elf_symbols.h"

#include <elf.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace qel::cli {
namespace {

/// The bytes of a file with bounds: positions come from the file and may be wrong.
class Bytes {
 public:
  explicit Bytes(const std::filesystem::path& path) : path_(path.string()) {
    std::ifstream file(path, std::ios::binary);
    content_.assign(std::istreambuf_iterator<char>(file), {});
  }

  template <typename T>
  T Read(uint64_t position) const {
    T value;
    Check(position, sizeof(T));
    std::memcpy(&value, content_.data() + position, sizeof(T));
    return value;
  }
  std::string Text(uint64_t position) const {
    Check(position, 1);
    return content_.substr(position, content_.find('\0', position) - position);
  }

 private:
  void Check(uint64_t position, uint64_t size) const {
    if (position > content_.size() || size > content_.size() - position) {
      throw std::runtime_error(path_ + " is no complete 64-bit ELF library");
    }
  }

  std::string path_;
  std::string content_;
};

}  // namespace

ElfNames ReadElf(const std::filesystem::path& path) {
  const Bytes bytes(path);
  const auto header = bytes.Read<Elf64_Ehdr>(0);
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_ident[EI_CLASS] != ELFCLASS64) {
    throw std::runtime_error(path.string() + " is no 64-bit ELF library");
  }
  const auto section = [&](uint64_t index) {
    return bytes.Read<Elf64_Shdr>(header.e_shoff + index * sizeof(Elf64_Shdr));
  };
  ElfNames names;
  for (unsigned i = 0; i < header.e_shnum; ++i) {
    const Elf64_Shdr table = section(i);
    if (table.sh_type != SHT_DYNSYM && table.sh_type != SHT_DYNAMIC) continue;
    const uint64_t text = section(table.sh_link).sh_offset;
    if (table.sh_type == SHT_DYNAMIC) {
      for (uint64_t at = 0; at < table.sh_size; at += sizeof(Elf64_Dyn)) {
        const auto entry = bytes.Read<Elf64_Dyn>(table.sh_offset + at);
        if (entry.d_tag == DT_NEEDED) names.needs.push_back(bytes.Text(text + entry.d_un.d_val));
      }
      continue;
    }
    for (uint64_t at = 0; at < table.sh_size; at += sizeof(Elf64_Sym)) {
      const auto symbol = bytes.Read<Elf64_Sym>(table.sh_offset + at);
      const bool named = symbol.st_name != 0 && symbol.st_shndx != SHN_UNDEF;
      // Version definitions are no symbols that anyone could call.
      if (named && symbol.st_shndx != SHN_ABS) {
        names.exports.push_back(bytes.Text(text + symbol.st_name));
      }
    }
  }
  std::ranges::sort(names.exports);
  return names;
}

}  // namespace qel::cli
