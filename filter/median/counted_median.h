#ifndef QEL_FILTER_MEDIAN_COUNTED_MEDIAN_H_
#define QEL_FILTER_MEDIAN_COUNTED_MEDIAN_H_

#include "image/image_view.h"

namespace qel {

/// Writes the medians of windows of any positive size: the keys of each window are counted, and the
/// counts slide along with it. Meant for large windows. False when there is no memory for that.
bool CountMiddle(const ImageView& source, const ImageView& dest, int size);

}  // namespace qel

#endif  // QEL_FILTER_MEDIAN_COUNTED_MEDIAN_H_
