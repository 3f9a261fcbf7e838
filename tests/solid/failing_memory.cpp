#include "tests/solid/failing_memory.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace qel::test {
namespace {

/// What is watched; of the whole process, since `operator new` is.
struct {
  uintptr_t begin, end;  ///< addresses of the library
  int fail_at, requests, live;
} watched;

/// Finds where the library at `watched.begin` ends.
int FindEnd(dl_phdr_info* library, size_t, void*) {
  if (library->dlpi_addr != watched.begin) return 0;
  for (int i = 0; i < library->dlpi_phnum; ++i) {
    const auto& segment = library->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD) continue;
    watched.end = std::max(watched.end, watched.begin + segment.p_vaddr + segment.p_memsz);
  }
  return 1;
}

bool Watches(const void* caller) {
  const auto address = reinterpret_cast<uintptr_t>(caller);
  return address >= watched.begin && address < watched.end;
}

void* Allocate(const void* caller, size_t size, size_t alignment = 16) {
  if (Watches(caller)) {
    if (watched.requests++ == watched.fail_at) return nullptr;
    ++watched.live;
  }
  return std::aligned_alloc(alignment, (size + alignment) / alignment * alignment);
}

void* AllocateOrThrow(const void* caller, size_t size, size_t alignment = 16) {
  void* const memory = Allocate(caller, size, alignment);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void Free(const void* caller, void* memory) {
  if (memory != nullptr && Watches(caller)) --watched.live;
  std::free(memory);
}

}  // namespace

FailingMemory::FailingMemory(const void* inside, int fail_at) {
  Dl_info library{};
  dladdr(inside, &library);
  watched = {reinterpret_cast<uintptr_t>(library.dli_fbase), 0, fail_at, 0, 0};
  dl_iterate_phdr(&FindEnd, nullptr);
}

FailingMemory::~FailingMemory() { watched = {}; }

int FailingMemory::requests() const { return watched.requests; }

int FailingMemory::live() const { return watched.live; }

}  // namespace qel::test

// The process's own operators, which libraries loaded later use as well. No caller is inlined into
// another here, so that the return address is that of the code that asks.
#define QEL_CALLER __builtin_return_address(0)
using qel::test::Allocate;
using qel::test::AllocateOrThrow;
using qel::test::Free;
using std::align_val_t;
using std::nothrow_t;
#define QEL_PUBLIC __attribute__((visibility("default"), noinline))

#ifndef QEL_SANITIZED
// Sanitizers have an allocator of their own. What is given back to `free` is not followed.
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" QEL_PUBLIC void* calloc(size_t count, size_t size) noexcept {
  using qel::test::watched;
  if (qel::test::Watches(QEL_CALLER) && watched.requests++ == watched.fail_at) return nullptr;
  return __libc_calloc(count, size);
}
#endif

QEL_PUBLIC void* operator new(size_t size) { return AllocateOrThrow(QEL_CALLER, size); }
QEL_PUBLIC void* operator new[](size_t size) { return AllocateOrThrow(QEL_CALLER, size); }
QEL_PUBLIC void* operator new(size_t size, const nothrow_t&) noexcept {
  return Allocate(QEL_CALLER, size);
}
QEL_PUBLIC void* operator new[](size_t size, const nothrow_t&) noexcept {
  return Allocate(QEL_CALLER, size);
}
QEL_PUBLIC void* operator new(size_t size, align_val_t alignment) {
  return AllocateOrThrow(QEL_CALLER, size, static_cast<size_t>(alignment));
}
QEL_PUBLIC void* operator new[](size_t size, align_val_t alignment) {
  return AllocateOrThrow(QEL_CALLER, size, static_cast<size_t>(alignment));
}
QEL_PUBLIC void* operator new(size_t size, align_val_t alignment, const nothrow_t&) noexcept {
  return Allocate(QEL_CALLER, size, static_cast<size_t>(alignment));
}
QEL_PUBLIC void* operator new[](size_t size, align_val_t alignment, const nothrow_t&) noexcept {
  return Allocate(QEL_CALLER, size, static_cast<size_t>(alignment));
}
QEL_PUBLIC void operator delete(void* memory) noexcept { Free(QEL_CALLER, memory); }
QEL_PUBLIC void operator delete[](void* memory) noexcept { Free(QEL_CALLER, memory); }
QEL_PUBLIC void operator delete(void* memory, size_t) noexcept { Free(QEL_CALLER, memory); }
QEL_PUBLIC void operator delete[](void* memory, size_t) noexcept { Free(QEL_CALLER, memory); }
QEL_PUBLIC void operator delete(void* memory, const nothrow_t&) noexcept {
  Free(QEL_CALLER, memory);
}
QEL_PUBLIC void operator delete[](void* memory, const nothrow_t&) noexcept {
  Free(QEL_CALLER, memory);
}
QEL_PUBLIC void operator delete(void* memory, align_val_t) noexcept { Free(QEL_CALLER, memory); }
QEL_PUBLIC void operator delete[](void* memory, align_val_t) noexcept { Free(QEL_CALLER, memory); }
QEL_PUBLIC void operator delete(void* memory, size_t, align_val_t) noexcept {
  Free(QEL_CALLER, memory);
}
QEL_PUBLIC void operator delete[](void* memory, size_t, align_val_t) noexcept {
  Free(QEL_CALLER, memory);
}
