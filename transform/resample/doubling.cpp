#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "image/pixel_access.h"
#include "simd/prefetch.h"
#include "transform/resample/doubling_kernels.h"
#include "transform/resample/resample_methods.h"
#include "transform/tap_tolerance.h"

// Sums of weighted taps are defined by the order of their additions in single precision. Sums along
// rows, shared by all rows that they reach, and then down columns differ from these by their
// roundings alone. What that may amount to is small, so that few sums lie so near to a whole number
// that it matters, and those are summed once more in their order.

namespace qel {
namespace {

/// Whether sums are the same in any order. Of multiples of 1/128, products and sums are multiples
/// of 2^-14. Below 2^10 they have no more bits than single precision keeps.
template <size_t kTaps>
bool AreSumsExact(const float (&weights)[kTaps]) {
  const double size = LineOf<kTaps>(weights, 1).sizes;
  return 255 * size * size < 1024 &&
         std::all_of(std::begin(weights), std::end(weights),
                     [](float weight) { return weight * 128 == std::floor(weight * 128); });
}

/// The greater quantities of two lines.
WeightLine Greater(const WeightLine& a, const WeightLine& b) {
  return {.sum = std::max(a.sum, b.sum),
          .sizes = std::max(a.sizes, b.sizes),
          .running_sum = std::max(a.running_sum, b.running_sum),
          .running_sizes = std::max(a.running_sizes, b.running_sizes)};
}

/// The tolerance where columns and rows have these weights or the same in reverse, and are summed
/// from both ends by turns.
template <size_t kTaps>
UnitTolerance UnitToleranceOf(const float (&weights)[kTaps]) {
  float first_first[kTaps], last_first[kTaps];
  for (size_t i = 0; i < kTaps; ++i) {
    const size_t k = i % 2 == 0 ? i / 2 : kTaps - 1 - i / 2;
    first_first[i] = weights[k];
    last_first[i] = weights[kTaps - 1 - k];
  }
  const WeightLine line =
      Greater(LineOf<kTaps>(weights, 1), LineOf<kTaps>(std::end(weights) - 1, -1));
  const WeightLine summed = Greater(LineOf<kTaps>(first_first, 1), LineOf<kTaps>(last_first, 1));
  const Tolerance tolerance = ToleranceOf<kTaps>(line, line, 0, summed, summed);
  constexpr double kParts = double{kUnitsOfOne} * UnitTolerance::kPartsOfUnit;
  return {static_cast<int>(std::ceil(kParts * (tolerance.of_reach + tolerance.of_middle) / 2)),
          static_cast<int>(std::floor(kParts * (tolerance.of_reach - tolerance.of_middle) / 2))};
}

/// Doubles an image in tiles of a few columns and a band of rows.
template <size_t kTaps>
class Doubler {
 public:
  Doubler(const TapDoublingKernels<kTaps>& kernels, const ResamplePlan& plan,
          const ImageView& source, const ImageView& dest)
      : kernels_(kernels),
        source_(source),
        dest_(dest),
        step_(plan.pixel_bytes),
        // Those of one pixel more, which odd columns need, are whole vectors.
        columns_(std::min(static_cast<int64_t>(Tile::kBytes) / step_ - 1, source.Columns())),
        read_bytes_(RoundUp(RoundUp((columns_ + 1) * step_) + int64_t{kTaps} * step_)) {
    const uint32_t outside = OutsideColor(source);
    uint8_t channels[] = {BlueOf(outside), GreenOf(outside), RedOf(outside), AlphaOf(outside)};
    if (step_ == 1) std::fill(std::begin(channels), std::end(channels), channels[0]);
    // Four bytes at a time, of which the next pixel of three stores over the last one.
    const int64_t advance = step_ == 3 ? 3 : 4;
    for (int64_t i = 0; i < read_bytes_; i += advance) std::memcpy(outside_ + i, channels, 4);
    tile_.step = static_cast<size_t>(step_);
    std::copy_n(plan.weights, kTaps, tile_.weights);
    tile_.count = static_cast<size_t>(columns_ * step_);
    // The first tile is the widest.
    kernels_.widen(tile_, tile_.outside_values, outside_);
    kernels_.across(tile_, tile_.outside_sums, tile_.outside_values);
    tile_.is_exact = AreSumsExact(tile_.weights);
    if (!tile_.is_exact) DescribeDoubts();
  }

  void Run() {
    for (int64_t band = 0; band < source_.Rows(); band += kBandRows) {
      const int64_t end = std::min(source_.Rows(), band + kBandRows);
      for (int64_t x = 0; x < source_.Columns(); x += columns_) {
        RunTile(x, std::min(columns_, source_.Columns() - x), band, end);
      }
    }
  }

 private:
  using Tile = DoublingTile<kTaps>;
  static constexpr int64_t kHalf = kTaps / 2;
  static constexpr auto kRows = static_cast<int64_t>(Tile::kRows);
  static constexpr int64_t kLine = Tile::kValues + Tile::kVector;
  /// Source rows that tiles go down: each lies in a page of its own, as do the two rows made of it,
  /// and the processor remembers where some two thousand pages are.
  static constexpr int64_t kBandRows = 303;
  /// Source rows of a tile that the memory brings in advance.
  static constexpr int64_t kRowsAhead = 8;

  /// To whole vectors of every level.
  static constexpr int64_t RoundUp(int64_t bytes) {
    constexpr auto kVector = static_cast<int64_t>(Tile::kVector);
    return (bytes + kVector - 1) / kVector * kVector;
  }

  /// Makes what tells which sums are in doubt, and what these are summed by.
  void DescribeDoubts() {
    for (size_t even_row = 0; even_row < 2; ++even_row) {
      for (size_t j = 0; j < kTaps; ++j) {
        const float row_weight = tile_.weights[even_row == 1 ? j : kTaps - 1 - j];
        float(&even)[kTaps] = tile_.products[even_row][0][j];
        float(&odd)[kTaps] = tile_.products[even_row][1][j];
        for (size_t k = 0; k < kTaps; ++k) {
          even[k] = tile_.weights[k] * row_weight;
          odd[k] = tile_.weights[kTaps - 1 - k] * row_weight;
        }
      }
    }
    tile_.tolerance = UnitToleranceOf(tile_.weights);
    const int units = tile_.tolerance.Units(0, UINT8_MAX);
    const int64_t summed = RoundUp(columns_ * step_);
    std::fill_n(tile_.tolerances, summed, static_cast<float>(units));
    std::fill_n(tile_.doubtful, summed, static_cast<uint16_t>(2 * units));
  }

  /// The columns from `first` on of the rows from `begin` to `end`.
  void RunTile(int64_t first, int64_t columns, int64_t begin, int64_t end) {
    tile_.count = static_cast<size_t>(columns * step_);
    // Row 0 of the tile.
    const int64_t top = begin - kHalf;
    // What is beside the source stays the same from row to row.
    std::copy_n(outside_, read_bytes_, line_);
    for (size_t row = 0; row < kTaps - 1; ++row) {
      AddRow(row, top, first, columns);
      SumAcross(row);
    }
    // The taps of the odd row 2 y + 1 and the even one after it begin at row y + 1 - kHalf.
    for (int64_t y = begin - 1; y < end; y += kRows) {
      const auto row = static_cast<size_t>(y + 1 - begin);
      const auto pairs = static_cast<size_t>(std::min<int64_t>(kRows, end - y));
      for (size_t i = 0; i < pairs; ++i) AddRow(row + kTaps - 1 + i, top, first, columns);
      kernels_.tolerate(tile_);
      for (size_t i = 0; i < pairs; ++i) {
        SumAcross(row + kTaps - 1 + i);
        const uint8_t* next[2];
        for (int64_t k = 0; k < 2; ++k) {
          const int64_t later = 2 * (y + static_cast<int64_t>(i) + kRowsAhead) + 1 + k;
          next[k] = dest_.Row(std::min(later, dest_.Rows() - 1)) + 2 * first * step_;
        }
        kernels_.down(tile_, row + i, i, next);
      }
      kernels_.settle(tile_);
      for (size_t i = y < begin ? 1 : 0; i < 2 * pairs; ++i) {
        const int64_t to = 2 * y + 1 + static_cast<int64_t>(i);
        if (to < 2 * end) StoreRow(to, tile_.bytes[i / 2][i % 2], first);
      }
    }
  }

  /// Makes values of row `row` of the tile, of which some or all may be outside.
  void AddRow(size_t row, int64_t top, int64_t first, int64_t columns) {
    const int64_t y = top + static_cast<int64_t>(row);
    if (y < 0 || y >= source_.Rows()) {
      tile_.values_of[row % Tile::kKept] = &tile_.outside_values;
      if (Tile::kHasRanges) kernels_.range(tile_, row, outside_);
      return;
    }
    const int64_t from = first - kHalf;
    const int64_t begin = std::max<int64_t>(from, 0);
    const int64_t end = std::min(first + columns + kHalf, source_.Columns());
    const uint8_t* const at = source_.Row(y) + begin * step_;
    const int64_t bytes = (end - begin) * step_;
    if (y + kRowsAhead < source_.Rows()) PrefetchRun(at + kRowsAhead * source_.stride, bytes);
    std::memcpy(line_ + (begin - from) * step_, at, static_cast<size_t>(bytes));
    auto& values = tile_.values[row % Tile::kKept];
    tile_.values_of[row % Tile::kKept] = &values;
    kernels_.widen(tile_, values, line_);
    if (Tile::kHasRanges) kernels_.range(tile_, row, line_);
  }

  /// Makes the sums along row `row` of the tile.
  void SumAcross(size_t row) {
    const auto* const values = tile_.values_of[row % Tile::kKept];
    const bool is_outside = values == &tile_.outside_values;
    auto& sums = is_outside ? tile_.outside_sums : tile_.sums[row % kTaps];
    tile_.sums_of[row % kTaps] = &sums;
    if (!is_outside) kernels_.across(tile_, sums, *values);
  }

  /// Stores destination row `y` of a tile.
  void StoreRow(int64_t y, const uint8_t (&bytes)[2][Tile::kBytes], int64_t first) {
    uint8_t* const to = dest_.Row(y) + 2 * first * step_;
    ActiveDoublingKernels().merge(to, bytes[0], bytes[1], tile_.step, tile_.count);
    if (kTaps == 4 && step_ == 4) HideAlpha(y, to, 2 * first);
  }

  /// Of samples of 4 by 4 pixels, those with a tap outside have no alpha.
  void HideAlpha(int64_t y, uint8_t* pixels, int64_t first) const {
    // The first tap of column or row i is (i + 1) / 2 - 2.
    constexpr int64_t kBefore = 3;
    const auto behind = [](int64_t size) { return 2 * size - kBefore; };
    const auto count = static_cast<int64_t>(2 * tile_.count / tile_.step);
    const auto hide = [&](int64_t begin, int64_t end) {
      for (int64_t i = begin; i < end; ++i) {
        uint32_t color;
        std::memcpy(&color, pixels + 4 * i, 4);
        color = WithAlpha(color, 0);
        std::memcpy(pixels + 4 * i, &color, 4);
      }
    };
    if (y < kBefore || y >= behind(source_.Rows())) return hide(0, count);
    hide(0, std::min(kBefore - first, count));
    hide(std::max<int64_t>(behind(source_.Columns()) - first, 0), count);
  }

  const TapDoublingKernels<kTaps>& kernels_;
  const ImageView& source_;
  const ImageView& dest_;
  const int64_t step_;
  const int64_t columns_;                     // of the widest tile
  const int64_t read_bytes_;                  // of its rows, by kernels
  uint8_t outside_[kLine + Tile::kMostStep];  // bytes of columns that are outside
  uint8_t line_[kLine];                       // bytes of a row
  Tile tile_;
};

/// Not inlined: the stack holds one tile at a time.
template <size_t kTaps>
[[gnu::noinline]] void DoubleWith(const TapDoublingKernels<kTaps>& kernels,
                                  const ResamplePlan& plan, const ImageView& source,
                                  const ImageView& dest) {
  Doubler<kTaps>(kernels, plan, source, dest).Run();
}

}  // namespace

void DoubleByTaps(const ResamplePlan& plan, const ImageView& source, const ImageView& dest) {
  const DoublingKernels& kernels = ActiveDoublingKernels();
  if (MethodOf(plan.interpolation).sampling == Sampling::kKernel12) {
    DoubleWith(kernels.of12, plan, source, dest);
  } else {
    DoubleWith(kernels.of4, plan, source, dest);
  }
}

}  // namespace qel
