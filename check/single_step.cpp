#include "check/single_step.h"

// The race detector of compilers keeps signals back.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__)

#include <semaphore.h>
#include <ucontext.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <thread>

namespace qel::check {
namespace {

constexpr greg_t kTrapFlag = 0x100;
constexpr int kMostSteps = 800;
/// How long a turn is waited for that may be waiting for the call.
constexpr long kPatience = 50'000'000;  // nanoseconds

/// The other thread.
class Partner {
 public:
  explicit Partner(const std::function<void()>& turn) {
    sem_init(&asked_, 0, 0);
    sem_init(&made_, 0, 0);
    thread_ = std::thread([this, &turn] {
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
    timespec end;
    clock_gettime(CLOCK_REALTIME, &end);
    end.tv_nsec += kPatience;
    if (end.tv_nsec >= 1'000'000'000) {
      end.tv_nsec -= 1'000'000'000;
      ++end.tv_sec;
    }
    owes_ = sem_timedwait(&made_, &end) != 0;
  }
  /// Lets the other thread finish. Returns how many turns it made.
  int End() {
    ends_ = true;
    sem_post(&asked_);
    thread_.join();
    return turns_;
  }

 private:
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
