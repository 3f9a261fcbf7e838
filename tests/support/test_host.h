#ifndef QEL_TESTS_SUPPORT_TEST_HOST_H_
#define QEL_TESTS_SUPPORT_TEST_HOST_H_

#include <atomic>
#include <utility>
#include <vector>

#include "host/instrumented_host.h"
#include "qel/qel.h"
#include "tests/support/rasters.h"

namespace qel::test {

/// A host whose every call can be counted, logged and made to fail. Process-wide, because modules
/// keep what they once obtained from it.
class TestHost final : public host::InstrumentedHost {
 public:
  static TestHost& Instance();

  bool refuses_images = false;   ///< creation gives null
  bool refuses_queries = false;  ///< images answer no interface
  bool keeps_pixels = false;     ///< `Create` fails and leaves the image as it was
  Raster new_image;              ///< what new images hold before `Create`
  Raster asked;                  ///< shape of the last `Create`, without memory

  /// Back to a host without faults; counters at 0.
  void Reset();
  IQELImageDIB* NewImage() override;

 private:
  TestHost() = default;
  ~TestHost() override = default;
};

/// An image of the test host: a raster behind the image interfaces.
class TestImage final : public IQELImageDIB {
 public:
  static SmartPtr<TestImage> Make(Raster raster);

  Raster raster;
  std::string log_name;  ///< follows the names of its calls in the log

  uint32_t references() const { return count_; }

  result_t QueryInterface(const IID& iid, void** object) override;
  uint32_t AddRef() override { return ++count_; }
  uint32_t Release() override;
  result_t GetSize(int* width, int* height, int* planes) override;
  result_t GetFormat(int* bit_count, uint32_t* model, int* reserved) override;
  result_t GetBits(int plane, int* reserved, uint8_t** bits, int* stride) override;
  result_t Create(int width, int height, int planes, int bit_count, uint32_t model) override;
  result_t Assign(IQEL* source, int flags) override;
  result_t Fill(uint32_t color) override;

 private:
  class PalettePart;

  TestImage();
  ~TestImage();

  std::atomic<uint32_t> count_{1};
  PalettePart* palette_part_;
};

/// Images of a call, and pointers to them as operations take them.
template <typename Image = IQELImage>
struct TestImages {
  TestImages() = default;
  explicit TestImages(const std::vector<Raster>& rasters) {
    for (const Raster& raster : rasters) Add(raster);
  }
  void Add(Raster raster) {
    images.push_back(TestImage::Make(std::move(raster)));
    pointers.push_back(images.back().Get());
  }
  std::vector<SmartPtr<TestImage>> images;
  std::vector<Image*> pointers;
};

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_TEST_HOST_H_
