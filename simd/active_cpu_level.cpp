#include "simd/cpu_level.h"
#include "simd/stream.h"

namespace qel {

const CpuLevel kActiveCpuLevel = DetectCpuLevel();

int64_t LeastStreamedBytes() { return 24 << 20; }

}  // namespace qel
