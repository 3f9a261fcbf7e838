#ifndef QEL_BENCH_LEVELS_H_
#define QEL_BENCH_LEVELS_H_

#include <string>
#include <vector>

#include "bench/options.h"

namespace qel::bench {

/// The instructions that the peer uses in this process, at most, such as "AVX2"; empty without one.
std::string PeerInstructions();

/// True in a process that `MeasureLevels` started. Throws std::runtime_error where the peer uses
/// other instructions there than the level that is measured.
bool MeasuresOneLevel(const Options& options);

/// Measures each level in a process of its own: the peer and the C library choose their
/// instructions while they are loaded, and get no more of them than the level has. Prints what the
/// processes print and, of several, the figures once more side by side.
/// Result: 0, or 1 if a process failed. Throws std::runtime_error if one cannot be started.
int MeasureLevels(const Options& options);

}  // namespace qel::bench

#endif  // QEL_BENCH_LEVELS_H_
