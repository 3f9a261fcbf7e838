// For LD_PRELOAD: one of the calls by which a program makes a file goes wrong. The environment says
// which, counted from 0 (QEL_FAULT_AT), and how (QEL_FAULT: "fail", "short" for half a write,
// "kill" for the end of the process at that moment). QEL_CALLS names a file for the letters of all
// calls. QEL_THREADS is how many threads can be started. With QEL_NAMELESS=no, the file system has
// no files without names.

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

enum class Fault { kNone, kFail, kShort };

constexpr int kMostCalls = 1000;
char letters[kMostCalls];
std::atomic<int> calls{0};

/// What this call does instead of its work.
Fault Next(char letter) {
  static const char* const at = std::getenv("QEL_FAULT_AT");
  static const char* const kind = std::getenv("QEL_FAULT");
  const int call = calls++;
  if (call < kMostCalls) letters[call] = letter;
  if (at == nullptr || kind == nullptr || std::atoi(at) != call) return Fault::kNone;
  if (std::strcmp(kind, "kill") == 0) kill(getpid(), SIGKILL);
  errno = EIO;
  return std::strcmp(kind, "short") == 0 ? Fault::kShort : Fault::kFail;
}

/// Writes the calls down at the end of the program.
struct Recorder {
  ~Recorder() {
    const char* const path = std::getenv("QEL_CALLS");
    if (path == nullptr) return;
    std::FILE* const file = std::fopen(path, "w");
    std::fprintf(file, "%.*s", kMostCalls, letters);
    std::fclose(file);
  }
} recorder;

bool IsNameless(int flags) { return (flags & O_TMPFILE) == O_TMPFILE; }
bool TakesMode(int flags) { return (flags & O_CREAT) != 0 || IsNameless(flags); }

int Open(const char* path, int flags, mode_t mode) {
  static const char* const wanted = std::getenv("QEL_NAMELESS");
  if (IsNameless(flags) && wanted != nullptr && std::strcmp(wanted, "no") == 0) {
    errno = EOPNOTSUPP;
    return -1;
  }
  if (TakesMode(flags) && Next('o') == Fault::kFail) return -1;
  return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

}  // namespace

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) noexcept {
  static const char* const most = std::getenv("QEL_THREADS");
  static std::atomic<int> started{0};
  if (most != nullptr && started++ >= std::atoi(most)) return EAGAIN;
  const auto create =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  return create(thread, attributes, run, argument);
}

int open(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = TakesMode(flags) ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return Open(path, flags, mode);
}

int open64(const char* path, int flags, ...) __attribute__((alias("open")));

ssize_t write(int descriptor, const void* bytes, size_t count) {
  const Fault fault = Next('w');
  if (fault == Fault::kFail) return -1;
  return syscall(SYS_write, descriptor, bytes, fault == Fault::kShort ? (count + 1) / 2 : count);
}

int fsync(int descriptor) {
  return Next('s') == Fault::kFail ? -1 : static_cast<int>(syscall(SYS_fsync, descriptor));
}

int close(int descriptor) {
  const Fault fault = Next('c');
  const int closed = static_cast<int>(syscall(SYS_close, descriptor));
  if (fault == Fault::kFail) errno = EIO;
  return fault == Fault::kFail ? -1 : closed;
}

int fchmod(int descriptor, mode_t mode) noexcept {
  return Next('m') == Fault::kFail ? -1 : static_cast<int>(syscall(SYS_fchmod, descriptor, mode));
}

int linkat(int from_folder, const char* from, int to_folder, const char* to, int flags) noexcept {
  if (Next('l') == Fault::kFail) return -1;
  return static_cast<int>(syscall(SYS_linkat, from_folder, from, to_folder, to, flags));
}

int rename(const char* from, const char* to) noexcept {
  return Next('r') == Fault::kFail ? -1 : static_cast<int>(syscall(SYS_rename, from, to));
}
}
