#include "compose/blend.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace qel::compose {
namespace {

constexpr int kOpaque = 255;

uint8_t Luma(const uint8_t* pixel) {
  return static_cast<uint8_t>((114 * pixel[0] + 587 * pixel[1] + 299 * pixel[2] + 500) / 1000);
}

/// One pixel of any channels as a colour.
Color ColorOf(const uint8_t* pixel, int channels) {
  if (channels == 1) return {pixel[0], pixel[0], pixel[0]};
  return {pixel[0], pixel[1], pixel[2], channels == 4 ? pixel[3] : uint8_t{kOpaque}};
}

void Store(Color color, int channels, uint8_t* pixel) {
  const uint8_t bytes[] = {color.blue, color.green, color.red, color.alpha};
  if (channels == 1) {
    pixel[0] = color.IsGray() ? color.blue : Luma(bytes);
  } else {
    std::memcpy(pixel, bytes, static_cast<size_t>(channels));
  }
}

/// (value * share + other * (255 - share)) / 255, rounded.
uint8_t Mix(int value, int other, int share) {
  return static_cast<uint8_t>((value * share + other * (kOpaque - share) + kOpaque / 2) / kOpaque);
}

/// Lays one colour on a pixel.
void Over(Color color, int channels, uint8_t* pixel) {
  const int share = color.alpha;
  if (share == 0) return;
  if (channels != 4 || pixel[3] == kOpaque) {
    const uint8_t bytes[] = {color.blue, color.green, color.red};
    if (channels == 1) {
      pixel[0] = Mix(color.IsGray() ? color.blue : Luma(bytes), pixel[0], share);
    } else {
      for (int c = 0; c < 3; ++c) pixel[c] = Mix(bytes[c], pixel[c], share);
    }
    return;
  }
  const int below = pixel[3] * (kOpaque - share);
  const int sum = share * kOpaque + below;
  const int bytes[] = {color.blue, color.green, color.red};
  for (int c = 0; c < 3; ++c) {
    pixel[c] =
        static_cast<uint8_t>((bytes[c] * share * kOpaque + pixel[c] * below + sum / 2) / sum);
  }
  pixel[3] = static_cast<uint8_t>((sum + kOpaque / 2) / kOpaque);
}

/// The part of a picture at (x, y) that lies in `dest`.
struct Part {
  int left, top, right, bottom;  ///< in `dest`

  Part(const ConstPixels& picture, const Pixels& dest, int x, int y)
      : left(std::max(x, 0)),
        top(std::max(y, 0)),
        right(static_cast<int>(std::min<int64_t>(int64_t{x} + picture.width, dest.width))),
        bottom(static_cast<int>(std::min<int64_t>(int64_t{y} + picture.height, dest.height))) {}
};

}  // namespace

int ChannelsWith(int channels, Color color) {
  if (color.alpha != kOpaque) return 4;
  return channels == 1 && !color.IsGray() ? 3 : channels;
}

void Fill(const Pixels& dest, Color color) {
  if (dest.width <= 0) return;
  for (int y = 0; y < dest.height; ++y) {
    for (int x = 0; x < dest.width; ++x) Store(color, dest.channels, dest.At(x, y));
  }
}

void CopyTo(const ConstPixels& source, const Pixels& dest, int x, int y) {
  const Part part(source, dest, x, y);
  if (part.left >= part.right) return;
  for (int row = part.top; row < part.bottom; ++row) {
    const uint8_t* from = source.At(part.left - x, row - y);
    uint8_t* to = dest.At(part.left, row);
    if (source.channels == dest.channels) {
      std::memcpy(to, from,
                  static_cast<size_t>(part.right - part.left) * static_cast<size_t>(dest.channels));
      continue;
    }
    for (int column = part.left; column < part.right; ++column) {
      Store(ColorOf(from, source.channels), dest.channels, to);
      from += source.channels;
      to += dest.channels;
    }
  }
}

void BlendOver(const ConstPixels& over, double opacity, const Pixels& dest, int x, int y) {
  const Part part(over, dest, x, y);
  uint8_t shares[256];
  for (int alpha = 0; alpha < 256; ++alpha) {
    shares[alpha] = static_cast<uint8_t>(std::lround(alpha * std::clamp(opacity, 0.0, 1.0)));
  }
  for (int row = part.top; row < part.bottom; ++row) {
    for (int column = part.left; column < part.right; ++column) {
      Color color = ColorOf(over.At(column - x, row - y), over.channels);
      color.alpha = shares[color.alpha];
      Over(color, dest.channels, dest.At(column, row));
    }
  }
}

void BlendTiles(const ConstPixels& over, double opacity, const Pixels& dest, int x, int y) {
  if (over.width <= 0 || over.height <= 0) return;
  const auto first = [](int at, int step) { return at % step > 0 ? at % step - step : at % step; };
  for (int top = first(y, over.height); top < dest.height; top += over.height) {
    for (int left = first(x, over.width); left < dest.width; left += over.width) {
      BlendOver(over, opacity, dest, left, top);
    }
  }
}

void Flatten(const ConstPixels& source, Color ground, const Pixels& dest) {
  const uint8_t below[] = {ground.blue, ground.green, ground.red};
  for (int y = 0; y < source.height; ++y) {
    const uint8_t* from = source.Row(y);
    uint8_t* to = dest.Row(y);
    for (int x = 0; x < source.width; ++x, from += 4, to += 3) {
      for (int c = 0; c < 3; ++c) to[c] = Mix(from[c], below[c], from[3]);
    }
  }
}

void ToGray(const ConstPixels& source, const Pixels& dest) {
  for (int y = 0; y < source.height; ++y) {
    const uint8_t* from = source.Row(y);
    uint8_t* const to = dest.Row(y);
    for (int x = 0; x < source.width; ++x, from += 3) to[x] = Luma(from);
  }
}

bool HasTransparency(const ConstPixels& source) {
  if (source.channels != 4) return false;
  for (int y = 0; y < source.height; ++y) {
    const uint8_t* const row = source.Row(y);
    for (ptrdiff_t i = 3; i < ptrdiff_t{source.width} * 4; i += 4) {
      if (row[i] != kOpaque) return true;
    }
  }
  return false;
}

}  // namespace qel::compose
