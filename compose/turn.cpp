#include "compose/turn.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <numbers>

#include "compose/vectors.h"

namespace qel::compose {
namespace {

/// Cosine and sine of an angle, exact for quarter turns.
struct Direction {
  double cosine;
  double sine;
  int quarters;  ///< turns of 90 degrees, 0 to 3; -1 for other angles

  explicit Direction(double degrees) {
    const double part = std::remainder(degrees, 360);
    if (std::fmod(part, 90) == 0) {
      quarters = (static_cast<int>(part / 90) + 4) % 4;
      cosine = quarters == 0 ? 1 : quarters == 2 ? -1 : 0;
      sine = quarters == 1 ? 1 : quarters == 3 ? -1 : 0;
    } else {
      quarters = -1;
      cosine = std::cos(part * std::numbers::pi / 180);
      sine = std::sin(part * std::numbers::pi / 180);
    }
  }
};

/// Positions between two samples that have weights of their own; finer ones would not show.
constexpr int kPhases = 1024;

/// The four weights of Catmull and Rom, by position.
struct CubicWeights {
  std::array<std::array<float, 4>, kPhases + 1> weights;

  CubicWeights() {
    for (int phase = 0; phase <= kPhases; ++phase) {
      const double t = static_cast<double>(phase) / kPhases;
      weights[static_cast<size_t>(phase)] = {static_cast<float>(((-t + 2) * t - 1) * t / 2),
                                             static_cast<float>(((3 * t - 5) * t * t + 2) / 2),
                                             static_cast<float>(((-3 * t + 4) * t + 1) * t / 2),
                                             static_cast<float>((t - 1) * t * t / 2)};
    }
  }
};

const CubicWeights& Cubic() {
  static const CubicWeights weights;
  return weights;
}

/// A pixel as four floats: colours times alpha, and alpha, all 0 to 255.
[[gnu::always_inline]] inline F32x4 Load(const uint8_t* pixel, int channels) {
  if (channels == 1) return F32x4{static_cast<float>(pixel[0]), 0, 0, 255};
  if (channels == 3) {
    return F32x4{static_cast<float>(pixel[0]), static_cast<float>(pixel[1]),
                 static_cast<float>(pixel[2]), 255};
  }
  const F32x4 value = LoadBytes(pixel);
  const F32x4 scaled = value * Broadcast(value[3] * (1 / 255.0f));
  return F32x4{scaled[0], scaled[1], scaled[2], value[3]};
}

/// Four pixels of a row, weighted.
template <int channels>
[[gnu::always_inline]] inline F32x4 SumOfRow(const uint8_t* pixels, const float* weights) {
  if constexpr (channels == 1) {
    const F32x4 products = LoadBytes(pixels) * LoadFloats(weights);
    return F32x4{(products[0] + products[1]) + (products[2] + products[3]), 0, 0, 0};
  }
  F32x4 sum = Broadcast(0);
  for (int i = 0; i < 4; ++i, pixels += channels) {
    // Of three channels the fourth lane is the next pixel's first, which nobody looks at.
    const F32x4 pixel = channels == 4 ? Load(pixels, 4) : LoadBytes(pixels);
    sum += Broadcast(weights[i]) * pixel;
  }
  return sum;
}

/// The picture at (x, y), in coordinates of pixel centres. Beyond the edges the outermost pixels
/// repeat.
template <int channels>
[[gnu::always_inline]] inline F32x4 Sample(const CubicWeights& cubic, const ConstPixels& source,
                                           double x, double y) {
  // Positions are above -1.
  const int left = static_cast<int>(x + 1) - 1, top = static_cast<int>(y + 1) - 1;
  const auto& across = cubic.weights[static_cast<size_t>((x - left) * kPhases + 0.5)];
  const auto& down = cubic.weights[static_cast<size_t>((y - top) * kPhases + 0.5)];
  F32x4 sum = Broadcast(0);
  // The last column is left to the careful way, as four bytes are read for each pixel.
  if (left >= 1 && top >= 1 && left + 3 < source.width && top + 2 < source.height) {
    const uint8_t* row = source.At(left - 1, top - 1);
    for (size_t j = 0; j < 4; ++j, row += source.stride) {
      sum += Broadcast(down[j]) * SumOfRow<channels>(row, across.data());
    }
  } else {
    for (int j = 0; j < 4; ++j) {
      const uint8_t* const row = source.Row(std::clamp(top - 1 + j, 0, source.height - 1));
      F32x4 line = Broadcast(0);
      for (int i = 0; i < 4; ++i) {
        const int column = std::clamp(left - 1 + i, 0, source.width - 1);
        line += Broadcast(across[static_cast<size_t>(i)]) *
                Load(row + ptrdiff_t{column} * channels, channels);
      }
      sum += Broadcast(down[static_cast<size_t>(j)]) * line;
    }
  }
  return channels == 4 ? sum : F32x4{sum[0], sum[1], sum[2], 255};
}

/// How much of a pixel at `position` lies on the side of an axis of `size` samples, 0 to 1.
double Cover(double position, int size) {
  return std::clamp(std::min(position + 1, size - position), 0.0, 1.0);
}

/// Rounds colours times alpha, and alpha, to a pixel.
[[gnu::always_inline]] inline void Store(F32x4 value, int channels, uint8_t* to) {
  if (channels == 4) {
    const float alpha = std::clamp(value[3], 0.0f, 255.0f);
    to[3] = ToByte(alpha);
    value *= Broadcast(alpha < 0.5f ? 0 : 255 / alpha);
  }
  for (int c = 0; c < std::min(channels, 3); ++c) to[c] = ToByte(value[c]);
}

/// A picture that is turned onto rows of its canvas.
struct Turning {
  const ConstPixels& source;
  Direction direction;
  Color background;
  Size canvas;
  const Pixels& dest;
  int first_row;
};

template <int channels>
[[gnu::always_inline]] inline void TurnRows(const Turning& turning) {
  const auto& [source, direction, background, canvas, dest, first_row] = turning;
  const CubicWeights& cubic = Cubic();
  const uint8_t ground_pixel[] = {background.blue, background.green, background.red,
                                  background.alpha};
  const F32x4 ground =
      channels == 1 ? F32x4{static_cast<float>(background.blue), 0, 0, 255} : Load(ground_pixel, 4);
  const double middle_x = (source.width - 1) / 2.0, middle_y = (source.height - 1) / 2.0;
  for (int row = 0; row < dest.height; ++row) {
    const double down = first_row + row - (canvas.height - 1) / 2.0;
    uint8_t* to = dest.Row(row);
    for (int column = 0; column < dest.width; ++column, to += dest.channels) {
      const double across = column - (canvas.width - 1) / 2.0;
      const double x = middle_x + across * direction.cosine - down * direction.sine;
      const double y = middle_y + across * direction.sine + down * direction.cosine;
      const auto cover = static_cast<float>(Cover(x, source.width) * Cover(y, source.height));
      F32x4 value = ground;
      if (cover > 0) {
        value = Sample<channels>(cubic, source, x, y);
        if (cover < 1) value = value * Broadcast(cover) + ground * Broadcast(1 - cover);
      }
      Store(value, dest.channels, to);
    }
  }
}

[[gnu::always_inline]] inline void TurnRowsOf(const Turning& turning) {
  if (turning.source.channels == 1) TurnRows<1>(turning);
  if (turning.source.channels == 3) TurnRows<3>(turning);
  if (turning.source.channels == 4) TurnRows<4>(turning);
}

#ifdef __x86_64__
[[gnu::target("avx2")]] void TurnRowsAvx2(const Turning& turning) { TurnRowsOf(turning); }
#endif
void TurnRowsPlain(const Turning& turning) { TurnRowsOf(turning); }

/// Rows of a picture turned by whole quarters.
void MovePixels(const ConstPixels& source, int quarters, const Pixels& dest, int first_row) {
  const auto bytes = static_cast<size_t>(source.channels);
  for (int row = 0; row < dest.height; ++row) {
    const int y = first_row + row;
    uint8_t* to = dest.Row(row);
    if (quarters == 0) {
      std::memcpy(to, source.Row(y), static_cast<size_t>(source.width) * bytes);
      continue;
    }
    for (int x = 0; x < dest.width; ++x, to += source.channels) {
      const uint8_t* const from = quarters == 1 ? source.At(source.width - 1 - y, x)
                                  : quarters == 2
                                      ? source.At(source.width - 1 - x, source.height - 1 - y)
                                      : source.At(y, source.height - 1 - x);
      std::memcpy(to, from, bytes);
    }
  }
}

}  // namespace

Size TurnedSize(const Size& source, double degrees) {
  const Direction direction(degrees);
  const double cosine = std::abs(direction.cosine), sine = std::abs(direction.sine);
  // What is larger than a whole number by less than rounding makes does not need another pixel.
  constexpr double kRounding = 1e-6;
  const auto extent = [](double exact) {
    return std::max(1, static_cast<int>(std::ceil(exact - kRounding)));
  };
  return {extent(source.width * cosine + source.height * sine),
          extent(source.width * sine + source.height * cosine)};
}

void Turn(const ConstPixels& source, double degrees, Color background, const Pixels& dest,
          int first_row) {
  const Direction direction(degrees);
  if (direction.quarters >= 0 && source.channels == dest.channels) {
    MovePixels(source, direction.quarters, dest, first_row);
    return;
  }
  const Turning turning = {source,     direction,
                           background, TurnedSize({source.width, source.height}, degrees),
                           dest,       first_row};
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2")) {
    TurnRowsAvx2(turning);
    return;
  }
#endif
  TurnRowsPlain(turning);
}

}  // namespace qel::compose
