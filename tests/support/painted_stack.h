#ifndef QEL_TESTS_SUPPORT_PAINTED_STACK_H_
#define QEL_TESTS_SUPPORT_PAINTED_STACK_H_

#include <sys/mman.h>
#include <ucontext.h>

#include <cstring>
#include <functional>

#include "tests/support/sanitized.h"

namespace qel::test {

/// A stack whose depth can be read from what was painted over.
class PaintedStack {
 public:
  PaintedStack()
      : bottom_(static_cast<uint8_t*>(
            mmap(nullptr, kBytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
    if (kTells) std::memset(bottom_, kPaint, kBytes);
  }
  PaintedStack(const PaintedStack&) = delete;
  PaintedStack& operator=(const PaintedStack&) = delete;
  ~PaintedStack() { munmap(bottom_, kBytes); }

  /// How many bytes deep `work` goes below its `Mark`, on this stack. Where nothing is
  /// optimised, or instructions are emulated, frames tell nothing: the work is done, and the depth
  /// is 0.
  int64_t Depth(const std::function<void()>& work) {
    if (!kTells) {
      work();
      return 0;
    }
    ucontext_t here, there;
    getcontext(&there);
    there.uc_stack.ss_sp = bottom_;
    there.uc_stack.ss_size = kBytes;
    there.uc_link = &here;
    work_ = &work;
    makecontext(&there, &Run, 0);
    swapcontext(&here, &there);
    uint8_t* deepest = bottom_;
    for (const ptrdiff_t step : {4096, 64}) {
      while (deepest < mark_ && std::memcmp(deepest, bottom_, static_cast<size_t>(step)) == 0) {
        deepest += step;
      }
    }
    std::memset(deepest, kPaint, static_cast<size_t>(bottom_ + kBytes - deepest));
    return mark_ - deepest;
  }
  /// From here on the work counts.
  [[gnu::always_inline]] static void Mark() {
    mark_ = static_cast<const uint8_t*>(__builtin_frame_address(0));
  }

 private:
#if defined(NDEBUG) && !defined(QEL_EMULATED_AVX512)
  static constexpr bool kTells = !kSanitized;
#else
  static constexpr bool kTells = false;
#endif
  static constexpr size_t kBytes = size_t{256} * 1024;
  static constexpr uint8_t kPaint = 0xA7;

  static void Run() { (*work_)(); }

  static inline const std::function<void()>* work_ = nullptr;
  static inline const uint8_t* mark_ = nullptr;
  uint8_t* const bottom_;
};

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_PAINTED_STACK_H_
