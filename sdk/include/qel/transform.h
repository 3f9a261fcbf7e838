#ifndef QEL_TRANSFORM_H_
#define QEL_TRANSFORM_H_

#include "qel/image.h"

namespace qel {

/// How `Resample`, `Rotate` and `RotatePaste` form a colour between pixels: one of them as it is,
/// or a weighted sum of 4 x 4, or of 12 x 12. Any other number acts as `kSampleTruncated`.
enum SamplingMethod : int {
  kSampleNearest = 0,              ///< the nearest pixel
  kSampleTruncated = 1,            ///< the pixel at the position without its fractions
  kSampleCubicBSpline = 2,         ///< smooth, blurs
  kSampleKeysCubic = 3,            ///< cubic convolution with a = -1, sharp
  kSampleCatmullRom = 4,           ///< cubic convolution with a = -1/2, the usual choice
  kSampleLanczos6 = 5,             ///< 12 x 12 pixels, slow
  kSampleBox = 6,                  ///< the nearest pixel, by weights
  kSampleHermite = 7,              ///< cubic over 2 x 2 pixels
  kSampleDampedHermite = 8,        ///< the same, whose weights add up to more or less than 1
  kSampleSinc = 9,                 ///< sin(pi t) / (pi t), cut off
  kSampleBlackman = 10,            ///< the cosine sum of Blackman's window
  kSampleJinc = 11,                ///< a Bessel function over the distance
  kSampleGaussian = 12,            ///< blurs
  kSampleQuadraticBSpline = 13,    ///< smooth, blurs less than 2
  kSampleMitchellNetravali = 14,   ///< cubic with B = C = 1/3
  kSampleCatmullRomOfOffset = 15,  ///< as 4 but for last bits
};

/// A coordinate transform, implemented by the caller of `IQELTransform::Transform`.
class ITransform : public IUnknown {
 public:
  /// Overwrites the point (*x, *y, *z) by the transformed point. Called once per pixel, row by row,
  /// with *z = 0; the result code and *z are not looked at. Up to a few hundred points may be asked
  /// for before the pixels of the first are copied, so a transform must not count on seeing pixels
  /// that earlier points wrote. An exception ends the operation and reaches its caller.
  /// Threads: that of the operation.
  virtual result_t TransformPoint(double* x, double* y, double* z) = 0;

 protected:
  ~ITransform() = default;
};
inline constexpr IID IID_ITransform = __IIDOfc("ITransform");
template <>
inline constexpr const IID* kIidOf<ITransform> = &IID_ITransform;

/// Geometric operations. Unless said otherwise they make a new image and leave the source alone.
/// Sources of no width or height give a new image of the stated shape with nothing drawn.
///
/// Ownership: `*result` holds one reference for the caller.
/// Result: kOk, also at depths whose pixels an operation leaves as the host's `Create` did; kFail
/// for a null source or when the host makes no image; kNullOutput for a null `result`, before
/// anything is made, except in `Flip` and `Mirror`. After a failure `*result` is untouched, unless
/// said otherwise. Threads: any, on images that no other thread is writing.
class IQELTransform : public IUnknown {
 public:
  // The order of these functions is the binary interface.

  /// Turns the image upside down, padding of the rows included: as many bytes of each row as the
  /// shorter stride of the two images has. With a null `result` the new image is released: kOk.
  virtual result_t Flip(IQEL* source, IQEL** result) = 0;

  /// Mirrors left to right at 8, 24 and 32 bits. With a null `result` as `Flip`.
  virtual result_t Mirror(IQEL* source, IQEL** result) = 0;

  /// Rotates by -`angle` degrees with a `SamplingMethod`; uncovered pixels take the
  /// source's top-left colour. 90, 180, 270 and -90 are exact quarter turns; 0 hands out the source
  /// itself. `force_alpha` non-zero makes the result 32 bits deep; `keep_size` non-zero keeps the
  /// source's size. A margin of about four pixels along the source's edges is never drawn.
  /// Result: a failing `GetFormat` is passed on by quarter turns, with the empty new image in
  /// `*result`; a failing `Create` gives kOk with an image in which nothing was drawn.
  virtual result_t Rotate(IQEL* source, IQEL** result, int angle, int method, int force_alpha,
                          int keep_size) = 0;

  /// Shears about a pivot: pixel (x, y) reads (x + (y - y_pivot) * x_gain, y + (x - x_pivot) *
  /// y_gain), truncated. A pivot coordinate of 0 means the centre. `force_alpha` non-zero makes the
  /// result 32 bits deep.
  virtual result_t Skew(IQEL* source, IQEL** result, float x_gain, float y_gain, int x_pivot,
                        int y_pivot, int reserved, int force_alpha) = 0;

  /// Scales to `new_width` x `new_height` pixels: nearest copy when enlarging with method 0 or when
  /// `nearest_only` is non-zero, box average when shrinking, else by this `SamplingMethod`.
  /// New sizes of 0 or less give an image without pixels. Result: a failing `GetFormat` of the
  /// source is passed on; `*result` becomes null when the host makes no image.
  virtual result_t Resample(IQEL* source, IQEL** result, int new_width, int new_height, int method,
                            int nearest_only) = 0;

  /// Converts to a larger bit count and gives the result `color_model`. 8-bit indices go through
  /// the source's palette when it answers `IQELImagePalette`, else they are grey.
  /// Result: kNothingToDo with the source itself in `*result` when `bit_count` is not larger; a
  /// failing `Create` is passed on. `bit_count` is compared unsigned: a negative one asks the
  /// host's `Create` for that depth.
  virtual result_t IncreaseBpp(IQEL* source, IQEL** result, int bit_count,
                               uint32_t color_model) = 0;

  /// Draws `source`, rotated by `angle` radians, into the top-left of `target` (24 or 32 bits):
  /// alpha-blended when the source is above 24 bits, else leaving out the colour `key` (0x00RRGGBB;
  /// a non-zero top byte leaves nothing out). Both may share memory: pixels are read and written
  /// one after the other, row by row. Result: kNullOutput for a null target.
  virtual result_t RotatePaste(IQEL* source, IQEL* target, double angle, int method, int key) = 0;

  /// Exchanges the first and the third byte of every pixel in place, at 24 and 32 bits.
  virtual result_t FlipBits(IQEL* image) = 0;

  /// Straightens the quadrilateral (x1, y1) top-left, (x2, y2) top-right, (x3, y3) bottom-left,
  /// (x4, y4) bottom-right, in source pixels, into a rectangle. Sizes of 0, or of 65536 and more,
  /// are derived from the points: the shorter of two opposite sides. What lies outside the source,
  /// or on its edge, becomes 0. `blend` non-zero blends two by two pixels above 8 bits.
  virtual result_t Quad(IQEL* source, IQEL** result, double x1, double y1, double x2, double y2,
                        double x3, double y3, double x4, double y4, uint32_t new_width,
                        uint32_t new_height, int16_t blend) = 0;

  /// Fills a new image by asking `transform` for each of its pixels, offset by (x_offset,
  /// y_offset), where to read in the source; nearest lower pixel. Sizes of 0, or of 65536 and more,
  /// mean the source's. Points outside the source leave opaque black in "ARGB" and "ABGR" images of
  /// 32 bits, 0 in others. Result: kFail also for a null transform and for an empty source.
  virtual result_t Transform(ITransform* transform, IQEL* source, IQEL** result, int x_offset,
                             int y_offset, uint32_t new_width, uint32_t new_height,
                             int16_t reserved1, int16_t reserved2) = 0;

  /// Sends every pixel of `source` through `transform` and writes it into `target`, which has the
  /// source's depth; points outside the target are dropped, but asked about as well. At 8 bits the
  /// last column is left out. `fill_voids` non-zero fills the holes that remain from their
  /// neighbours. Result: kOk; kFail for a null transform, source or target.
  virtual result_t TransformPaste(ITransform* transform, IQEL* source, IQEL* target, int x_offset,
                                  int y_offset, int16_t fill_voids, int16_t reserved) = 0;

  /// Turns the image upside down and exchanges the first and third byte of its pixels, in place, at
  /// 24 and 32 bits.
  virtual result_t FlipImageAndBits(IQEL* image) = 0;

 protected:
  ~IQELTransform() = default;
};
inline constexpr IID IID_IQELTransform = __IIDOfc("IQELTransform");
template <>
inline constexpr const IID* kIidOf<IQELTransform> = &IID_IQELTransform;

}  // namespace qel

#endif  // QEL_TRANSFORM_H_
