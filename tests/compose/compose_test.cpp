#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>

#include "compose/blend.h"
#include "compose/placement.h"
#include "compose/resize.h"
#include "compose/text.h"
#include "compose/turn.h"
#include "tests/support/rasters.h"

namespace qel::compose {
namespace {

using test::Raster;

/// Noise, also between and round the rows.
Raster Random(int width, int height, int channels, uint64_t seed = 1) {
  reference::Rng rng(seed);
  return Raster(rng, width, height, 8 * channels, 0, {.padding = 7});
}
Pixels Of(const Raster& raster) {
  return {const_cast<uint8_t*>(raster.Row(0)), raster.stride, raster.width, raster.height,
          raster.bit_count / 8};
}
Raster Filled(int width, int height, int channels, Color color) {
  Raster raster = Random(width, height, channels);
  Fill(Of(raster), color);
  return raster;
}

std::vector<int> At(const Raster& raster, int x, int y) {
  const uint8_t* const pixel = Of(raster).At(x, y);
  return {pixel, pixel + raster.bit_count / 8};
}
/// Whether nothing but the rows of an image of `Random` has changed.
bool GuardsKept(Raster raster) {
  const Raster fresh = Random(raster.width, raster.height, raster.bit_count / 8);
  CopyTo(Of(fresh), Of(raster), 0, 0);
  return raster == fresh;
}

// ---- resize: against the sum over all samples, in doubles.

double Kernel(ResizeFilter filter, double x) {
  x = std::abs(x);
  const auto sinc = [](double v) {
    return v < 1e-12 ? 1 : std::sin(std::numbers::pi * v) / (std::numbers::pi * v);
  };
  if (filter == ResizeFilter::kLanczos) return x < 3 ? sinc(x) * sinc(x / 3) : 0;
  if (x < 1) return 7.0 / 6 * x * x * x - 2 * x * x + 8.0 / 9;
  return x < 2 ? -7.0 / 18 * x * x * x + 2 * x * x - 10.0 / 3 * x + 16.0 / 9 : 0;
}

double Weight(ResizeFilter filter, int index, int size, int sample, int source_size) {
  const double scale = static_cast<double>(source_size) / size;
  if (filter == ResizeFilter::kArea) {
    return std::max(0.0, std::min((index + 1) * scale, sample + 1.0) -
                             std::max(index * scale, static_cast<double>(sample)));
  }
  const double stretch = std::max(scale, 1.0);
  return Kernel(filter, (sample + 0.5 - (index + 0.5) * scale) / stretch);
}

double ToLight(double byte) {
  const double v = byte / 255;
  return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}
double FromLight(double v) {
  return 255 * (v <= 0.0031308 ? 12.92 * v : 1.055 * std::pow(v, 1 / 2.4) - 0.055);
}

/// One pixel of the resized picture, before rounding.
std::vector<double> ResizedPixel(const Raster& source, const ResizeRequest& r, int x, int y) {
  const ConstPixels from = Of(source);
  std::vector<double> sums(4, 0);
  double total = 0;
  const int reach_x = 4 * (r.source_width / r.width + 1),
            reach_y = 4 * (r.source_height / r.height + 1);
  for (int sy = -reach_y; sy < r.source_height + reach_y; ++sy) {
    const double down = Weight(r.filter, r.top + y, r.height, sy, r.source_height);
    for (int sx = -reach_x; down != 0 && sx < r.source_width + reach_x; ++sx) {
      const double weight = down * Weight(r.filter, r.left + x, r.width, sx, r.source_width);
      const uint8_t* const pixel =
          from.At(std::clamp(sx, 0, r.source_width - 1), std::clamp(sy, 0, r.source_height - 1));
      const double alpha = from.channels == 4 ? pixel[3] / 255.0 : 1;
      total += weight;
      sums[3] += weight * alpha;
      for (int c = 0; c < std::min(from.channels, 3); ++c) {
        sums[static_cast<size_t>(c)] +=
            weight * alpha * (r.linear_light ? ToLight(pixel[c]) : pixel[c] / 255.0);
      }
    }
  }
  const double alpha = std::clamp(sums[3] / total, 0.0, 1.0);
  std::vector<double> pixel;
  for (int c = 0; c < from.channels; ++c) {
    if (c == 3) {
      pixel.push_back(255 * alpha);
      continue;
    }
    const double v = std::clamp(sums[static_cast<size_t>(c)] / std::max(sums[3], 1e-9), 0.0, 1.0);
    pixel.push_back(r.linear_light ? FromLight(v) : 255 * v);
  }
  return pixel;
}

TEST(Resize, IsTheWeightedSumOfAllSamplesByAnyBands) {
  const Size source_sizes[] = {{23, 17}, {5, 40}, {1, 1}};
  const Size sizes[] = {{7, 6}, {23, 17}, {31, 50}, {1, 2}};
  uint32_t seed = 1;
  for (const ResizeFilter filter :
       {ResizeFilter::kLanczos, ResizeFilter::kMitchell, ResizeFilter::kArea}) {
    for (const int channels : {1, 3, 4}) {
      for (const Size& from : source_sizes) {
        for (const Size& to : sizes) {
          const bool linear = ++seed % 2 == 0;
          SCOPED_TRACE(testing::Message()
                       << "filter " << static_cast<int>(filter) << " channels " << channels << " "
                       << from.width << " x " << from.height << " -> " << to.width << " x "
                       << to.height << (linear ? " linear" : ""));
          // A part of the scaled picture, as covering a size makes it.
          const int left = to.width / 5, top = to.height / 4;
          const ResizeRequest request = {from.width, from.height, to.width,        to.height,
                                         left,       top,         to.width - left, to.height - top,
                                         filter,     linear};
          const Raster source = Random(from.width, from.height, channels, seed);
          Raster dest = Random(request.dest_width, request.dest_height, channels);
          const Resizer resizer(request);
          resizer.Run(Of(source), 0, Of(dest), 0);
          ASSERT_TRUE(GuardsKept(dest));
          for (int y = 0; y < dest.height; ++y) {
            for (int x = 0; x < dest.width; ++x) {
              const std::vector<double> expected = ResizedPixel(source, request, x, y);
              const std::vector<int> got = At(dest, x, y);
              for (size_t c = 0; c < got.size(); ++c) {
                // Colours that hardly show are not held to account, but light is quantised where
                // it is dark.
                const double visible = channels == 4 && c < 3 ? expected[3] / 255 : 1;
                ASSERT_NEAR(got[c] * visible, expected[c] * visible, linear ? 1.2 : 0.51)
                    << "channel " << c << " at " << x << ", " << y;
              }
            }
          }
          // Bands that see nothing but the rows they name.
          for (const int rows : {1, 3}) {
            Raster banded = Random(request.dest_width, request.dest_height, channels);
            for (int y = 0; y < request.dest_height; y += rows) {
              const RowRange band = {y, std::min(y + rows, request.dest_height)};
              const RowRange needed = resizer.SourceRows(band);
              Raster seen = Random(from.width, needed.size(), channels);
              CopyTo(Of(source), Of(seen), 0, -needed.begin);
              Pixels part = Of(banded);
              part.bits = part.Row(y);
              part.height = band.size();
              resizer.Run(Of(seen), needed.begin, part, y);
            }
            ASSERT_EQ(banded.Difference(dest), "") << "bands of " << rows;
          }
        }
      }
    }
  }
}

TEST(Resize, TransparentPixelsLendNoColorAndFlatPicturesStayFlat) {
  // Half of the columns are a green that cannot be seen.
  Raster stripes = Random(40, 30, 4);
  for (int y = 0; y < 30; ++y) {
    for (int x = 0; x < 40; ++x) {
      const uint8_t see_through[] = {0, 255, 0, 0}, red[] = {10, 0, 200, 255};
      std::copy_n(x % 2 == 0 ? red : see_through, 4, Of(stripes).At(x, y));
    }
  }
  Raster half = Random(20, 15, 4);
  Resizer({40, 30, 20, 15, 0, 0, 20, 15, ResizeFilter::kArea}).Run(Of(stripes), 0, Of(half), 0);
  EXPECT_EQ(At(half, 9, 7), (std::vector<int>{10, 0, 200, 128}));

  for (const int channels : {1, 3, 4}) {
    for (const bool linear : {false, true}) {
      const Color color = {7, 7, 7, static_cast<uint8_t>(channels == 4 ? 3 : 255)};
      const Raster flat = Filled(33, 21, channels, color);
      Raster dest = Random(20, 50, channels);
      Resizer({33, 21, 20, 50, 0, 0, 20, 50, ResizeFilter::kLanczos, linear})
          .Run(Of(flat), 0, Of(dest), 0);
      EXPECT_EQ(dest.Difference(Filled(20, 50, channels, color)), "");
    }
  }
}

TEST(Resize, NearestCopiesThePixelThatLiesThere) {
  const Raster source = Random(5, 3, 4, 3);
  Raster dest = Random(10, 2, 4);
  Resizer({5, 3, 10, 2, 0, 0, 10, 2, ResizeFilter::kNearest}).Run(Of(source), 0, Of(dest), 0);
  for (int x = 0; x < 10; ++x) {
    EXPECT_EQ(At(dest, x, 0), At(source, x / 2, 0));
    EXPECT_EQ(At(dest, x, 1), At(source, x / 2, 2));
  }
}

TEST(Placement, FitsAndPlaces) {
  const struct {
    Size source;
    double width, height;
    Fit fit;
    bool enlarges;
    Size scaled, taken;
  } fits[] = {
      {{4000, 3000}, 1600, 1600, Fit::kInside, false, {1600, 1200}, {1600, 1200}},
      {{4000, 3000}, 1600, 0, Fit::kInside, false, {1600, 1200}, {1600, 1200}},
      {{4000, 3000}, 0, 300, Fit::kExact, false, {400, 300}, {400, 300}},
      {{4000, 3000}, 500, 500, Fit::kCover, false, {667, 500}, {500, 500}},
      {{4000, 3000}, 500, 500, Fit::kExact, false, {500, 500}, {500, 500}},
      {{400, 300}, 1600, 1600, Fit::kInside, false, {400, 300}, {400, 300}},
      {{400, 300}, 1600, 1600, Fit::kInside, true, {1600, 1200}, {1600, 1200}},
      {{400, 300}, 390, 310, Fit::kExact, false, {400, 300}, {400, 300}},
      {{400, 300}, 500, 200, Fit::kCover, false, {400, 300}, {400, 300}},
      {{1000, 1}, 10, 10, Fit::kInside, false, {10, 1}, {10, 1}},
  };
  for (const auto& f : fits) {
    const FittedSize got = FitSize(f.source, f.width, f.height, f.fit, f.enlarges);
    EXPECT_EQ(got.scaled, f.scaled) << f.width << " x " << f.height;
    EXPECT_EQ(got.taken, f.taken) << f.width << " x " << f.height;
  }
  EXPECT_EQ(Place(Gravity::kSouthEast, {100, 50}, {10, 20}, 3, 4), (Box{87, 26, 10, 20}));
  EXPECT_EQ(Place(Gravity::kNorthWest, {100, 50}, {10, 20}, 3, 4), (Box{3, 4, 10, 20}));
  EXPECT_EQ(Place(Gravity::kCenter, {101, 50}, {10, 20}, 0, 1), (Box{45, 16, 10, 20}));
  EXPECT_EQ(Place(Gravity::kWest, {10, 10}, {13, 15}, 0, 0), (Box{0, -2, 13, 15}));
  EXPECT_EQ(LargestInside({400, 300}, 1), (Size{300, 300}));
  EXPECT_EQ(LargestInside({400, 300}, 16 / 9.0), (Size{400, 225}));
  EXPECT_EQ(SmallestRound({400, 300}, 1), (Size{400, 400}));
  EXPECT_EQ(SmallestRound({400, 300}, 16 / 9.0), (Size{533, 300}));
}

// ---- turn

TEST(Turn, MovesPixelsByQuartersCounterClockwise) {
  const Raster source = Random(5, 3, 3, 4);
  const Size upright = {5, 3}, lying = {3, 5};
  for (const double turns : {-4.0, 0.0, 4.0}) {
    for (int quarters = 0; quarters < 4; ++quarters) {
      const double angle = 90 * (quarters + turns);
      const Size size = TurnedSize(upright, angle);
      ASSERT_EQ(size, quarters % 2 == 0 ? upright : lying);
      Raster dest = Random(size.width, size.height, 3);
      Turn(Of(source), angle, {}, Of(dest), 0);
      for (int y = 0; y < 3; ++y) {
        for (int x = 0; x < 5; ++x) {
          // What was on the right is on top after a quarter.
          const int to_x[] = {x, y, 4 - x, 2 - y}, to_y[] = {y, 4 - x, 2 - y, x};
          EXPECT_EQ(At(dest, to_x[quarters], to_y[quarters]), At(source, x, y)) << angle;
        }
      }
    }
  }
}

TEST(Turn, LosesNothingAtOtherAngles) {
  const Color ground = {1, 2, 3, 0};
  for (const double angle : {0.3, 17.5, 45.0, 89.9, 133.0, -211.25}) {
    SCOPED_TRACE(angle);
    // Corners in colours of their own.
    Raster source = Filled(60, 40, 4, {100, 100, 100});
    const Color corners[] = {{250, 0, 0}, {0, 250, 0}, {0, 0, 250}, {250, 250, 0}};
    for (int i = 0; i < 4; ++i) {
      Fill({Of(source).At(i % 2 * 50, i / 2 * 30), source.stride, 10, 10, 4}, corners[i]);
    }
    const Size size = TurnedSize({60, 40}, angle);
    Raster dest = Random(size.width, size.height, 4);
    Turn(Of(source), angle, ground, Of(dest), 0);
    EXPECT_TRUE(GuardsKept(dest));
    // All of the picture is there: its area, and its corners at the places that trigonometry says.
    double area = 0;
    for (int i = 0; i < size.width * size.height; ++i) {
      area += At(dest, i % size.width, i / size.width)[3] / 255.0;
    }
    EXPECT_NEAR(area, 60 * 40, 12);
    const double radians = angle * std::numbers::pi / 180;
    for (int i = 0; i < 4; ++i) {
      const double dx = i % 2 == 0 ? -25 : 25, dy = i / 2 == 0 ? -15 : 15;
      const double x = size.width / 2.0 + dx * std::cos(radians) + dy * std::sin(radians);
      const double y = size.height / 2.0 - dx * std::sin(radians) + dy * std::cos(radians);
      const Color c = corners[i];
      EXPECT_EQ(At(dest, static_cast<int>(x), static_cast<int>(y)),
                (std::vector<int>{c.blue, c.green, c.red, 255}));
    }
    // A rim of one flat colour keeps it up to the edge: no ringing, no dark line.
    const Raster flat = Filled(60, 40, 4, {9, 80, 170});
    Turn(Of(flat), angle, ground, Of(dest), 0);
    for (int y = 0; y < size.height; ++y) {
      for (int x = 0; x < size.width; ++x) {
        const std::vector<int> pixel = At(dest, x, y);
        if (pixel[3] < 40) continue;
        EXPECT_NEAR(pixel[1], 80, 3) << x << ", " << y;
        EXPECT_NEAR(pixel[2], 170, 3) << x << ", " << y;
      }
    }
    // Rows may be made in any bands.
    Raster banded = Random(size.width, size.height, 4);
    for (int y = 0; y < size.height; ++y) {
      Turn(Of(flat), angle, ground, {banded.Row(y), banded.stride, size.width, 1, 4}, y);
    }
    EXPECT_EQ(banded.Difference(dest), "");
  }
}

TEST(Turn, ThereAndBackIsNearlyTheSame) {
  Raster source = Random(63, 63, 1);
  for (int y = 0; y < 63; ++y) {
    for (int x = 0; x < 63; ++x) {
      *Of(source).At(x, y) =
          static_cast<uint8_t>(127 + 100 * std::sin(x / 3.0) * std::cos(y / 4.0));
    }
  }
  Size size = TurnedSize({63, 63}, 30);
  Raster turned = Random(size.width, size.height, 1);
  Turn(Of(source), 30, {}, Of(turned), 0);
  const Size back_size = TurnedSize(size, -30);
  Raster back = Random(back_size.width, back_size.height, 1);
  Turn(Of(turned), -30, {}, Of(back), 0);
  const int left = (back_size.width - 63) / 2, top = (back_size.height - 63) / 2;
  for (int y = 8; y < 55; ++y) {
    for (int x = 8; x < 55; ++x) {
      ASSERT_NEAR(At(back, left + x, top + y)[0], At(source, x, y)[0], 2) << x << ", " << y;
    }
  }
}

// ---- layers

TEST(Blend, LaysLayersByTheirAlpha) {
  for (const int below : {1, 3, 4}) {
    for (const int above : {1, 3, 4}) {
      for (const double opacity : {1.0, 0.4}) {
        const Raster over = Random(9, 7, above, 5);
        const Raster base = Random(12, 8, below, 11);
        Raster result = Random(12, 8, below);
        CopyTo(Of(base), Of(result), 0, 0);
        BlendOver(Of(over), opacity, Of(result), 5, -2);
        EXPECT_TRUE(GuardsKept(result));
        for (int y = 0; y < 8; ++y) {
          for (int x = 0; x < 12; ++x) {
            std::vector<int> old = At(base, x, y), now = At(result, x, y);
            if (x < 5 || y >= 5) {
              EXPECT_EQ(now, old);
              continue;
            }
            std::vector<int> top = At(over, x - 5, y + 2);
            const double share = std::lround((above == 4 ? top[3] : 255) * opacity) / 255.0;
            const double under = below == 4 ? old[3] / 255.0 * (1 - share) : 1 - share;
            const double sum = share + under;
            for (size_t c = 0; c < static_cast<size_t>(std::min(below, 3)); ++c) {
              const double color = below == 1 && above != 1
                                       ? 0.114 * top[0] + 0.587 * top[1] + 0.299 * top[2]
                                       : top[above == 1 ? 0 : c];
              if (sum == 0) continue;
              EXPECT_NEAR(now[c], (color * share + old[c] * under) / sum, 1.01);
            }
            if (below == 4) {
              EXPECT_NEAR(now[3], 255 * sum, 0.51);
            }
          }
        }
      }
    }
  }
}

TEST(Blend, TilesCoverEverythingOnceAndFlattenLeavesNothingTransparent) {
  const Raster tile = Random(4, 3, 3, 11);
  Raster dest = Filled(11, 10, 3, {});
  BlendTiles(Of(tile), 1, Of(dest), 2, -7);
  for (int y = 0; y < 10; ++y) {
    for (int x = 0; x < 11; ++x) EXPECT_EQ(At(dest, x, y), At(tile, (x + 2) % 4, (y + 7) % 3));
  }

  const Raster source = Random(6, 5, 4, 3);
  Raster flat = Random(6, 5, 3);
  Flatten(Of(source), {255, 255, 255}, Of(flat));
  Raster gray = Random(6, 5, 1);
  ToGray(Of(flat), Of(gray));
  for (int y = 0; y < 5; ++y) {
    for (int x = 0; x < 6; ++x) {
      const std::vector<int> pixel = At(source, x, y), on_white = At(flat, x, y);
      for (size_t c = 0; c < 3; ++c) {
        EXPECT_NEAR(on_white[c], 255 - (255 - pixel[c]) * pixel[3] / 255.0, 0.51);
      }
      EXPECT_NEAR(At(gray, x, y)[0],
                  0.114 * on_white[0] + 0.587 * on_white[1] + 0.299 * on_white[2], 0.51);
    }
  }
  EXPECT_TRUE(HasTransparency(Of(source)));
  EXPECT_FALSE(HasTransparency(Of(Filled(6, 5, 4, {}))));
}

// ---- text

TEST(Text, DrawsLettersInTheirOrderAndRefusesWhatItCannot) {
  if (!HasText()) GTEST_SKIP() << "built without fonts";
  const TextMask one = DrawText("l", "sans", 40), two = DrawText("l.", "sans", 40);
  EXPECT_GT(two.width, one.width);
  EXPECT_EQ(two.height, one.height) << "lines of one size are equally high";
  // The dot's ink stands on the baseline, right of the stroke, which is high.
  const auto ink_rows = [](const TextMask& mask, int left, int right) {
    int first = mask.height, last = -1;
    for (int y = 0; y < mask.height; ++y) {
      for (int x = left; x < right; ++x) {
        if (mask.cover[static_cast<size_t>(y * mask.width + x)] < 128) continue;
        first = std::min(first, y);
        last = y;
      }
    }
    return std::pair(first, last);
  };
  const auto [stroke_top, stroke_bottom] = ink_rows(two, 0, one.width);
  const auto [dot_top, dot_bottom] = ink_rows(two, one.width, two.width);
  EXPECT_GT(stroke_bottom - stroke_top, 20);
  EXPECT_LT(dot_bottom - dot_top, 10);
  EXPECT_NEAR(stroke_bottom, dot_bottom, 1);

  const std::vector<uint8_t> red = PaintText(one, {0, 0, 255, 128});
  EXPECT_EQ(red.size(), one.cover.size() * 4);
  EXPECT_EQ(red[2], 255);
  EXPECT_EQ(*std::max_element(one.cover.begin(), one.cover.end()), 255);
  for (const char* const text : {"two\nlines", "\xFF\xFE", " "}) {
    EXPECT_THROW(DrawText(text, "sans", 20), TextError) << text;
  }
}

}  // namespace
}  // namespace qel::compose
