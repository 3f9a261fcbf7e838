#ifndef QEL_TESTS_SUPPORT_HOST_IMAGES_H_
#define QEL_TESTS_SUPPORT_HOST_IMAGES_H_

#include <cstdlib>
#include <string>

#include "host/host_image.h"
#include "tests/support/rasters.h"

namespace qel::test {

/// Noise, and nothing but zeros round it.
inline SmartPtr<host::HostImage> NoisyImage(int width, int height, int bits, uint32_t model,
                                            uint64_t seed) {
  auto image = host::HostImage::Make(width, height, bits, model, {.clear = true});
  Rng rng(seed);
  for (int y = 0; y < height; ++y) {
    for (int64_t i = 0; i < image->RowBytes(); ++i) {
      image->Row(y)[i] = static_cast<uint8_t>(rng.Next());
    }
  }
  return image;
}

/// Shape and rows of an image of the host; unused bits of the last byte of a row do not count.
inline std::string Content(IQEL& picture) {
  const auto& image = static_cast<host::HostImage&>(picture);
  std::string content = std::to_string(image.width()) + "x" + std::to_string(image.height()) + "x" +
                        std::to_string(image.bit_count()) + ":";
  const int unused =
      static_cast<int>(8 * image.RowBytes() - int64_t{image.width()} * image.bit_count());
  for (int y = 0; y < image.height(); ++y) {
    content.append(reinterpret_cast<const char*>(image.Row(y)),
                   static_cast<size_t>(image.RowBytes()));
    content.back() = static_cast<char>(content.back() & 0xFF << unused);
  }
  return content;
}

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_HOST_IMAGES_H_
