// The smallest program that uses the module: loads it, makes an image, and runs two operations.

#include <cstdio>

#include "host/host_collection.h"
#include "host/module_library.h"
#include "qel/qel.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: minimal_host PATH/QELMaths.so\n");
    return 2;
  }
  // The host's own components: images and strings. The module makes its results through them.
  const auto collection = qel::host::HostCollection::MakeWithImages();
  const qel::host::ModuleLibrary module(argv[1]);
  module.Initialize(collection.Get());

  // An image of the host: 24 bits, a dark dot on a bright ground.
  const auto image = qel::host::HostImage::Make();
  image->Create(64, 48, 1, 24, qel::kModelBgr);
  image->Fill(0xC0D0E0);
  uint8_t* const dot = image->Row(24) + 3 * 32;
  dot[0] = dot[1] = dot[2] = 0;

  // Colour transforms work in place ...
  const auto color =
      module.Create<qel::IQELColorTransform>(qel::RefString(qel::kColorTransformName));
  color->Light(image.Get(), 20, 10);

  // ... and filters make a new image, of which we own one reference.
  const auto filter =
      module.Create<qel::IQELFilterTransform>(qel::RefString(qel::kFilterTransformName));
  qel::SmartPtr<qel::IQEL> eroded;
  const qel::result_t result = filter->Erode(image.Get(), 5, eroded.Put());
  if (qel::Failed(result)) {
    std::fprintf(stderr, "erode failed: 0x%08X\n", static_cast<unsigned>(result));
    return 1;
  }
  uint8_t* bits = nullptr;
  int stride = 0, reserved = 0;
  eroded->GetBits(0, &reserved, &bits, &stride);
  std::printf("two pixels beside the dot: %d before, %d after\n", image->Row(24)[3 * 34],
              bits[24 * stride + 3 * 34]);
  return 0;
}
