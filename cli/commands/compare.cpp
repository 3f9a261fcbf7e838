#include "cli/commands/compare.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "cli/session/picture_io.h"

namespace qel::cli {
namespace {

std::string ShapeText(const host::HostImage& image) {
  return fmt::format("{} x {} at {} bits", image.width(), image.height(), image.bit_count());
}

}  // namespace

std::string WhyNotComparable(const host::HostImage& a, const host::HostImage& b) {
  if (a.width() == b.width() && a.height() == b.height() && a.bit_count() == b.bit_count()) {
    return {};
  }
  return fmt::format("one is {}, the other {}", ShapeText(a), ShapeText(b));
}

Comparison Compare(const host::HostImage& a, const host::HostImage& b, int limit) {
  Comparison comparison{.pixels = int64_t{a.width()} * a.height()};
  const int channels = a.bit_count() / 8;
  double squares = 0;
  for (int y = 0; y < a.height(); ++y) {
    const uint8_t* left = a.Row(y);
    const uint8_t* right = b.Row(y);
    int64_t row_squares = 0;
    for (int x = 0; x < a.width(); ++x) {
      int largest = 0;
      for (int i = 0; i < channels; ++i) {
        const int difference = std::abs(*left++ - *right++);
        largest = std::max(largest, difference);
        row_squares += difference * difference;
      }
      comparison.largest = std::max(comparison.largest, largest);
      if (largest > limit) ++comparison.differing_pixels;
    }
    squares += static_cast<double>(row_squares);
  }
  const double count = static_cast<double>(comparison.pixels) * channels;
  comparison.psnr = 10 * std::log10(255.0 * 255.0 * count / squares);
  return comparison;
}

SmartPtr<host::HostImage> DrawDifference(const host::HostImage& a, const host::HostImage& b,
                                         int largest) {
  const int channels = a.bit_count() / 8;
  const int colors = std::min(channels, 3);
  SmartPtr<host::HostImage> drawn = MakeImage(a.width(), a.height(), 8 * colors);
  for (int y = 0; y < a.height(); ++y) {
    const uint8_t* left = a.Row(y);
    const uint8_t* right = b.Row(y);
    uint8_t* to = drawn->Row(y);
    for (int x = 0; x < a.width(); ++x, left += channels, right += channels) {
      const int alpha = channels == 4 ? std::abs(left[3] - right[3]) : 0;
      for (int i = 0; i < colors; ++i) {
        const int difference = std::max(std::abs(left[i] - right[i]), alpha);
        *to++ = static_cast<uint8_t>(difference * 255 / std::max(largest, 1));
      }
    }
  }
  return drawn;
}

}  // namespace qel::cli
