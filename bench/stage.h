#ifndef QEL_BENCH_STAGE_H_
#define QEL_BENCH_STAGE_H_

#include <vector>

#include "host/host_collection.h"
#include "host/module_library.h"
#include "operations/method.h"

namespace qel::bench {

/// What an image of a call holds.
enum class Content {
  kPhoto,     ///< gradients, hard edges, flat areas and noise, as photographs have them
  kOther,     ///< another one of these
  kMask,      ///< zero bytes and others in areas with frayed edges
  kIntegers,  ///< signed 32-bit integers round 0
  kNothing,   ///< an empty image
};

/// Paints plane 0 of an image of 8, 24 or 32 bits.
void Paint(const host::HostImage& image, Content content);

using operations::Components;
using operations::MethodCall;

/// The host's collection, with images laid out as `NewImageOptions` says at the time.
SmartPtr<host::HostCollection> MakeCollection();

/// How images are made from now on: left as the memory was while timing, filled while checking.
host::ImageOptions& NewImageOptions();

struct Size {
  int width;
  int height;
  bool operator==(const Size&) const = default;
};

/// Sends what the caches hold of these bytes to memory.
void Evict(const void* start, size_t bytes);

/// One image of a call, relative to what is being measured.
struct Input {
  Content content = Content::kPhoto;
  int depth = 0;         ///< 0: the depth measured
  int divide = 1;        ///< of width and height
  bool palette = false;  ///< a palette of 256 colours
};

/// A host image behind one more interface: `Assign` keeps the new image itself instead of copying
/// it, so that what an operation costs is told apart from what this host's copy costs.
class AdoptingImage final : public host::HostObject<IQELImage, IQEL> {
 public:
  explicit AdoptingImage(SmartPtr<host::HostImage> image) : image_(std::move(image)) {}

  const host::HostImage& Host() const { return *image_; }
  /// The image that was replaced last, for the caller to let go of.
  SmartPtr<host::HostImage> TakeReplaced() { return std::exchange(replaced_, {}); }

  result_t QueryInterface(const IID& iid, void** object) override;
  result_t GetSize(int* width, int* height, int* planes) override {
    return image_->GetSize(width, height, planes);
  }
  result_t GetFormat(int* bit_count, uint32_t* model, int* reserved) override {
    return image_->GetFormat(bit_count, model, reserved);
  }
  result_t GetBits(int plane, int* reserved, uint8_t** bits, int* stride) override {
    return image_->GetBits(plane, reserved, bits, stride);
  }
  result_t Create(int width, int height, int planes, int bit_count, uint32_t model) override {
    return image_->Create(width, height, planes, bit_count, model);
  }
  result_t Assign(IQEL* source, int flags) override;

 private:
  SmartPtr<host::HostImage> image_;
  SmartPtr<host::HostImage> replaced_;
};

/// The images of a call in one depth and size.
class Stage {
 public:
  Stage(const std::vector<Input>& inputs, int depth, Size size);

  AdoptingImage* operator[](size_t index) const { return images_[index].Get(); }
  size_t count() const { return images_.size(); }
  result_t Run(const Components& components, const MethodCall& call) {
    return call.Run(components, pointers_, result_.Put());
  }
  /// The result as the host knows it, or null.
  const host::HostImage* HostResult() const;
  /// Before the next call: paints image `changed`, if not negative, as it was at first, and gives
  /// the result back. With `cold` the rows of all of them are in memory only afterwards.
  void SetBack(int changed, bool cold);
  /// Bytes of pixels in the largest image of the call, result included.
  int64_t LargestImage() const;

 private:
  std::vector<SmartPtr<AdoptingImage>> images_;
  std::vector<IQELImage*> pointers_;
  std::vector<std::vector<uint8_t>> originals_;
  SmartPtr<IQEL> result_;
};

}  // namespace qel::bench

#endif  // QEL_BENCH_STAGE_H_
