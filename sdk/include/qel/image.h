#ifndef QEL_IMAGE_H_
#define QEL_IMAGE_H_

#include "qel/unknown.h"

namespace qel {

/// An image of the host: uncompressed rows of 1, 4, 8, 24 or 32 bits per pixel. Functions may fail
/// or throw: operations end, or go on as with an empty image, and exceptions reach their caller.
/// Threads: one at a time that writes, or any number that read; counting from any.
///
/// Row y starts at `bits + y * stride` (64-bit product). 32-bit pixels are blue, green, red, alpha;
/// 24-bit pixels blue, green, red; below that, pixels are palette indices, the leftmost pixel in
/// the most significant bits of its byte.
class IQEL : public IUnknown {
 public:
  /// Width and height in pixels, and the number of planes. Sizes of 0 mean no pixels; an image must
  /// not report negative ones. Result: kOk; a failure reads as an empty image.
  virtual result_t GetSize(int* width, int* height, int* planes) = 0;

  /// Bits per pixel and the colour-model code given to `Create`. `reserved` is not read; write 0.
  /// Result: kOk; a failure reads as 0 bits, and `Resample` and quarter turns pass it on.
  virtual result_t GetFormat(int* bit_count, uint32_t* model, int* reserved) = 0;

  /// Memory of plane `plane`: first row as stored, and bytes from row to row, which may be
  /// negative, with the slack round the rows that `docs/host-guide.md` states. Ownership: the
  /// memory is the image's and valid until its next `Create` or `Assign`. `reserved` is not read;
  /// write 0. Result: kOk; a failure, or null bits, reads as an image without pixels.
  virtual result_t GetBits(int plane, int* reserved, uint8_t** bits, int* stride) = 0;

  /// Gives the image fresh pixel memory of this shape, slack included; previous content is gone and
  /// the new one may be anything. `GetSize`, `GetFormat` and `GetBits` report the new shape
  /// afterwards; operations write to all of it without asking again. Sizes of 0 or less make an
  /// image without pixels. Result: kOk only when the memory is there; a failure for a shape that
  /// the host does not make. The image then reports the shape that it really has: its old one, or
  /// none.
  virtual result_t Create(int width, int height, int planes, int bit_count, uint32_t model) = 0;

  /// Not called by modules.
  virtual result_t ReservedSlot7() { return kFail; }

 protected:
  ~IQEL() = default;
};
inline constexpr IID IID_IQEL = __IIDOfc("IQEL");
template <>
inline constexpr const IID* kIidOf<IQEL> = &IID_IQEL;

/// An image whose whole content can be replaced. New images are made with this interface.
class IQELImage : public IQEL {
 public:
  /// Replaces size, format and pixels by a copy of `source`, which may be any host's image, or this
  /// image itself: then nothing changes. `flags` is 0. Ownership: no reference to `source` is kept.
  /// Result: kOk; a failure when there is no memory. Modules do not look at it.
  virtual result_t Assign(IQEL* source, int flags) = 0;

 protected:
  ~IQELImage() = default;
};
inline constexpr IID IID_IQELImage = __IIDOfc("IQELImage");
template <>
inline constexpr const IID* kIidOf<IQELImage> = &IID_IQELImage;

/// An image made through the locator of the component "QELImageDIB".
class IQELImageDIB : public IQELImage {
 public:
  /// Sets every pixel to `color`: blue in the low byte, then green, red, alpha. Result: kOk.
  virtual result_t Fill(uint32_t color) = 0;

 protected:
  ~IQELImageDIB() = default;
};
inline constexpr IID IID_IQELImageDIB = __IIDOfc("IQELImageDIB");
template <>
inline constexpr const IID* kIidOf<IQELImageDIB> = &IID_IQELImageDIB;

/// Optional interface of an image that carries a palette.
class IQELImagePalette : public IUnknown {
 public:
  /// Not called by modules.
  virtual result_t ReservedSlot3() { return kFail; }

  /// The palette, owned by the image and valid as long as its pixels; `*count` 0 means none. Pixels
  /// are not compared with the count: 256 entries must be readable. Result: kOk; a failure reads as
  /// no palette.
  virtual result_t GetPalette(RGBQUAD** entries, uint32_t* count) = 0;

 protected:
  ~IQELImagePalette() = default;
};
inline constexpr IID IID_IQELImagePalette = __IIDOfc("IQELImagePalette");
template <>
inline constexpr const IID* kIidOf<IQELImagePalette> = &IID_IQELImagePalette;

}  // namespace qel

#endif  // QEL_IMAGE_H_
