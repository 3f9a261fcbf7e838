#ifndef QEL_TESTS_FUZZ_FUZZ_H_
#define QEL_TESTS_FUZZ_FUZZ_H_

#include <cstddef>
#include <cstdint>

/// What a fuzz target defines: runs one input and ends the process when something is wrong.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

#endif  // QEL_TESTS_FUZZ_FUZZ_H_
