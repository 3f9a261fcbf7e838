#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <vector>

#include "bench/stage.h"

namespace qel::bench {
namespace {

using Pixel = std::array<uint8_t, 4>;

uint32_t Hash(uint32_t a, uint32_t b, uint32_t seed) {
  uint32_t h = a * 0x9E3779B1u ^ (b + seed) * 0x85EBCA77u;
  h = (h ^ h >> 15) * 0x2C1B3C6Du;
  return (h ^ h >> 13) * 0x297A2D39u ^ h >> 16;
}

uint8_t ToByte(float value) { return static_cast<uint8_t>(std::clamp(value, 0.0f, 255.0f)); }

/// One pixel at (x, y), `u` and `v` its place in the picture: a smooth landscape with a disc in
/// each cell of an uneven grid. A quarter of the discs is flat, some of these white; the rest
/// carries noise.
Pixel PhotoPixel(uint32_t x, uint32_t y, float u, float v, uint32_t seed) {
  constexpr uint32_t kCellWidth = 97, kCellHeight = 71;
  const uint32_t cell = Hash(x / kCellWidth, y / kCellHeight, seed);
  const float dx = static_cast<float>(x % kCellWidth) - 48.0f;
  const float dy = static_cast<float>(y % kCellHeight) - 35.0f;
  const bool in_disc = dx * dx + dy * dy < static_cast<float>(cell % 1200);
  if (in_disc && cell >> 30 == 0) {
    const auto tone = static_cast<uint8_t>(cell >> 20 & 1 ? 255 : cell >> 8);
    return {tone, static_cast<uint8_t>(tone & 0xFE), tone, static_cast<uint8_t>(cell >> 12)};
  }
  const float wave = 34.0f * std::sin(9.0f * u + 4.0f * v + static_cast<float>(seed)) *
                     std::sin(11.0f * v - 3.0f * u);
  const float disc = in_disc ? static_cast<float>(cell >> 24) * 0.6f - 76.0f : 0.0f;
  const uint32_t noise = Hash(x, y, ~seed);
  const auto grain = [&](int shift) { return static_cast<float>(noise >> shift & 15) - 7.5f; };
  return {ToByte(210.0f - 130.0f * v + wave + disc + grain(0)),
          ToByte(120.0f + 40.0f * u + wave - 0.5f * disc + grain(4)),
          ToByte(70.0f + 120.0f * v + 0.5f * wave + disc + grain(8)), ToByte(400.0f - 300.0f * u)};
}

/// The photo in this size, painted once.
const std::vector<Pixel>& Photo(int width, int height, uint32_t seed) {
  static std::map<std::array<int64_t, 3>, std::vector<Pixel>> painted;
  std::vector<Pixel>& pixels = painted[{width, height, seed}];
  if (!pixels.empty()) return pixels;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const float u = static_cast<float>(x) / static_cast<float>(width);
      const float v = static_cast<float>(y) / static_cast<float>(height);
      pixels.push_back(PhotoPixel(static_cast<uint32_t>(x), static_cast<uint32_t>(y), u, v, seed));
    }
  }
  return pixels;
}

void Store(uint8_t* to, int bytes, Pixel pixel, Content content) {
  const int gray = (pixel[0] + pixel[1] + pixel[2]) / 3;
  if (content == Content::kIntegers) {
    const int32_t value = (gray - 90) * 37;
    std::memcpy(to, &value, sizeof(value));
    return;
  }
  if (content == Content::kMask && gray < 120) pixel = {};
  if (bytes == 1)
    pixel[0] = content == Content::kMask && gray < 120 ? 0 : static_cast<uint8_t>(gray);
  std::copy_n(pixel.begin(), bytes, to);
}

}  // namespace

void Paint(const host::HostImage& image, Content content) {
  if (content == Content::kNothing) return;
  const uint32_t seed = content == Content::kPhoto ? 1 : 2;
  const Pixel* from = Photo(image.width(), image.height(), seed).data();
  const int bytes = image.bit_count() / 8;
  for (int y = 0; y < image.height(); ++y) {
    uint8_t* to = image.Row(y);
    for (int x = 0; x < image.width(); ++x, to += bytes) Store(to, bytes, *from++, content);
  }
}

}  // namespace qel::bench
