#include "cli/drawing/demo_scene.h"

#include <algorithm>
#include <cmath>

namespace qel::cli {
namespace {

constexpr double kPi = 3.14159265358979;

Paint Mix(const Paint& a, const Paint& b, double share) {
  share = std::clamp(share, 0.0, 1.0);
  const auto mix = [share](double from, double to) { return from + (to - from) * share; };
  return {mix(a.red, b.red), mix(a.green, b.green), mix(a.blue, b.blue), mix(a.alpha, b.alpha)};
}

/// Height of a range of hills at column x, in rows from the top.
double HillLine(double x, double base, double height, double phase) {
  return base - height * (0.6 * std::sin(x / 61 + phase) + 0.4 * std::sin(x / 23 + 2 * phase));
}

Paint Landscape(int x, int y) {
  const double fine = 0.03 * std::sin(x * 1.7) * std::sin(y * 2.3);  // texture on the ground
  Paint color = Mix({0.25, 0.47, 0.80}, {0.98, 0.84, 0.66}, y / 190.0);
  const double sun = std::hypot(x - 352.0, y - 70.0);
  color = Mix({1.0, 0.95, 0.75}, color, (sun - 26) / 90);
  if (sun < 26) color = {1.0, 0.97, 0.85};
  const double far_hill = y - HillLine(x, 150, 16, 0.4);
  color = Mix(color, {0.45, 0.53, 0.62}, far_hill);
  const double near_hill = y - HillLine(x, 186, 20, 2.1);
  const Paint meadow = Mix({0.36, 0.52, 0.24}, {0.17, 0.30, 0.13}, (y - 186) / 90.0);
  return Mix(color, {meadow.red + fine, meadow.green + fine, meadow.blue + fine}, near_hill);
}

/// Spokes that narrow towards the centre: the finest detail that a grid can hold.
void DrawStar(const Canvas& canvas, int cx, int cy, double radius) {
  for (int y = -60; y <= 60; ++y) {
    for (int x = -60; x <= 60; ++x) {
      const double distance = std::hypot(x, y);
      const double wave = std::sin(24 * std::atan2(y, x));
      const double tone = std::clamp(0.5 + wave * distance / 12, 0.0, 1.0);
      canvas.Over(cx + x, cy + y, {tone, tone, tone}, radius - distance + 0.5);
    }
  }
}

/// Rings whose frequency grows with the radius.
void DrawRings(const Canvas& canvas, int left, int top, int size) {
  for (int y = 0; y < size; ++y) {
    for (int x = 0; x < size; ++x) {
      const double r2 = (x - size / 2.0) * (x - size / 2.0) + (y - size / 2.0) * (y - size / 2.0);
      const double tone = 0.5 + 0.5 * std::cos(kPi * r2 / size);
      canvas.Set(left + x, top + y, {tone, tone, tone});
    }
  }
}

void DrawPatches(const Canvas& canvas, int left, int top) {
  constexpr Paint kPatches[] = {{0.85, 0.10, 0.12}, {0.95, 0.55, 0.10}, {0.98, 0.90, 0.20},
                                {0.15, 0.60, 0.25}, {0.10, 0.65, 0.75}, {0.12, 0.25, 0.75},
                                {0.50, 0.15, 0.60}, {0.90, 0.65, 0.55}};
  for (int i = 0; i < 8; ++i) {
    canvas.FillBox(left + 22 * i, top, 20, 20, kPatches[i]);
    const double gray = i / 7.0;
    canvas.FillBox(left + 22 * i, top + 22, 20, 14, {gray, gray, gray});
  }
}

/// Fades the lower right corner out, in alpha alone.
void FadeCorner(const Canvas& canvas) {
  for (int y = 0; y < canvas.height(); ++y) {
    for (int x = 0; x < canvas.width(); ++x) {
      const double distance = std::hypot(canvas.width() - x, canvas.height() - y);
      const double alpha = std::clamp((distance - 20) / 70, 0.0, 1.0);
      uint8_t& stored = canvas.Pixel(x, y)[3];
      stored = static_cast<uint8_t>(stored * alpha + 0.5);
    }
  }
}

}  // namespace

void DrawDemoScene(const Canvas& canvas) {
  for (int y = 0; y < canvas.height(); ++y) {
    for (int x = 0; x < canvas.width(); ++x) canvas.Set(x, y, Landscape(x, y));
  }
  DrawStar(canvas, 82, 236, 56);
  DrawRings(canvas, 160, 196, 80);
  DrawPatches(canvas, 256, 206);
  const Paint dark{0.08, 0.10, 0.14};
  const Paint light{0.98, 0.98, 0.96};
  canvas.Text(20, 18, "Lines & edges", dark, 3);
  canvas.Text(21, 50, "The quick brown fox jumps", light, 2);
  canvas.Text(21, 74, "over the lazy dog, 0123456789.", dark, 1);
  canvas.Text(256, 256, "one dot wide: /// *** ###", light, 1);
  FadeCorner(canvas);
}

}  // namespace qel::cli
