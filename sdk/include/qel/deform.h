#ifndef QEL_DEFORM_H_
#define QEL_DEFORM_H_

#include "qel/image.h"

namespace qel {

/// What `IQELDeform::CircleTransform` does with the polar coordinates about the image's centre.
enum CircleMode : int {
  kCircleBulge = 0,   ///< radius r reads r * r / limit
  kCirclePinch = 1,   ///< radius r reads sqrt(limit * r)
  kCircleSwirl = 2,   ///< angle a reads a + r / (factor * (limit / 2)), in radians
  kCircleUnwrap = 3,  ///< reads column width * |a| / 2 pi and row height * r / limit
  kCircleFold = 4,    ///< column x reads x - 16 + x mod 32; so does every larger mode
};

/// Circular deformations.
class IQELDeform : public IUnknown {
 public:
  /// Remaps `image` about its centre, nearest pixel, and replaces its content through
  /// `IQELImage::Assign`. Pixels at the limit radius (half the diagonal, truncated) and beyond take
  /// the top-left colour with alpha 1.
  /// `with_alpha` non-zero makes the result 32 bits deep with alpha 255, 1 for outside colours.
  /// `factor` weakens the swirl and is ignored by the other modes. An image of no width or height
  /// gets new, empty content.
  /// Result: kOk, also when the image does not answer `IQELImage` and keeps its content; kFail for
  /// a null image or when the host makes no image; kInvalidArgument for a negative mode. Content
  /// stays in both. Ownership: no reference is kept. Threads: any, on images that no other thread
  /// is using.
  virtual result_t CircleTransform(IQEL* image, int mode, int with_alpha, float factor) = 0;

 protected:
  ~IQELDeform() = default;
};
inline constexpr IID IID_IQELDeform = __IIDOfc("IQELDeform");
template <>
inline constexpr const IID* kIidOf<IQELDeform> = &IID_IQELDeform;

}  // namespace qel

#endif  // QEL_DEFORM_H_
