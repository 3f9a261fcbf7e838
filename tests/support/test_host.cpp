#include "tests/support/test_host.h"

namespace qel::test {
namespace {

TestHost& Host() { return TestHost::Instance(); }

}  // namespace

TestHost& TestHost::Instance() {
  static TestHost* const host = new TestHost;  // never destroyed: modules outlive static order
  return *host;
}

IQELImageDIB* TestHost::NewImage() {
  return refuses_images ? nullptr : TestImage::Make(new_image).Detach();
}

void TestHost::Reset() {
  refuses_images = refuses_queries = keeps_pixels = logging = false;
  new_image = asked = {};
  fault = Fault::kNone;
  fault_at = -1;
  calls = 0;
  log.clear();
}

/// The optional palette interface, part of the image's identity.
class TestImage::PalettePart final : public IQELImagePalette {
 public:
  explicit PalettePart(TestImage& image) : image_(image) {}
  virtual ~PalettePart() = default;
  result_t QueryInterface(const IID& iid, void** object) override {
    return image_.QueryInterface(iid, object);
  }
  uint32_t AddRef() override { return image_.AddRef(); }
  uint32_t Release() override { return image_.Release(); }
  result_t GetPalette(RGBQUAD** entries, uint32_t* count) override {
    if (!Host().OnCall("GetPalette")) return TestHost::kFaultCode;
    if (Host().GivesNull()) return kOk;
    *entries = image_.raster.palette.data();
    *count = static_cast<uint32_t>(image_.raster.palette.size());
    return kOk;
  }

 private:
  TestImage& image_;
};

TestImage::TestImage() : palette_part_(new PalettePart(*this)) { ++Host().live_objects; }

TestImage::~TestImage() {
  delete palette_part_;
  --Host().live_objects;
}

SmartPtr<TestImage> TestImage::Make(Raster raster) {
  auto image = SmartPtr<TestImage>::Adopt(new TestImage);
  image->raster = std::move(raster);
  return image;
}

uint32_t TestImage::Release() {
  const uint32_t left = --count_;
  if (left == 0) delete this;
  return left;
}

result_t TestImage::QueryInterface(const IID& iid, void** object) {
  if (!Host().OnCall("QueryInterface", log_name)) return TestHost::kFaultCode;
  *object = nullptr;
  if (Host().GivesNull()) return kOk;
  if (Host().refuses_queries) return kNoInterface;
  if (iid == IID_IQELImagePalette && !raster.palette.empty()) {
    *object = static_cast<IQELImagePalette*>(palette_part_);
  } else if (iid == IID_IUnknown || iid == IID_IQEL || iid == IID_IQELImage ||
             iid == IID_IQELImageDIB) {
    *object = static_cast<IQELImageDIB*>(this);
  }
  if (*object == nullptr) return kNoInterface;
  AddRef();
  return kOk;
}

result_t TestImage::GetSize(int* width, int* height, int* planes) {
  if (!Host().OnCall("GetSize", log_name)) return TestHost::kFaultCode;
  *width = raster.width;
  *height = raster.height;
  *planes = raster.planes;
  return kOk;
}

result_t TestImage::GetFormat(int* bit_count, uint32_t* model, int* reserved) {
  if (!Host().OnCall("GetFormat", log_name)) return TestHost::kFaultCode;
  *bit_count = raster.bit_count;
  *model = raster.model;
  *reserved = 0;
  return kOk;
}

result_t TestImage::GetBits(int plane, int* reserved, uint8_t** bits, int* stride) {
  if (!Host().OnCall("GetBits", log_name, plane)) return TestHost::kFaultCode;
  *reserved = 0;
  *bits = Host().GivesNull() ? nullptr : raster.Bits(plane);
  *stride = raster.stride;
  return *bits != nullptr ? kOk : kInvalidArgument;
}

result_t TestImage::Create(int width, int height, int planes, int bit_count, uint32_t model) {
  if (!Host().OnCall("Create", log_name)) return TestHost::kFaultCode;
  Raster& asked = Host().asked;
  asked.width = width;
  asked.height = height;
  asked.planes = planes;
  asked.bit_count = bit_count;
  asked.model = model;
  if (Host().keeps_pixels) return TestHost::kFaultCode;
  return raster.Create(width, height, planes, bit_count, model) ? kOk : kInvalidArgument;
}

result_t TestImage::Assign(IQEL* source, int /*flags*/) {
  if (!Host().OnCall("Assign", log_name)) return TestHost::kFaultCode;
  raster.Assign(static_cast<TestImage*>(source)->raster);
  return kOk;
}

result_t TestImage::Fill(uint32_t color) {
  if (!Host().OnCall("Fill", log_name)) return TestHost::kFaultCode;
  raster.Fill(color);
  return kOk;
}

}  // namespace qel::test
