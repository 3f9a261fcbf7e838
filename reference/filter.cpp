#include <algorithm>
#include <cstdlib>
#include <vector>

#include "reference/operations.h"
#include "reference/pixels.h"

namespace qel::reference {
namespace {

/// The colour that stands at (sx, sy): the top-left pixel with alpha 1 outside the image.
uint32_t Neighbour(const Raster& source, int64_t sx, int64_t sy) {
  if (source.Bits() == nullptr) return Pack(0, 0, 0, 1);
  if (sx >= 0 && sx < source.width && sy >= 0 && sy < source.height) {
    return PixelOf(source, sx, sy);
  }
  const uint32_t corner = PixelOf(source, 0, 0);
  return Pack(Channel(corner, 0), Channel(corner, 1), Channel(corner, 2), 1);
}

/// Calls `visit(colour, i, j)` for the neighbourhood of (x, y), column by column.
template <typename Visit>
void VisitNeighbours(const Raster& source, int x, int y, int size, Visit visit) {
  const int half = size / 2;
  for (int i = 0; i < size; ++i) {
    for (int j = 0; j < size; ++j) {
      visit(Neighbour(source, int64_t{x} - half + i, int64_t{y} - half + j), i, j);
    }
  }
}

/// Creates `result` like `source` and gives every pixel the colour `compute(x, y)`.
template <typename Compute>
result_t ComputePixels(const Raster& source, Raster& result, Compute compute) {
  CreateLike(source, result);
  if (result.Bits() == nullptr) return kOk;
  ForEachPixel(result, [&](int x, int y) { SetPixelOf(result, x, y, compute(x, y)); });
  return kOk;
}

int DividedAndShifted(int sum, int divisor, int offset) {
  if (divisor == -1) {
    sum = WrappedProduct(sum, -1);
  } else if (divisor != 0) {
    sum /= divisor;
  }
  return ClampToByte(WrappedSum(sum, offset));
}

struct Extremes {
  int low[3] = {255, 255, 255};
  int high[3] = {0, 0, 0};
  int alpha = 0;
};

Extremes ExtremesAround(const Raster& source, int x, int y, int size) {
  Extremes found;
  VisitNeighbours(source, x, y, size, [&](uint32_t color, int, int) {
    for (int channel = 0; channel < 3; ++channel) {
      found.low[channel] = std::min(found.low[channel], Channel(color, channel));
      found.high[channel] = std::max(found.high[channel], Channel(color, channel));
    }
    found.alpha = Channel(color, 3);
  });
  return found;
}

int BrightnessKey(uint32_t color) {
  return (117 * Channel(color, 0) + 601 * Channel(color, 1) + 306 * Channel(color, 2)) >> 10;
}

int RandomOffset(int span) {
  const float share = static_cast<float>(std::rand()) * 0x1p-31f;
  return TruncateToInt((static_cast<double>(share) - 0.5) * static_cast<double>(span));
}

}  // namespace

result_t Filter(const Raster& source, const int* kernel, int size, int divisor, int offset,
                Raster& result) {
  if (kernel == nullptr && size > 0) return kFail;
  return ComputePixels(source, result, [&](int x, int y) {
    int sums[3] = {0, 0, 0};
    int alpha = 0;
    VisitNeighbours(source, x, y, size, [&](uint32_t color, int i, int j) {
      for (int channel = 0; channel < 3; ++channel) {
        const int term = WrappedProduct(Channel(color, channel), kernel[j * size + i]);
        sums[channel] = WrappedSum(sums[channel], term);
      }
      alpha = Channel(color, 3);
    });
    for (int& sum : sums) sum = DividedAndShifted(sum, divisor, offset);
    return Pack(sums[0], sums[1], sums[2], alpha);
  });
}

result_t Kernel(const Raster& source, const int16_t* kernel, int size, int divisor, int offset,
                Raster& result) {
  const bool computes = source.bit_count == 32 && source.model == kModelMono && size >= 0 &&
                        size < source.width && size < source.height &&
                        (source.Bits() != nullptr || size == 0);
  if (computes && size > 0 && kernel == nullptr) return kFail;
  CreateLike(source, result);
  if (!computes || result.Bits() == nullptr) return kOk;
  const int half = size / 2;
  int32_t value = 0;
  for (int64_t y = 0; y < source.height - size; ++y) {
    for (int64_t x = 0; x < source.width - size; ++x) {
      if (size > 0) {
        const int64_t tap = (y + size - 1) * source.stride + x + size - 1;
        value = WrappedProduct(kernel[size * size - 1], LoadWord(source.Bits() + 4 * tap));
      }
      value = DividedAndShifted(value, divisor, offset);
      StoreWord(result.Bits() + 4 * ((half + y) * result.stride + half + x), value);
    }
  }
  return kOk;
}

result_t Emboss(const Raster& source, Raster& result) {
  const int kernel[] = {0, 0, -1, 0, 0, 0, 1, 0, 0};
  return Filter(source, kernel, 3, 0, 127, result);
}

result_t Blur(const Raster& source, Raster& result) {
  const int kernel[] = {1, 1, 1, 1, 1, 1, 1, 1, 1};
  return Filter(source, kernel, 3, 9, 0, result);
}

result_t Soften(const Raster& source, Raster& result) {
  const int kernel[] = {1, 1, 1, 1, 8, 1, 1, 1, 1};
  return Filter(source, kernel, 3, 16, 0, result);
}

result_t Sharpen(const Raster& source, Raster& result) {
  const int kernel[] = {-1, -1, -1, -1, 15, -1, -1, -1, -1};
  return Filter(source, kernel, 3, 7, 0, result);
}

result_t GaussianBlur(const Raster& source, int level, Raster& result) {
  const struct {
    std::vector<int> kernel;
    int size, divisor;
  } levels[] = {
      {{1, 2, 1, 2, 4, 2, 1, 2, 1}, 3, 16},
      {{0, 1, 2, 1, 0, 1, 3, 4, 3, 1, 2, 4, 8, 4, 2, 1, 3, 4, 3, 1, 0, 1, 2, 1, 0}, 5, 52},
      {{1, 4, 7, 4, 1, 4, 16, 26, 16, 4, 2, 26, 41, 26, 7, 4, 16, 26, 16, 4, 1, 4, 7, 4, 1},
       5,
       273},
      {{2, 4, 5, 4, 2, 4, 9, 12, 9, 4, 5, 12, 15, 12, 5, 4, 9, 12, 9, 4, 2, 4, 5, 4, 2}, 5, 159},
  };
  if (level < 0 || level > 3) return kFail;
  return Filter(source, levels[level].kernel.data(), levels[level].size, levels[level].divisor, 0,
                result);
}

/// Gives every pixel `combine` of the extremes of each channel, and the last alpha.
template <typename Combine>
result_t CombineExtremes(const Raster& source, int size, Raster& result, Combine combine) {
  return ComputePixels(source, result, [&](int x, int y) {
    const Extremes e = ExtremesAround(source, x, y, size);
    return Pack(combine(e.low[0], e.high[0]), combine(e.low[1], e.high[1]),
                combine(e.low[2], e.high[2]), e.alpha);
  });
}

result_t Erode(const Raster& source, int size, Raster& result) {
  return CombineExtremes(source, size, result, [](int low, int) { return low; });
}

result_t Dilate(const Raster& source, int size, Raster& result) {
  return CombineExtremes(source, size, result, [](int, int high) { return high; });
}

result_t Edge(const Raster& source, int size, Raster& result) {
  return CombineExtremes(source, size, result,
                         [](int low, int high) { return std::abs(high - low); });
}

result_t Contour(const Raster& source, Raster& result) {
  return ComputePixels(source, result, [&](int x, int y) {
    const uint32_t center = PixelOf(source, x, y);
    int tracked[3] = {0, 0, 0};
    VisitNeighbours(source, x, y, 3, [&](uint32_t color, int, int) {
      for (int channel = 0; channel < 3; ++channel) {
        const int n = Channel(color, channel);
        if (n - Channel(center, channel) > tracked[channel]) tracked[channel] = n;
      }
    });
    return Pack(255 - tracked[0], 255 - tracked[1], 255 - tracked[2], Channel(center, 3));
  });
}

result_t Median(const Raster& source, int size, Raster& result) {
  return ComputePixels(source, result, [&](int x, int y) {
    std::vector<uint32_t> colors;
    VisitNeighbours(source, x, y, size, [&](uint32_t color, int, int) { colors.push_back(color); });
    if (colors.empty()) return Pack(0, 0, 0, 0);
    std::stable_sort(colors.begin(), colors.end(),
                     [](uint32_t a, uint32_t b) { return BrightnessKey(a) < BrightnessKey(b); });
    return colors[colors.size() / 2];
  });
}

result_t Noise(const Raster& source, int amount, Raster& result) {
  return ComputePixels(source, result, [&](int x, int y) {
    const uint32_t color = PixelOf(source, x, y);
    const int red = ClampToByte(int64_t{Channel(color, 2)} + RandomOffset(amount));
    const int green = ClampToByte(int64_t{Channel(color, 1)} + RandomOffset(amount));
    const int blue = ClampToByte(int64_t{Channel(color, 0)} + RandomOffset(amount));
    return Pack(blue, green, red, Channel(color, 3));
  });
}

result_t Jitter(const Raster& source, int amount, Raster& result) {
  const int span = WrappedProduct(amount, 2);
  return ComputePixels(source, result, [&](int x, int y) {
    const int64_t sx = int64_t{x} + RandomOffset(span);
    const int64_t sy = int64_t{y} + RandomOffset(span);
    if (sx >= 0 && sx < source.width && sy >= 0 && sy < source.height) {
      return PixelOf(source, sx, sy);
    }
    return PixelOf(source, x, y);
  });
}

}  // namespace qel::reference
