#ifndef QEL_HOST_HOST_IMAGE_H_
#define QEL_HOST_HOST_IMAGE_H_

#include <atomic>
#include <span>
#include <vector>

#include "host/pixel_pool.h"
#include "qel/image.h"
#include "qel/smart_ptr.h"

namespace qel::host {

/// How images lie in memory.
struct ImageOptions {
  int alignment = 64;      ///< rows are a multiple of this apart
  int padding = 0;         ///< bytes after each row at least, before alignment
  bool bottom_up = false;  ///< negative stride: row 0 lies last
  bool clear = false;      ///< fresh rows are filled; otherwise they keep what the memory held
  uint8_t clear_byte = 0;  ///< with what they are filled
};

/// An image in memory. The first row of every plane starts at a multiple of 64 bytes.
///
/// Some operations read or write past a row by contract, so the memory round the rows is the
/// image's own, as `SlackOf` states it. What every plane has at both ends is zeroed; what images
/// that may be walked as rows of 32-bit words have more follows the last plane (in stride
/// direction) and is zeroed only with `ImageOptions::clear`. Threads: counting from any; everything
/// else from one at a time.
class HostImage final : public IQELImageDIB, public IQELImagePalette {
 public:
  /// An empty image.
  static SmartPtr<HostImage> Make(const ImageOptions& options = {});
  /// An image of one plane; null when `Create` fails.
  static SmartPtr<HostImage> Make(int width, int height, int bit_count, uint32_t model,
                                  const ImageOptions& options = {});

  /// Answers `IQELImagePalette` while the image has a palette.
  result_t QueryInterface(const IID& iid, void** object) override;
  uint32_t AddRef() override;
  uint32_t Release() override;

  result_t GetSize(int* width, int* height, int* planes) override;
  result_t GetFormat(int* bit_count, uint32_t* model, int* reserved) override;
  /// Result: kInvalidArgument, and null bits, for a plane that there is not or without pixels.
  result_t GetBits(int plane, int* reserved, uint8_t** bits, int* stride) override;
  /// Sizes below 0 act as 0; 0 planes still have plane 0. The palette is dropped.
  /// Result: kInvalidArgument for bit counts outside 1 to 64, more than 64 planes, rows of 2 GiB
  /// and images of 16 GiB; kFail when there is no memory. The image is then empty.
  result_t Create(int width, int height, int planes, int bit_count, uint32_t model) override;
  /// Copies shape, rows of every plane and palette through the interfaces of `source`.
  /// Result: as `Create`; kFail for a null source, the image then unchanged.
  result_t Assign(IQEL* source, int flags) override;
  /// At 32 bits every pixel takes the four bytes of `color`, at 24 bits and other counts above
  /// that the lower three, three bytes apart. Palette images take the low bits as index, 16 bits
  /// and other counts the low byte in every byte.
  result_t Fill(uint32_t color) override;

  /// At least 256 entries are readable, 0 behind the last: indices need not be checked.
  result_t GetPalette(RGBQUAD** entries, uint32_t* count) override;

  int width() const { return width_; }
  int height() const { return height_; }
  int planes() const { return planes_; }
  int bit_count() const { return bit_count_; }
  uint32_t model() const { return model_; }
  int stride() const { return stride_; }
  /// Bytes of a row without padding.
  int64_t RowBytes() const { return (int64_t{width_} * bit_count_ + 7) / 8; }
  /// Row 0 of a plane; null without pixels or such a plane.
  uint8_t* Bits(int plane = 0) const;
  /// Row `y` of a plane that has pixels.
  uint8_t* Row(int y, int plane = 0) const { return Bits(plane) + int64_t{y} * stride_; }
  std::span<const RGBQUAD> palette() const { return {palette_.data(), palette_count_}; }
  /// Copies the entries; without any the image has no palette.
  void SetPalette(std::span<const RGBQUAD> entries);

 private:
  explicit HostImage(const ImageOptions& options) : options_(options) {}
  ~HostImage() = default;
  void Clear();
  int PlanesInMemory() const;
  bool Allocate(int64_t guard, int64_t rows_bytes, int64_t plane_bytes, int64_t reserve);

  const ImageOptions options_;
  std::atomic<uint32_t> count_{1};
  int width_ = 0;
  int height_ = 0;
  int planes_ = 0;
  int bit_count_ = 0;
  uint32_t model_ = 0;
  int stride_ = 0;
  PixelBlock memory_;
  int64_t first_row_ = 0;    // offset of row 0 of plane 0 in the memory
  int64_t plane_bytes_ = 0;  // from plane to plane, guard zones included
  std::vector<RGBQUAD> palette_;
  size_t palette_count_ = 0;
};

}  // namespace qel::host

#endif  // QEL_HOST_HOST_IMAGE_H_
