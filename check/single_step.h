#ifndef QEL_CHECK_SINGLE_STEP_H_
#define QEL_CHECK_SINGLE_STEP_H_

#include <functional>

#include "qel/unknown.h"

namespace qel::check {

/// Makes `call(object)`, and lets another thread make `turn` between any two of its first
/// instructions: all the ways in which the two can meet, whatever the machine is doing. A `turn`
/// that waits for what `call` holds is made when it can. Returns how many turns there were: 0 where
/// processors cannot be stepped. Neither function may throw.
/// Threads: one at a time in a process; SIGTRAP belongs to it meanwhile.
int CallWithTurns(void (*call)(IUnknown* object), IUnknown* object,
                  const std::function<void()>& turn);

}  // namespace qel::check

#endif  // QEL_CHECK_SINGLE_STEP_H_
