#ifndef QEL_TESTS_SUPPORT_RASTERS_H_
#define QEL_TESTS_SUPPORT_RASTERS_H_

#include "reference/raster.h"

namespace qel::test {

// Tests speak of images in the words of the plain readings.
using reference::Block;
using reference::kAllDepths;
using reference::kCommonDepths;
using reference::kSizes;
using reference::Layout;
using reference::RandomLayout;
using reference::RandomRaster;
using reference::Raster;
using reference::Rng;
using reference::Shape;
using reference::UsualModel;

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_RASTERS_H_
