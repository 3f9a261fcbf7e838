#include "check/single_step.h"

// The race detector of compilers keeps signals back.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__)

#include <fcntl.h>
#include <semaphore.h>
#include <ucontext.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <thread>

namespace qel::check {
namespace {

constexpr greg_t kTrapFlag = 0x100;
constexpr int kMostSteps = 800;
/// How long a turn is waited for that may be waiting for the call; a thread that could run, but has
/// no processor or spins, is waited for so many times.
constexpr long kPatience = 50'000'000;  // nanoseconds
constexpr int kMostWaits = 100;

/// The other thread.
class Partner {
 public:
  explicit Partner(const std::function<void()>& turn) {
    sem_init(&asked_, 0, 0);
    sem_init(&made_, 0, 0);
    thread_ = std::thread([this, &turn] {
      std::snprintf(status_, sizeof(status_), "/proc/self/task/%d/stat", gettid());
      is_known_ = true;
      while (true) {
        while (sem_wait(&asked_) != 0) continue;
        if (ends_) return;
        turn();
        ++turns_;
        sem_post(&made_);
      }
    });
  }
  Partner(const Partner&) = delete;
  Partner& operator=(const Partner&) = delete;
  ~Partner() {
    sem_destroy(&asked_);
    sem_destroy(&made_);
  }

  /// Has the other thread make a turn, unless it still is at the one before. For signal handlers.
  void Ask() {
    if (owes_ && sem_trywait(&made_) != 0) return;
    sem_post(&asked_);
    owes_ = true;
    for (int waits = 0; owes_ && waits < kMostWaits; ++waits) {
      timespec end;
      clock_gettime(CLOCK_REALTIME, &end);
      end.tv_nsec += kPatience;
      if (end.tv_nsec >= 1'000'000'000) {
        end.tv_nsec -= 1'000'000'000;
        ++end.tv_sec;
      }
      owes_ = sem_timedwait(&made_, &end) != 0;
      if (owes_ && IsBlocked()) return;
    }
  }
  /// Lets the other thread finish. Returns how many turns it made.
  int End() {
    ends_ = true;
    sem_post(&asked_);
    thread_.join();
    return turns_;
  }

 private:
  /// Whether the thread waits for something else than a processor. For signal handlers.
  bool IsBlocked() const {
    if (!is_known_) return false;
    const int file = open(status_, O_RDONLY | O_CLOEXEC);
    char text[128] = {};
    const ssize_t size = file < 0 ? 0 : read(file, text, sizeof(text) - 1);
    if (file >= 0) close(file);
    // The state is a letter behind the name, which stands in parentheses.
    const char* const name_end = size > 0 ? std::strrchr(text, ')') : nullptr;
    return name_end == nullptr || std::strncmp(name_end, ") R", 3) != 0;
  }

  char status_[64];
  std::atomic<bool> is_known_ = false;
  sem_t asked_;
  sem_t made_;
  bool owes_ = false;
  int turns_ = 0;
  std::atomic<bool> ends_ = false;
  std::thread thread_;
};

std::atomic<Partner*> partner_of_call = nullptr;
std::atomic<int> steps_left = 0;

/// Comes after every instruction as long as the flag is set.
void OnStep(int /*signal*/, siginfo_t* /*info*/, void* context) {
  const int error = errno;
  greg_t& flags = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_EFL];
  Partner* const partner = partner_of_call;
  if (partner != nullptr && steps_left-- > 0) {
    partner->Ask();
  } else {
    flags &= ~kTrapFlag;
  }
  errno = error;
}

}  // namespace

int CallWithTurns(void (*call)(IUnknown*), IUnknown* object, const std::function<void()>& turn) {
  struct sigaction on_step = {};
  struct sigaction before = {};
  on_step.sa_sigaction = &OnStep;
  on_step.sa_flags = SA_SIGINFO;
  sigaction(SIGTRAP, &on_step, &before);
  Partner partner(turn);
  steps_left = kMostSteps;
  partner_of_call = &partner;
  // Below the stack that the caller may be using without having moved its pointer.
  asm volatile("lea -128(%%rsp), %%rsp\n pushfq\n orq %0, (%%rsp)\n popfq\n lea 128(%%rsp), %%rsp"
               :
               : "i"(kTrapFlag)
               : "memory", "cc");
  call(object);
  partner_of_call = nullptr;
  const int turns = partner.End();
  sigaction(SIGTRAP, &before, nullptr);
  return turns;
}

}  // namespace qel::check

#else

namespace qel::check {

int CallWithTurns(void (*call)(IUnknown*), IUnknown* object,
                  const std::function<void()>& /*turn*/) {
  call(object);
  return 0;
}

}  // namespace qel::check

#endif
