#ifndef QEL_PICTURES_COLOR_PROFILE_H_
#define QEL_PICTURES_COLOR_PROFILE_H_

#include <cstdint>
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
  void Convert(const PixelBuffer& rows, int width, int count) const;

 private:
  std::shared_ptr<void> transform_;  ///< of the library; null when there is nothing to do
};

/// Turns rows of ink, cyan, magenta, yellow and black from 0 to 255 each, into blue, green and red.
class InkConversion {
 public:
  /// Looks at the profile of a picture of inks, which it leaves without one. Where the options ask
  /// for sRGB and the profile speaks of such inks it is carried out; otherwise the conversion is
  /// the simple one, which is noted.
  InkConversion(const ReadOptions& options, PictureInfo& info);

  /// Converts `count` pixels.
  void Convert(const uint8_t* inks, int count, uint8_t* pixels) const;

 private:
  std::shared_ptr<void> transform_;  ///< of the library; null for the simple conversion
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_COLOR_PROFILE_H_
