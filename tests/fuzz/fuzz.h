#ifndef QEL_TESTS_FUZZ_FUZZ_H_
#define QEL_TESTS_FUZZ_FUZZ_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

/// What a fuzz target defines: runs one input and ends the process when something is wrong.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

/// The bytes by which the format of the picture target at hand is known; see picture_magic.cpp.
extern const std::string_view kMagic;

#endif  // QEL_TESTS_FUZZ_FUZZ_H_
