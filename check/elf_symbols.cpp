#include "check/elf_symbols.h"

#include <elf.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace qel::check {
namespace {

constexpr uint64_t kLongestName = 4096;
constexpr unsigned kMostSegments = 256;

/// A 64-bit ELF library by the addresses at which it will be loaded. Every position in it comes
/// from the file and may be wrong.
class ElfFile {
 public:
  explicit ElfFile(const std::filesystem::path& path) : path_(path.string()) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error(path_ + ": " + std::strerror(errno));
    std::ostringstream content;
    content << file.rdbuf();
    content_ = std::move(content).str();
    header_ = Read<Elf64_Ehdr>(0);
    if (std::memcmp(header_.e_ident, ELFMAG, SELFMAG) != 0 ||
        header_.e_ident[EI_CLASS] != ELFCLASS64 || header_.e_phentsize != sizeof(Elf64_Phdr) ||
        header_.e_phnum > kMostSegments) {
      throw std::runtime_error(path_ + " is no 64-bit ELF library");
    }
    for (unsigned i = 0; i < header_.e_phnum; ++i) {
      segments_.push_back(Read<Elf64_Phdr>(header_.e_phoff + i * sizeof(Elf64_Phdr)));
    }
  }

  /// The last segment that `accepts(segment)`, as the loader takes it. Throws when there is none.
  template <typename Accepts>
  Elf64_Phdr FindSegment(Accepts&& accepts) const {
    const auto found = std::ranges::find_if(segments_.rbegin(), segments_.rend(), accepts);
    if (found == segments_.rend()) throw Incomplete();
    return *found;
  }

  template <typename T>
  T Read(uint64_t position) const {
    if (position > content_.size() || sizeof(T) > content_.size() - position) throw Incomplete();
    T value;
    std::memcpy(&value, content_.data() + position, sizeof(T));
    return value;
  }
  template <typename T>
  T ReadAt(uint64_t address) const {
    return Read<T>(PositionOf(address));
  }
  std::string TextAt(uint64_t address) const {
    const uint64_t position = PositionOf(address);
    const std::string_view rest =
        std::string_view(content_).substr(std::min<uint64_t>(position, content_.size()));
    const size_t length = rest.substr(0, kLongestName).find('\0');
    if (length == std::string_view::npos) throw Incomplete();
    return std::string(rest.substr(0, length));
  }

 private:
  uint64_t PositionOf(uint64_t address) const {
    const Elf64_Phdr segment = FindSegment([&](const Elf64_Phdr& s) {
      return s.p_type == PT_LOAD && address >= s.p_vaddr && address - s.p_vaddr < s.p_filesz;
    });
    return segment.p_offset + (address - segment.p_vaddr);
  }
  std::runtime_error Incomplete() const {
    return std::runtime_error(path_ + " is no complete 64-bit ELF library");
  }

  std::string path_;
  std::string content_;
  Elf64_Ehdr header_;
  std::vector<Elf64_Phdr> segments_;
};

/// How many symbols the hash table at `address` covers, from the first symbol on.
uint64_t CountHashed(const ElfFile& file, uint64_t address) {
  return file.ReadAt<uint32_t>(address + sizeof(uint32_t));  // as many as there are chain links
}

/// The same for a table of the GNU kind. The last symbol is the end of the chain that starts last.
uint64_t CountGnuHashed(const ElfFile& file, uint64_t address) {
  const auto word = [&](uint64_t index) {
    return file.ReadAt<uint32_t>(address + index * sizeof(uint32_t));
  };
  constexpr uint64_t kHeaderWords = 4;
  constexpr uint64_t kWordsPerFilterEntry = 2;
  const uint64_t buckets = word(0);
  const uint64_t first = word(1);
  const uint64_t bucket_words = kHeaderWords + kWordsPerFilterEntry * word(2);
  uint64_t last = 0;
  for (uint64_t i = 0; i < buckets; ++i) last = std::max<uint64_t>(last, word(bucket_words + i));
  if (last < first) return first;
  while ((word(bucket_words + buckets + (last - first)) & 1) == 0) ++last;
  return last + 1;
}

/// True for a symbol that a program can look up. Names of versions are absolute, without a value.
bool IsExported(const Elf64_Sym& symbol) {
  const bool is_version = symbol.st_shndx == SHN_ABS && symbol.st_value == 0;
  return symbol.st_name != 0 && symbol.st_shndx != SHN_UNDEF && !is_version &&
         ELF64_ST_BIND(symbol.st_info) != STB_LOCAL;
}

}  // namespace

ElfNames ReadElf(const std::filesystem::path& path) {
  const ElfFile file(path);
  const Elf64_Phdr dynamic =
      file.FindSegment([](const Elf64_Phdr& segment) { return segment.p_type == PT_DYNAMIC; });
  uint64_t symbols = 0, texts = 0, hash = 0, gnu_hash = 0;
  std::vector<uint64_t> needs;
  for (uint64_t at = 0; at < dynamic.p_filesz; at += sizeof(Elf64_Dyn)) {
    const auto entry = file.Read<Elf64_Dyn>(dynamic.p_offset + at);
    if (entry.d_tag == DT_NULL) break;
    if (entry.d_tag == DT_SYMTAB) symbols = entry.d_un.d_ptr;
    if (entry.d_tag == DT_STRTAB) texts = entry.d_un.d_ptr;
    if (entry.d_tag == DT_HASH) hash = entry.d_un.d_ptr;
    if (entry.d_tag == DT_GNU_HASH) gnu_hash = entry.d_un.d_ptr;
    if (entry.d_tag == DT_NEEDED) needs.push_back(entry.d_un.d_val);
  }
  ElfNames names;
  for (const uint64_t name : needs) names.needs.push_back(file.TextAt(texts + name));
  // Where the two tables differ, the larger one counts: a loader may use either.
  const uint64_t count = std::max(hash != 0 ? CountHashed(file, hash) : 0,
                                  gnu_hash != 0 ? CountGnuHashed(file, gnu_hash) : 0);
  for (uint64_t i = 0; i < count; ++i) {
    const auto symbol = file.ReadAt<Elf64_Sym>(symbols + i * sizeof(Elf64_Sym));
    if (IsExported(symbol)) names.exports.push_back(file.TextAt(texts + symbol.st_name));
  }
  std::ranges::sort(names.exports);
  return names;
}

}  // namespace qel::check
