#include "simd/cpu_level.h"

namespace qel {

const CpuLevel kActiveCpuLevel = DetectCpuLevel();

}  // namespace qel
