#include "simd/cpu_level.h"

// Stands in for the detection at load, to build a module that always runs at one level.

namespace qel {

const CpuLevel kActiveCpuLevel = CpuLevel::QEL_FORCED_LEVEL;

}  // namespace qel
