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

/// A source pixel as four floats: colours times alpha, and alpha, all 0 to 255.
[[gnu::always_inline]] inline F32x4 Load(const uint8_t* pixel, int channels) {
  if (channels == 1) return F32x4{static_cast<float>(pixel[0]), 0, 0, 255};
  if (channels == 3) {
    return F32x4{static_cast<float>(pixel[0]), static_cast<float>(pixel[1]),
                 static_cast<float>(pixel[2]), 255};
  }
  const F32x4 value = LoadBytes(pixel);
  const F32x4 scaled = value * Broadcast(value[3] / 255);
  return F32x4{scaled[0], scaled[1], scaled[2], value[3]};
}

/// The picture at (x, y), in coordinates of pixel centres. Beyond the edges the outermost pixels
/// repeat.
[[gnu::always_inline]] inline F32x4 Sample(const ConstPixels& source, int channels, double x,
                                           double y) {
  const double left = std::floor(x), top = std::floor(y);
  const auto& across = Cubic().weights[static_cast<size_t>((x - left) * kPhases + 0.5)];
  const auto& down = Cubic().weights[static_cast<size_t>((y - top) * kPhases + 0.5)];
  const int first_x = static_cast<int>(left) - 1, first_y = static_cast<int>(top) - 1;
  const bool inside =
      first_x >= 0 && first_y >= 0 && first_x + 3 < source.width && first_y + 3 < source.height;
  F32x4 sum = Broadcast(0);
  for (int j = 0; j < 4; ++j) {
    const uint8_t* const row =
        source.Row(inside ? first_y + j : std::clamp(first_y + j, 0, source.height - 1));
    F32x4 line = Broadcast(0);
    for (int i = 0; i < 4; ++i) {
      const int column = inside ? first_x + i : std::clamp(first_x + i, 0, source.width - 1);
      line += Broadcast(across[static_cast<size_t>(i)]) *
              Load(row + ptrdiff_t{column} * channels, channels);
    }
    sum += Broadcast(down[static_cast<size_t>(j)]) * line;
  }
  return sum;
}

/// How much of a pixel at `position` lies on the side of an axis of `size` samples, 0 to 1.
double Cover(double position, int size) {
  return std::clamp(std::min(position + 1, size - position), 0.0, 1.0);
}

/// Rounds colours times alpha, and alpha, to a pixel.
void Store(F32x4 value, int channels, uint8_t* to) {
  const float alpha = channels == 4 ? std::clamp(value[3], 0.0f, 255.0f) : 255;
  if (channels == 4) to[3] = ToByte(alpha);
  for (int c = 0; c < std::min(channels, 3); ++c) {
    to[c] = alpha < 0.5f ? uint8_t{0} : ToByte(value[c] * (255 / alpha));
  }
}

template <int channels>
void TurnRows(const ConstPixels& source, const Direction& direction, Color background,
              const Size& canvas, const Pixels& dest, int first_row) {
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
        value = Sample(source, channels, x, y);
        if (cover < 1) value = value * Broadcast(cover) + ground * Broadcast(1 - cover);
      }
      Store(value, dest.channels, to);
    }
  }
}

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
  const Size canvas = TurnedSize({source.width, source.height}, degrees);
  if (source.channels == 1) TurnRows<1>(source, direction, background, canvas, dest, first_row);
  if (source.channels == 3) TurnRows<3>(source, direction, background, canvas, dest, first_row);
  if (source.channels == 4) TurnRows<4>(source, direction, background, canvas, dest, first_row);
}

}  // namespace qel::compose
