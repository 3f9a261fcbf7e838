#ifndef QEL_TESTS_SUPPORT_TEST_HOST_H_
#define QEL_TESTS_SUPPORT_TEST_HOST_H_

#include <atomic>
#include <string>
#include <vector>

#include "qel/qel.h"
#include "reference/raster.h"

namespace qel::test {

/// A host whose every call can be counted, logged and made to fail. Process-wide, because modules
/// keep what they once obtained from it.
class TestHost {
 public:
  /// What the call number `fault_at` does instead of its work.
  enum class Fault {
    kNone,
    kThrow,  ///< throws
    kFail,   ///< fails and leaves its outputs alone
    kNull,   ///< succeeds, but gives a null pointer where it gives one
  };
  /// Thrown by host calls.
  struct Exception {};
  /// Returned by host calls that fail; no code that operations know of their own.
  static constexpr result_t kFaultCode = static_cast<result_t>(0x80041234u);

  static TestHost& Instance();

  /// Lives as long as the process.
  IComponentCollection* collection();

  /// Objects of the host that are alive: images, and strings and locators made by calls.
  std::atomic<int> live_objects{0};
  bool refuses_images = false;   ///< creation gives null
  bool refuses_queries = false;  ///< images answer no interface
  bool keeps_pixels = false;     ///< `Create` fails and leaves the image as it was
  Raster new_image;              ///< what new images hold before `Create`
  Raster asked;                  ///< shape of the last `Create`, without memory
  Fault fault = Fault::kNone;
  int fault_at = -1;
  int calls = 0;                 ///< host calls since `Reset`
  std::vector<std::string> log;  ///< their names and those of images, while `logging`
  bool logging = false;

  /// Back to a host without faults; counters at 0.
  void Reset();
  /// Every host call passes here first. False when the call must fail. `image` and `plane` say of
  /// what it is in the log.
  bool OnCall(const char* name, const std::string& image = {}, int plane = 0);
  /// Calls that give a pointer ask this after `OnCall`: true when the pointer must be null.
  bool GivesNull() const { return fault == Fault::kNull && calls - 1 == fault_at; }

 private:
  TestHost() = default;
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
  result_t Fill(uint32_t colour) override;

 private:
  class PalettePart;

  TestImage();
  ~TestImage();

  std::atomic<uint32_t> count_{1};
  PalettePart* palette_part_;
};

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_TEST_HOST_H_
