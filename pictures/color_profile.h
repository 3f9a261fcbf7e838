#ifndef QEL_PICTURES_COLOR_PROFILE_H_
#define QEL_PICTURES_COLOR_PROFILE_H_

#include "pictures/picture_file.h"

namespace qel::pictures {

/// Looks at the profile of a picture that was read into `pixels`. One that means other colours
/// than sRGB is noted, or with `options.to_srgb` carried out, which leaves the picture without it.
/// A profile that speaks of other channels than the picture has, or a damaged one, stays.
void ApplyProfile(const ReadOptions& options, const PixelBuffer& pixels, PictureInfo& info);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_COLOR_PROFILE_H_
