#ifndef QEL_REFERENCE_READINGS_H_
#define QEL_REFERENCE_READINGS_H_

#include "operations/method.h"
#include "reference/raster.h"

namespace qel::reference {

/// Runs the plain reading of a call's method on the rasters that stand for its images. `result`
/// counts as made when its bit count is not 0. Throws `std::out_of_range` for methods without one.
result_t Read(const operations::MethodCall& call, std::span<Raster> given, Raster& result);

}  // namespace qel::reference

#endif  // QEL_REFERENCE_READINGS_H_
