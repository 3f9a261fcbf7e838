#include "cli/terminal/cpu_level.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace qel::cli {
namespace {

constexpr std::string_view kOwner("QEL\0", 4);
constexpr uint32_t kLevelNote = 1;

size_t Padded(size_t size) { return (size + 3) & ~size_t{3}; }

/// Reads the note's content: how far from it the number of the level stands, and a name for each.
std::string ReadLevel(const char* content, size_t size) {
  int32_t distance = 0;
  if (size < sizeof(distance)) return {};
  std::memcpy(&distance, content, sizeof(distance));
  int32_t level = 0;
  std::memcpy(&level, content + distance, sizeof(level));
  std::string_view names(content + sizeof(distance), size - sizeof(distance));
  for (; level > 0 && !names.empty(); --level) {
    names.remove_prefix(std::min(names.find('\0'), names.size() - 1) + 1);
  }
  return std::string(names.substr(0, names.find('\0')));
}

/// The level from a segment of notes; empty when none of them tells it.
std::string FindLevel(const char* notes, size_t size) {
  Elf64_Nhdr note;
  while (size >= sizeof(note)) {
    std::memcpy(&note, notes, sizeof(note));
    const size_t content = sizeof(note) + Padded(note.n_namesz);
    const size_t end = content + Padded(note.n_descsz);
    if (content + note.n_descsz > size) return {};
    if (note.n_type == kLevelNote &&
        std::string_view(notes + sizeof(note), note.n_namesz) == kOwner) {
      return ReadLevel(notes + content, note.n_descsz);
    }
    if (end > size) return {};
    notes += end;
    size -= end;
  }
  return {};
}

struct Search {
  const void* base;
  std::string level = {};
};

int Visit(dl_phdr_info* info, size_t, void* data) {
  Search& search = *static_cast<Search*>(data);
  const auto* const base = reinterpret_cast<const char*>(info->dlpi_addr);
  if (base != search.base) return 0;
  for (int i = 0; i < info->dlpi_phnum && search.level.empty(); ++i) {
    const ElfW(Phdr)& segment = info->dlpi_phdr[i];
    if (segment.p_type == PT_NOTE)
      search.level = FindLevel(base + segment.p_vaddr, segment.p_memsz);
  }
  return 1;
}

}  // namespace

std::string CpuLevelInUse(const void* function) {
  Dl_info info;
  if (dladdr(function, &info) == 0) return {};
  Search search{info.dli_fbase};
  dl_iterate_phdr(&Visit, &search);
  return search.level;
}

}  // namespace qel::cli
