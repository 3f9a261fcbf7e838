#ifndef QEL_TESTS_SOLID_FAILING_MEMORY_H_
#define QEL_TESTS_SOLID_FAILING_MEMORY_H_

#include "tests/support/sanitized.h"

namespace qel::test {

/// While it lives, counts what one library asks of `operator new` and `calloc`, and refuses one
/// request. Other code allocates as always. One thread, one at a time.
class FailingMemory {
 public:
  /// Sanitizers answer `calloc` themselves.
  static constexpr bool kFollowsCalloc = !kSanitized;

  /// Watches the library that `inside` lies in; refuses request `fail_at`, none if negative.
  FailingMemory(const void* inside, int fail_at);
  ~FailingMemory();
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;

  int requests() const;
  /// Requests that were granted and not given back yet.
  int live() const;
};

}  // namespace qel::test

#endif  // QEL_TESTS_SOLID_FAILING_MEMORY_H_
