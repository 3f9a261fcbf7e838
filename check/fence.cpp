#include "check/fence.h"

#include <elf.h>
#include <link.h>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

namespace qel::check {
namespace {

const auto kPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
constexpr size_t kUsualAlignment = 16;
constexpr size_t kMostBlocks = size_t{1} << 16;

// Relocations that put a function's address into a library.
#ifdef __aarch64__
constexpr unsigned kCallOf = R_AARCH64_JUMP_SLOT;
constexpr unsigned kAddressOf = R_AARCH64_GLOB_DAT;
constexpr unsigned kPointerTo = R_AARCH64_ABS64;
#else
constexpr unsigned kCallOf = R_X86_64_JUMP_SLOT;
constexpr unsigned kAddressOf = R_X86_64_GLOB_DAT;
constexpr unsigned kPointerTo = R_X86_64_64;
#endif

/// The functions as they are without a fence.
struct Functions {
  void* (*malloc)(size_t) = &std::malloc;
  void* (*calloc)(size_t, size_t) = &std::calloc;
  void* (*realloc)(void*, size_t) = &std::realloc;
  void (*free)(void*) = &std::free;
  void* (*aligned_alloc)(size_t, size_t) = &::aligned_alloc;
  int (*posix_memalign)(void**, size_t, size_t) = &::posix_memalign;
  size_t (*usable_size)(void*) = &::malloc_usable_size;
  void* (*mmap)(void*, size_t, int, int, int, off_t) = &::mmap;
};
const Functions real;

struct FencedBlock {
  uint8_t* begin = nullptr;
  size_t size = 0;
  uint8_t* mapping = nullptr;
  size_t mapping_size = 0;
};

/// Blocks that are in use, by their first page. Memory of its own: it serves allocation.
std::mutex blocks_mutex;
FencedBlock blocks[kMostBlocks];
size_t block_count = 0;

std::atomic<bool> fencing = false;
Fence::Side fence_side = Fence::Side::kBehind;
size_t largest_request = SIZE_MAX;

size_t RoundUp(size_t size, size_t unit) { return (size + unit - 1) / unit * unit; }

/// Null when there is no memory, or no place to note it.
void* Allocate(size_t size, size_t alignment) {
  if (size > largest_request || size > SIZE_MAX / 4 || alignment > kPage) return nullptr;
  const size_t inner = std::max(RoundUp(size, kPage), kPage);
  const size_t mapping_size = inner + 2 * kPage;
  const std::lock_guard lock(blocks_mutex);
  if (block_count == kMostBlocks) return nullptr;
  void* const mapped = real.mmap(nullptr, mapping_size, PROT_NONE,
                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapped == MAP_FAILED) return nullptr;
  auto* const mapping = static_cast<uint8_t*>(mapped);
  if (mprotect(mapping + kPage, inner, PROT_READ | PROT_WRITE) != 0) return nullptr;
  uint8_t* begin = mapping + kPage;
  if (fence_side == Fence::Side::kBehind)
    begin += inner - RoundUp(std::max<size_t>(size, 1), alignment);
  blocks[block_count++] = {begin, size, mapping, mapping_size};
  return begin;
}

/// The block that starts at `begin`; null when it is none of these.
FencedBlock* Find(const void* begin) {
  FencedBlock* const end = blocks + block_count;
  FencedBlock* const found =
      std::find_if(blocks, end, [&](const FencedBlock& block) { return block.begin == begin; });
  return found == end ? nullptr : found;
}

/// Gives a block back for good. False when it is none of these.
bool Free(const void* begin) {
  const std::lock_guard lock(blocks_mutex);
  FencedBlock* const block = Find(begin);
  if (block == nullptr) return false;
  // The addresses stay taken, so that nothing else comes to lie there.
  real.mmap(block->mapping, block->mapping_size, PROT_NONE,
            MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE | MAP_FIXED, -1, 0);
  *block = blocks[--block_count];
  return true;
}

// What libraries call instead.

void* FencedMalloc(size_t size) {
  return fencing ? Allocate(size, kUsualAlignment) : real.malloc(size);
}

void* FencedCalloc(size_t count, size_t size) {
  if (!fencing) return real.calloc(count, size);
  size_t bytes = 0;
  return __builtin_mul_overflow(count, size, &bytes) ? nullptr : Allocate(bytes, kUsualAlignment);
}

void FencedFree(void* block) {
  if (block != nullptr && !Free(block)) real.free(block);
}

size_t FencedUsableSize(void* begin) {
  {
    const std::lock_guard lock(blocks_mutex);
    if (const FencedBlock* const block = Find(begin); block != nullptr) return block->size;
  }
  return real.usable_size(begin);
}

void* FencedRealloc(void* block, size_t size) {
  std::unique_lock lock(blocks_mutex);
  const FencedBlock* const fenced = block != nullptr ? Find(block) : nullptr;
  if (fenced == nullptr && (!fencing || block != nullptr)) {
    lock.unlock();
    return real.realloc(block, size);
  }
  const size_t kept = fenced != nullptr ? std::min(size, fenced->size) : 0;
  lock.unlock();
  void* const moved = Allocate(size, kUsualAlignment);
  if (moved == nullptr) return nullptr;
  if (block != nullptr) std::memcpy(moved, block, kept);
  FencedFree(block);
  return moved;
}

void* FencedReallocArray(void* block, size_t count, size_t size) {
  size_t bytes = 0;
  return __builtin_mul_overflow(count, size, &bytes) ? nullptr : FencedRealloc(block, bytes);
}

void* FencedAlignedAlloc(size_t alignment, size_t size) {
  return fencing ? Allocate(size, std::max(alignment, kUsualAlignment))
                 : real.aligned_alloc(alignment, size);
}

int FencedPosixMemalign(void** block, size_t alignment, size_t size) {
  if (!fencing) return real.posix_memalign(block, alignment, size);
  *block = Allocate(size, std::max(alignment, kUsualAlignment));
  return *block != nullptr ? 0 : ENOMEM;
}

void* FencedMmap(void* address, size_t size, int protection, int flags, int file, off_t offset) {
  const bool is_memory = (flags & MAP_ANONYMOUS) != 0 && (flags & MAP_FIXED) == 0;
  if (!fencing || !is_memory) return real.mmap(address, size, protection, flags, file, offset);
  errno = ENOMEM;
  if (size > largest_request || size > SIZE_MAX / 4) return MAP_FAILED;
  const size_t inner = RoundUp(size, kPage);
  void* const mapped = real.mmap(nullptr, inner + 2 * kPage, PROT_NONE, flags, -1, 0);
  if (mapped == MAP_FAILED) return MAP_FAILED;
  uint8_t* const begin = static_cast<uint8_t*>(mapped) + kPage;
  return mprotect(begin, inner, protection) == 0 ? begin : MAP_FAILED;
}

struct Exchange {
  std::string_view name;
  void* function;
};
const Exchange kExchanges[] = {
    {"malloc", reinterpret_cast<void*>(&FencedMalloc)},
    {"calloc", reinterpret_cast<void*>(&FencedCalloc)},
    {"realloc", reinterpret_cast<void*>(&FencedRealloc)},
    {"reallocarray", reinterpret_cast<void*>(&FencedReallocArray)},
    {"free", reinterpret_cast<void*>(&FencedFree)},
    {"aligned_alloc", reinterpret_cast<void*>(&FencedAlignedAlloc)},
    {"memalign", reinterpret_cast<void*>(&FencedAlignedAlloc)},
    {"posix_memalign", reinterpret_cast<void*>(&FencedPosixMemalign)},
    {"malloc_usable_size", reinterpret_cast<void*>(&FencedUsableSize)},
    {"mmap", reinterpret_cast<void*>(&FencedMmap)},
    {"mmap64", reinterpret_cast<void*>(&FencedMmap)},
};

/// The dynamic segment of a loaded library; the loader has turned its addresses into places.
class LoadedLibrary {
 public:
  explicit LoadedLibrary(const dl_phdr_info& info) : base_(info.dlpi_addr) {
    for (int i = 0; i < info.dlpi_phnum; ++i) {
      if (info.dlpi_phdr[i].p_type != PT_DYNAMIC) continue;
      const auto* entry = reinterpret_cast<const ElfW(Dyn)*>(base_ + info.dlpi_phdr[i].p_vaddr);
      for (; entry->d_tag != DT_NULL; ++entry) {
        if (entry->d_tag == DT_SYMTAB) symbols_ = Place(*entry);
        if (entry->d_tag == DT_STRTAB) names_ = Place(*entry);
        if (entry->d_tag == DT_RELA) moved_ = Place(*entry);
        if (entry->d_tag == DT_RELASZ) moved_size_ = entry->d_un.d_val;
        if (entry->d_tag == DT_JMPREL) calls_ = Place(*entry);
        if (entry->d_tag == DT_PLTRELSZ) calls_size_ = entry->d_un.d_val;
      }
    }
  }

  void ExchangeFunctions() const {
    ExchangeIn(moved_, moved_size_);
    ExchangeIn(calls_, calls_size_);
  }

 private:
  uintptr_t Place(const ElfW(Dyn) & entry) const {
    return entry.d_un.d_ptr < base_ ? base_ + entry.d_un.d_ptr : entry.d_un.d_ptr;
  }

  void ExchangeIn(uintptr_t table, size_t size) const {
    const auto* const relocations = reinterpret_cast<const ElfW(Rela)*>(table);
    for (size_t i = 0; i < size / sizeof(ElfW(Rela)); ++i) {
      const auto type = ELF64_R_TYPE(relocations[i].r_info);
      if (type != kCallOf && type != kAddressOf && type != kPointerTo) continue;
      const auto& symbol =
          reinterpret_cast<const ElfW(Sym)*>(symbols_)[ELF64_R_SYM(relocations[i].r_info)];
      const std::string_view name(reinterpret_cast<const char*>(names_) + symbol.st_name);
      for (const Exchange& exchange : kExchanges) {
        if (exchange.name == name) Write(base_ + relocations[i].r_offset, exchange.function);
      }
    }
  }

  static void Write(uintptr_t place, void* function) {
    // The loader protects such tables once they are filled.
    const uintptr_t page = place / kPage * kPage;
    mprotect(reinterpret_cast<void*>(page), kPage, PROT_READ | PROT_WRITE);
    *reinterpret_cast<void**>(place) = function;
  }

  uintptr_t base_;
  uintptr_t symbols_ = 0;
  uintptr_t names_ = 0;
  uintptr_t moved_ = 0;
  size_t moved_size_ = 0;
  uintptr_t calls_ = 0;
  size_t calls_size_ = 0;
};

int ExchangeFunctionsOf(dl_phdr_info* info, size_t /*size*/, void* /*unused*/) {
  const std::string_view path = info->dlpi_name;
  const std::string_view name = path.substr(path.rfind('/') + 1);
  // This program allocates for itself; the C library, and what comes with it, serves everybody.
  const bool is_checked = !name.empty() && !name.starts_with("libc.") &&
                          !name.starts_with("ld-linux") && !name.starts_with("linux-vdso") &&
                          !name.starts_with("libasan") && !name.starts_with("libubsan");
  if (is_checked) LoadedLibrary(*info).ExchangeFunctions();
  return 0;
}

}  // namespace

Fence::Fence(Side side, size_t largest) {
  // Each time: libraries may have been loaded since.
  dl_iterate_phdr(&ExchangeFunctionsOf, nullptr);
  fence_side = side;
  largest_request = largest;
  fencing = true;
}

Fence::~Fence() { fencing = false; }

std::optional<Fence::Block> Fence::BlockOf(const uint8_t* address) {
  const std::lock_guard lock(blocks_mutex);
  for (size_t i = 0; i < block_count; ++i) {
    const FencedBlock& block = blocks[i];
    if (address >= block.begin && address <= block.begin + block.size) {
      return Block{block.begin, block.begin + block.size};
    }
  }
  return std::nullopt;
}

}  // namespace qel::check
