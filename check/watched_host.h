#ifndef QEL_CHECK_WATCHED_HOST_H_
#define QEL_CHECK_WATCHED_HOST_H_

#include <memory>
#include <string>
#include <vector>

#include "host/instrumented_host.h"

namespace qel::check {

class WatchedImage;

/// How the images of the checker lie in memory.
struct WatchedLayout {
  /// Which end of the rows lies at a page that cannot be touched.
  enum class Fence { kNone, kBefore, kAfter };

  int padding = 8;  ///< after each row; 32-bit rows are walked in words, so a multiple of 4
  bool bottom_up = false;
  Fence fence = Fence::kNone;
  int reach_before = 0;  ///< with a fence: bytes between it and the rows
  int reach_after = 0;
};

/// The checker as a host: it sees every call, can go wrong at any of them, and keeps what it made,
/// so that a reference too few shows as a number and not as a crash. One thread.
class WatchedHost final : public host::InstrumentedHost {
 public:
  WatchedHost();
  ~WatchedHost() override;

  WatchedLayout layout;  ///< of images made from now on
  bool refuses_images = false;

  /// An image made by the checker itself, with one reference and noise for pixels.
  WatchedImage& MakeImage(int width, int height, int bit_count);
  /// An image as the module asks for it, without pixels; null when the host refuses.
  IQELImageDIB* NewImage() override;
  /// The image behind `pointer`, or null when it is none of this host.
  WatchedImage* FindImage(const IQEL* pointer) const;
  const std::vector<std::unique_ptr<WatchedImage>>& images() const { return images_; }
  /// Drops all images, whoever may hold them.
  void ForgetImages();

  /// References that are out in the world: of images and the collection, and strings and locators.
  int64_t References() const;

 private:
  std::vector<std::unique_ptr<WatchedImage>> images_;
};

/// An image whose memory, references and calls are watched. It lives as long as its host keeps it.
class WatchedImage final : public IQELImageDIB {
 public:
  explicit WatchedImage(WatchedHost& host) : host_(host), layout_(host.layout) {}
  WatchedImage(const WatchedImage&) = delete;
  WatchedImage& operator=(const WatchedImage&) = delete;
  ~WatchedImage();

  result_t QueryInterface(const IID& iid, void** object) override;
  uint32_t AddRef() override { return static_cast<uint32_t>(++references_); }
  uint32_t Release() override { return static_cast<uint32_t>(--references_); }
  result_t GetSize(int* width, int* height, int* planes) override;
  result_t GetFormat(int* bit_count, uint32_t* model, int* reserved) override;
  result_t GetBits(int plane, int* reserved, uint8_t** bits, int* stride) override;
  result_t Create(int width, int height, int planes, int bit_count, uint32_t model) override;
  result_t Assign(IQEL* source, int flags) override;
  result_t Fill(uint32_t color) override;

  int64_t references() const { return references_; }
  int width() const { return width_; }
  int height() const { return height_; }
  int bit_count() const { return bit_count_; }
  uint32_t model() const { return model_; }
  int64_t RowBytes() const { return (int64_t{width_} * bit_count_ + 7) / 8; }
  uint8_t* Row(int64_t y) const { return bits_ + y * stride_; }

  /// The bytes of a pixel of 8 bits or more, the first in the low byte.
  uint32_t At(int x, int y) const;
  void Set(int x, int y, uint32_t pixel);
  void SetAll(uint32_t pixel);

  /// All rows without their padding, one after the other.
  std::string Pixels() const;
  /// True while the bytes round the rows are as `Create` left them.
  bool PaddingIntact() const;

 private:
  bool Reshape(int width, int height, int planes, int bit_count, uint32_t model);
  void Unmap();

  WatchedHost& host_;
  const WatchedLayout layout_;
  int64_t references_ = 1;
  int width_ = 0;
  int height_ = 0;
  int planes_ = 0;
  int bit_count_ = 0;
  uint32_t model_ = 0;
  int stride_ = 0;
  uint8_t* bits_ = nullptr;
  uint8_t* mapping_ = nullptr;
  size_t mapping_size_ = 0;
  uint8_t* block_ = nullptr;  // what may be touched of the mapping
  size_t block_size_ = 0;
};

/// The model code that goes with a bit count.
uint32_t UsualModel(int bit_count);

}  // namespace qel::check

#endif  // QEL_CHECK_WATCHED_HOST_H_
