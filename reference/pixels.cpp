#include "reference/pixels.h"

#include <cstdint>
#include <cstring>
#include <limits>

namespace qel::reference {
namespace {

uint32_t ReadInside(const uint8_t* bits, int64_t x, int64_t y, int stride, int bit_count) {
  const uint8_t* row = bits + y * stride;
  if (bit_count == 32) {
    const uint8_t* pixel = row + x * 4;
    return Pack(pixel[0], pixel[1], pixel[2], pixel[3]);
  }
  if (bit_count >= 24) {
    const uint8_t* pixel = row + x * 3;
    return Pack(pixel[0], pixel[1], pixel[2], 0);
  }
  int index = 0;
  if (bit_count == 8) {
    index = row[x];
  } else if (bit_count == 4) {
    const int pair = row[(x * 4) >> 3];
    index = x % 2 == 0 ? pair >> 4 : pair & 15;
  } else if (bit_count == 1) {
    index = (row[x >> 3] >> (7 - x % 8)) & 1;
  }
  return Pack(index, index, index, 0);
}

}  // namespace

uint32_t Pack(int blue, int green, int red, int alpha) {
  return static_cast<uint32_t>(blue & 255) | static_cast<uint32_t>(green & 255) << 8 |
         static_cast<uint32_t>(red & 255) << 16 | static_cast<uint32_t>(alpha & 255) << 24;
}

int Channel(uint32_t color, int index) { return static_cast<int>(color >> (8 * index) & 255); }

int TruncateToInt(double value) {
  if (value > -2147483649.0 && value < 2147483648.0) return static_cast<int>(value);
  return std::numeric_limits<int>::min();
}

int ClampToByte(int64_t value) {
  if (value > 255) value = 255;
  if (value < 0) value = 0;
  return static_cast<int>(value);
}

int WrappedSum(int a, int b) {
  return static_cast<int>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

int WrappedProduct(int a, int b) {
  return static_cast<int>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}

int32_t LoadWord(const uint8_t* at) {
  int32_t word;
  std::memcpy(&word, at, sizeof(word));
  return word;
}

void StoreWord(uint8_t* at, int32_t word) { std::memcpy(at, &word, sizeof(word)); }

int NearestIndex(uint32_t color) {
  int best_distance = 200000;
  int best_index = 0;
  for (int index = 0; index < 256; ++index) {
    int distance = 0;
    for (int channel = 0; channel < 3; ++channel) {
      const int difference = index - Channel(color, channel);
      distance += difference * difference;
    }
    if (distance == 0) return index;
    if (distance < best_distance) {
      best_distance = distance;
      best_index = index;
    }
  }
  return best_index;
}

uint32_t GetPixelColor(const uint8_t* bits, int x, int y, int width, int height, int stride,
                       int bit_count) {
  if (width == 0 || height == 0) return 0;
  if (bits == nullptr) return 0x01000000;
  if (x < 0 || x >= width || y < 0 || y >= height) {
    return (ReadInside(bits, 0, 0, stride, bit_count) & 0x00FFFFFF) | 0x01000000;
  }
  return ReadInside(bits, x, y, stride, bit_count);
}

uint32_t PixelOf(const Raster& image, int64_t x, int64_t y) {
  return GetPixelColor(image.Bits(), static_cast<int>(x), static_cast<int>(y), image.width,
                       image.height, image.stride, image.bit_count);
}

void SetPixelOf(Raster& image, int x, int y, uint32_t color) {
  if (x < 0 || y < 0 || image.Bits() == nullptr || x > image.width || y > image.height) return;
  uint8_t* row = image.Row(y);
  if (image.bit_count >= 24) {
    const int bytes = image.bit_count == 32 ? 4 : 3;
    for (int i = 0; i < bytes; ++i) {
      row[int64_t{x} * bytes + i] = static_cast<uint8_t>(Channel(color, i));
    }
    return;
  }
  const int index = NearestIndex(color);
  if (image.bit_count == 8) {
    row[x] = static_cast<uint8_t>(index);
  } else if (image.bit_count == 4) {
    uint8_t& pair = row[(int64_t{x} * 4) >> 3];
    pair = static_cast<uint8_t>(x % 2 == 0 ? (pair & 0x0F) | (index & 15) << 4
                                           : (pair & 0xF0) | (index & 15));
  } else if (image.bit_count == 1) {
    const int shift = 7 - x % 8;
    row[x >> 3] = static_cast<uint8_t>((row[x >> 3] & ~(1 << shift)) | (index & 1) << shift);
  }
}

bool CreateLike(const Raster& source, Raster& result) {
  return result.Create(source.width, source.height, source.planes, source.bit_count, source.model);
}

}  // namespace qel::reference
