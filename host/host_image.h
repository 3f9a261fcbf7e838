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
  int alignment = 64;      ///< every row starts at a multiple of this; 1, 2, 4, ... 64
  int padding = 0;         ///< bytes after each row, before alignment
  bool bottom_up = false;  ///< negative stride: row 0 lies last
  bool clear = false;      ///< fresh pixels are 0; otherwise as the memory was
};

/// An image in memory. Every plane has zeroed guard zones of `kGuardBytes` before its first and
/// after its last row: some operations read or write a little past a row, and that memory must be
/// the image's own.
/// Threads: counting from any; everything else from one at a time.
class HostImage final : public IQELImageDIB, public IQELImagePalette {
 public:
  static constexpr int kGuardBytes = 256;

  /// An empty image, with one reference.
  static SmartPtr<HostImage> Make(const ImageOptions& options = {});

  result_t QueryInterface(const IID& iid, void** object) override;
  uint32_t AddRef() override;
  uint32_t Release() override;

  result_t GetSize(int* width, int* height, int* planes) override;
  result_t GetFormat(int* bit_count, uint32_t* model, int* reserved) override;
  /// Result: kInvalidArgument, and null bits, for a plane that there is not or without pixels.
  result_t GetBits(int plane, int* reserved, uint8_t** bits, int* stride) override;
  /// Sizes below 0 act as 0. Result: kInvalidArgument for bit counts outside 1 to 64, more than 64
  /// planes and rows of 2 GiB; kFail when there is no memory. The image is then empty.
  result_t Create(int width, int height, int planes, int bit_count, uint32_t model) override;
  result_t ReservedSlot7() override { return kFail; }
  /// Copies shape, pixels of every plane and palette through the interfaces of `source`.
  result_t Assign(IQEL* source, int flags) override;
  /// At 24 and 32 bits every pixel takes the bytes of `colour`, below that its low byte's low bits.
  result_t Fill(uint32_t colour) override;

  result_t ReservedSlot3() override { return kFail; }
  result_t GetPalette(RGBQUAD** entries, uint32_t* count) override;

  int width() const { return width_; }
  int height() const { return height_; }
  int bit_count() const { return bit_count_; }
  uint32_t model() const { return model_; }
  int stride() const { return stride_; }
  /// Row 0 of a plane, or null.
  uint8_t* Bits(int plane = 0) const;
  uint8_t* Row(int y, int plane = 0) const { return Bits(plane) + int64_t{y} * stride_; }
  /// Bytes of a row without padding.
  int64_t RowBytes() const { return (int64_t{width_} * bit_count_ + 7) / 8; }
  std::span<const RGBQUAD> palette() const { return palette_; }
  /// An image answers `IQELImagePalette` while it has a palette.
  void SetPalette(std::span<const RGBQUAD> entries);

 private:
  explicit HostImage(const ImageOptions& options) : options_(options) {}
  ~HostImage() = default;
  void Clear();

  const ImageOptions options_;
  std::atomic<uint32_t> count_{1};
  int width_ = 0;
  int height_ = 0;
  int planes_ = 0;
  int bit_count_ = 0;
  uint32_t model_ = 0;
  int stride_ = 0;
  int64_t plane_bytes_ = 0;  // with both guard zones
  PixelBlock pixels_;
  std::vector<RGBQUAD> palette_;
};

}  // namespace qel::host

#endif  // QEL_HOST_HOST_IMAGE_H_
