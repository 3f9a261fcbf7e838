#ifndef QEL_TESTS_SUPPORT_OPERATION_CALLS_H_
#define QEL_TESTS_SUPPORT_OPERATION_CALLS_H_

#include "check/operation_calls.h"

namespace qel::test {

// Tests of all operations alike make the same calls as the tool's checker of modules.
using ComponentSet = operations::Components;
using check::AllOperationCalls;
using check::OperationCall;

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_OPERATION_CALLS_H_
