// Separable resampling with precomputed weights (as surveyed by Turkowski, "Filters for common
// resampling tasks", 1990). Cost per pixel of the result: about 6 multiplications for every source
// pixel that it stands for, and channel, down the columns, and a share of that along the rows.
#include "compose/resize.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>

#include "compose/vectors.h"

namespace qel::compose {
namespace {

/// What alpha 255 and a full channel become before they are weighted: products of two bytes fit.
constexpr int kFull = 255 * 255;
/// Floats behind a row that whole vectors may read.
constexpr size_t kSlack = 8;

double Sinc(double x) {
  return x == 0 ? 1 : std::sin(std::numbers::pi * x) / (std::numbers::pi * x);
}

double Lanczos(double x) { return std::abs(x) < 3 ? Sinc(x) * Sinc(x / 3) : 0; }

double Mitchell(double x) {
  x = std::abs(x);
  if (x < 1) return (21 * x * x * x - 36 * x * x + 16) / 18;
  return x < 2 ? (-7 * x * x * x + 36 * x * x - 60 * x + 32) / 18 : 0;
}

/// Share of sample `index` (from index to index + 1) in a window of `width` round `center`.
double Overlap(double center, double width, int index) {
  const double begin = std::max(center - width / 2, static_cast<double>(index));
  const double end = std::min(center + width / 2, index + 1.0);
  return std::max(end - begin, 0.0);
}

/// Weights of the axis samples [left, left + count) of `size`, which stand for `source_size`.
ResizeAxis MakeAxis(int source_size, int size, int left, int count, ResizeFilter filter) {
  const double scale = static_cast<double>(source_size) / size;
  // Kernels reach over whole samples when they enlarge, area kernels over what a pixel covers.
  const double stretch = filter == ResizeFilter::kArea ? scale : std::max(scale, 1.0);
  const double radius = filter == ResizeFilter::kLanczos    ? 3 * stretch
                        : filter == ResizeFilter::kMitchell ? 2 * stretch
                                                            : stretch / 2;
  ResizeAxis axis;
  axis.taps = std::min(source_size, static_cast<int>(std::ceil(2 * radius)) + 1);
  axis.padded_taps = (axis.taps + 3) / 4 * 4;
  axis.first.resize(static_cast<size_t>(count));
  axis.weights.assign(static_cast<size_t>(count) * static_cast<size_t>(axis.padded_taps), 0);
  std::vector<double> sums(static_cast<size_t>(axis.taps));
  for (int i = 0; i < count; ++i) {
    const double center = (left + i + 0.5) * scale;
    const auto begin = static_cast<int>(std::floor(center - radius));
    const auto end = static_cast<int>(std::ceil(center + radius));
    const int first = std::clamp(begin, 0, source_size - axis.taps);
    std::ranges::fill(sums, 0);
    double total = 0;
    for (int sample = begin; sample < end; ++sample) {
      const double distance = (sample + 0.5 - center) / stretch;
      const double weight = filter == ResizeFilter::kLanczos    ? Lanczos(distance)
                            : filter == ResizeFilter::kMitchell ? Mitchell(distance)
                                                                : Overlap(center, scale, sample);
      // Beyond the edges the outermost sample repeats.
      const int inside =
          std::clamp(std::clamp(sample, 0, source_size - 1) - first, 0, axis.taps - 1);
      sums[static_cast<size_t>(inside)] += weight;
      total += weight;
    }
    axis.first[static_cast<size_t>(i)] = first;
    float* const weights = axis.weights.data() + static_cast<ptrdiff_t>(i) * axis.padded_taps;
    for (int tap = 0; tap < axis.taps; ++tap) {
      weights[tap] = static_cast<float>(sums[static_cast<size_t>(tap)] / total);
    }
  }
  return axis;
}

/// Between sRGB bytes and light, which runs from 0 to kFull.
struct LightTables {
  std::array<float, 256> to_light;
  std::array<uint8_t, kFull + 1> to_byte;

  LightTables() {
    const auto light = [](double byte) {
      const double value = byte / 255;
      return kFull * (value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4));
    };
    size_t begin = 0;
    for (size_t byte = 0; byte < 256; ++byte) {
      to_light[byte] = static_cast<float>(light(static_cast<double>(byte)));
      // Up to the light of the middle between this byte and the next.
      const double middle = light(static_cast<double>(byte) + 0.5);
      const size_t end = byte == 255 ? kFull + 1 : static_cast<size_t>(middle) + 1;
      for (; begin < end; ++begin) to_byte[begin] = static_cast<uint8_t>(byte);
    }
  }
};

const LightTables& Light() {
  static const LightTables tables;
  return tables;
}

/// A row as it is weighted: light instead of bytes where asked for, colours times their alpha, and
/// alpha, all from 0 to kFull.
void PrepareRow(const uint8_t* from, int width, int channels, bool linear, float* to) {
  const std::array<float, 256>& light = Light().to_light;
  if (channels != 4) {
    for (int i = 0; i < width * channels; ++i) to[i] = light[from[i]];
    return;
  }
  for (int x = 0; x < width; ++x, from += 4, to += 4) {
    const auto alpha = static_cast<float>(from[3]);
    for (int c = 0; c < 3; ++c) {
      to[c] = linear ? light[from[c]] * (alpha / 255) : static_cast<float>(from[c]) * alpha;
    }
    to[3] = alpha * 255;
  }
}

/// How many rows are weighted in one pass over the sums.
constexpr int kRowsAtOnce = 4;

template <typename Sample>
struct WeightedRows {
  const Sample* rows[kRowsAtOnce];
  float weights[kRowsAtOnce];
};

/// sums[i] = (first ? 0 : sums[i]) + the weighted rows at i, in their order.
template <typename Sample>
[[gnu::always_inline]] inline void AddRows(const WeightedRows<Sample>& group, bool first,
                                           ptrdiff_t count, float* __restrict sums) {
  const Sample* __restrict const a = group.rows[0];
  const Sample* __restrict const b = group.rows[1];
  const Sample* __restrict const c = group.rows[2];
  const Sample* __restrict const d = group.rows[3];
  const float wa = group.weights[0], wb = group.weights[1];
  const float wc = group.weights[2], wd = group.weights[3];
  const auto add = [&](float sum, ptrdiff_t i) {
    sum += wa * static_cast<float>(a[i]);
    sum += wb * static_cast<float>(b[i]);
    sum += wc * static_cast<float>(c[i]);
    return sum + wd * static_cast<float>(d[i]);
  };
  if (first) {
    for (ptrdiff_t i = 0; i < count; ++i) sums[i] = add(0, i);
  } else {
    for (ptrdiff_t i = 0; i < count; ++i) sums[i] = add(sums[i], i);
  }
}

/// One pixel of the result before rounding, of rows with 3 or 4 channels.
[[gnu::always_inline]] inline F32x4 SumOfPixels(const float* pixels, int channels, int taps,
                                                const float* weights) {
  // Two sums, of even and of odd samples: additions need not wait for each other.
  F32x4 even = Broadcast(0), odd = Broadcast(0);
  for (int tap = 0; tap < taps; tap += 2, pixels += 2 * channels) {
    even += Broadcast(weights[tap]) * LoadFloats(pixels);
    odd += Broadcast(weights[tap + 1]) * LoadFloats(pixels + channels);
  }
  return even + odd;
}

[[gnu::always_inline]] inline float SumOfGrays(const float* pixels, int taps,
                                               const float* weights) {
  F32x4 sums = Broadcast(0);
  for (int tap = 0; tap < taps; tap += 4) {
    sums += LoadFloats(weights + tap) * LoadFloats(pixels + tap);
  }
  return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

uint8_t LightToByte(float light) {
  return Light()
      .to_byte[static_cast<size_t>(std::clamp(light, 0.0f, static_cast<float>(kFull)) + 0.5f)];
}

/// Rounds a pixel of colours times alpha, both 0 to kFull.
void StoreWithAlpha(F32x4 value, bool linear, uint8_t* to) {
  const float alpha = value[3];
  to[3] = ToByte(alpha / 255);
  if (to[3] == 0) {
    to[0] = to[1] = to[2] = 0;
    return;
  }
  const float scale = linear ? static_cast<float>(kFull) / alpha : 255 / alpha;
  for (int c = 0; c < 3; ++c) {
    to[c] = linear ? LightToByte(value[c] * scale) : ToByte(value[c] * scale);
  }
}

/// One row of the result from the weighted sums of source rows.
template <int channels>
[[gnu::always_inline]] inline void SumAlongRow(const ResizeAxis& axis, const float* sums,
                                               bool linear, const Pixels& dest, int y) {
  uint8_t* to = dest.Row(y);
  for (int x = 0; x < dest.width; ++x, to += channels) {
    const float* const pixels =
        sums + static_cast<ptrdiff_t>(axis.first[static_cast<size_t>(x)]) * channels;
    const float* const weights = axis.Weights(x);
    if constexpr (channels == 1) {
      const float gray = SumOfGrays(pixels, axis.taps, weights);
      to[0] = linear ? LightToByte(gray) : ToByte(gray);
    } else {
      const F32x4 value = SumOfPixels(pixels, channels, axis.taps, weights);
      if constexpr (channels == 4) {
        StoreWithAlpha(value, linear, to);
      } else {
        for (int c = 0; c < 3; ++c) to[c] = linear ? LightToByte(value[c]) : ToByte(value[c]);
      }
    }
  }
}

/// The loops for one kind of processor; all give the same bytes.
struct Loops {
  void (*add_bytes)(const WeightedRows<uint8_t>&, bool first, ptrdiff_t count, float* sums);
  void (*add_floats)(const WeightedRows<float>&, bool first, ptrdiff_t count, float* sums);
  void (*along_row)(const ResizeAxis&, const float* sums, bool linear, const Pixels&, int y);
};

[[gnu::always_inline]] inline void AlongRow(const ResizeAxis& axis, const float* sums, bool linear,
                                            const Pixels& dest, int y) {
  if (dest.channels == 1) SumAlongRow<1>(axis, sums, linear, dest, y);
  if (dest.channels == 3) SumAlongRow<3>(axis, sums, linear, dest, y);
  if (dest.channels == 4) SumAlongRow<4>(axis, sums, linear, dest, y);
}

constexpr Loops kPlainLoops = {
    [](const WeightedRows<uint8_t>& group, bool first, ptrdiff_t count, float* sums) {
      AddRows(group, first, count, sums);
    },
    [](const WeightedRows<float>& group, bool first, ptrdiff_t count, float* sums) {
      AddRows(group, first, count, sums);
    },
    [](const ResizeAxis& axis, const float* sums, bool linear, const Pixels& dest, int y) {
      AlongRow(axis, sums, linear, dest, y);
    }};

#ifdef __x86_64__
[[gnu::target("avx2")]] void AddBytesAvx2(const WeightedRows<uint8_t>& group, bool first,
                                          ptrdiff_t count, float* sums) {
  AddRows(group, first, count, sums);
}
[[gnu::target("avx2")]] void AddFloatsAvx2(const WeightedRows<float>& group, bool first,
                                           ptrdiff_t count, float* sums) {
  AddRows(group, first, count, sums);
}
[[gnu::target("avx2")]] void AlongRowAvx2(const ResizeAxis& axis, const float* sums, bool linear,
                                          const Pixels& dest, int y) {
  AlongRow(axis, sums, linear, dest, y);
}

const Loops& ChooseLoops() {
  static constexpr Loops kAvx2Loops = {&AddBytesAvx2, &AddFloatsAvx2, &AlongRowAvx2};
  return __builtin_cpu_supports("avx2") ? kAvx2Loops : kPlainLoops;
}
#else
const Loops& ChooseLoops() { return kPlainLoops; }
#endif

/// Adds up `taps` rows, which `row(tap)` names.
template <typename Sample, typename Row, typename Add>
void SumRows(int taps, const float* weights, ptrdiff_t count, const Row& row, const Add& add,
             float* sums) {
  for (int tap = 0; tap < taps; tap += kRowsAtOnce) {
    WeightedRows<Sample> group;
    for (int i = 0; i < kRowsAtOnce; ++i) {
      // Weights behind the last are 0.
      group.rows[i] = row(std::min(tap + i, taps - 1));
      group.weights[i] = weights[tap + i];
    }
    add(group, tap == 0, count, sums);
  }
}

}  // namespace

Resizer::Resizer(const ResizeRequest& request)
    : request_(request),
      columns_(MakeAxis(request.source_width, request.width, request.left, request.dest_width,
                        request.filter)),
      rows_(MakeAxis(request.source_height, request.height, request.top, request.dest_height,
                     request.filter)) {}

RowRange Resizer::SourceRows(RowRange dest) const {
  return {rows_.first[static_cast<size_t>(dest.begin)],
          rows_.first[static_cast<size_t>(dest.end - 1)] + rows_.taps};
}

void Resizer::CopyNearest(const ConstPixels& source, int source_first, const Pixels& dest,
                          int dest_first) const {
  const auto nearest = [](int index, int source_size, int size) {
    return static_cast<int>((2 * int64_t{index} + 1) * source_size / (2 * int64_t{size}));
  };
  for (int y = 0; y < dest.height; ++y) {
    const int source_y =
        nearest(request_.top + dest_first + y, request_.source_height, request_.height) -
        source_first;
    for (int x = 0; x < dest.width; ++x) {
      const int source_x = nearest(request_.left + x, request_.source_width, request_.width);
      std::memcpy(dest.At(x, y), source.At(source_x, source_y), static_cast<size_t>(dest.channels));
    }
  }
}

void Resizer::Run(const ConstPixels& source, int source_first, const Pixels& dest,
                  int dest_first) const {
  if (request_.filter == ResizeFilter::kNearest) {
    CopyNearest(source, source_first, dest, dest_first);
    return;
  }
  const Loops& loops = ChooseLoops();
  const bool prepares = source.channels == 4 || request_.linear_light;
  const ptrdiff_t count = ptrdiff_t{source.width} * source.channels;
  std::vector<float> sums(static_cast<size_t>(count) + kSlack);
  // Prepared rows by their number modulo the taps: those of one row of the result at a time.
  std::vector<float> prepared(prepares ? static_cast<size_t>(count * rows_.taps) : 0);
  const auto slot = [&](int row) { return prepared.data() + count * (row % rows_.taps); };
  int next_to_prepare = source_first;
  for (int y = 0; y < dest.height; ++y) {
    const int first = rows_.first[static_cast<size_t>(dest_first + y)];
    const float* const weights = rows_.Weights(dest_first + y);
    if (prepares) {
      next_to_prepare = std::max(next_to_prepare, first);
      for (; next_to_prepare < first + rows_.taps; ++next_to_prepare) {
        PrepareRow(source.Row(next_to_prepare - source_first), source.width, source.channels,
                   request_.linear_light, slot(next_to_prepare));
      }
      SumRows<float>(
          rows_.taps, weights, count, [&](int tap) { return slot(first + tap); }, loops.add_floats,
          sums.data());
    } else {
      SumRows<uint8_t>(
          rows_.taps, weights, count,
          [&](int tap) { return source.Row(first + tap - source_first); }, loops.add_bytes,
          sums.data());
    }
    loops.along_row(columns_, sums.data(), request_.linear_light, dest, y);
  }
}

}  // namespace qel::compose
