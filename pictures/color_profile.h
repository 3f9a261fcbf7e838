#ifndef QEL_PICTURES_COLOR_PROFILE_H_
#define QEL_PICTURES_COLOR_PROFILE_H_

#include <memory>

#include "pictures/picture_file.h"

namespace qel::pictures {

/// Brings the colours of a picture to sRGB, if its profile means others and the options ask for it.
/// A profile that speaks of other channels than the picture has, or a damaged one, is left alone.
class ColorConversion {
 public:
  /// Converts nothing.
  ColorConversion() = default;
  /// Looks at the profile of a picture. Colours that stay others than sRGB are noted; ones that
  /// will be converted leave the picture without its profile, and a palette is converted here.
  ColorConversion(const ReadOptions& options, PictureInfo& info);

  /// Converts `count` rows of `width` pixels.
  void Run(const PixelBuffer& rows, int width, int count) const;

 private:
  std::shared_ptr<void> transform_;  ///< of the library; null when there is nothing to do
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_COLOR_PROFILE_H_
