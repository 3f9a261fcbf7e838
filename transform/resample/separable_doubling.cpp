#include <algorithm>
#include <cmath>
#include <cstring>

#include "image/pixel_access.h"
#include "simd/prefetch.h"
#include "transform/resample/resample_methods.h"
#include "transform/resample/separable_doubling_kernels.h"

// Sums of weighted taps are defined by the order of their additions in single precision. Sums along
// rows, shared by all rows that they reach, and then down columns differ from these by their
// roundings alone. What that may amount to is small, so that few sums lie so near to a whole number
// that it matters, and those are summed once more in their order.

namespace qel {
namespace {

constexpr size_t kTaps = kSeparableTaps;

/// By less than how much sums along rows and then down columns may be off the sum in its order,
/// plus 1, in units; 0 where both are exact.
uint16_t ToleranceOf(const float* weights) {
  double size = 0;
  bool all_short = true;
  for (size_t k = 0; k < kTaps; ++k) {
    const double weight = std::fabs(weights[k]);
    size += weight;
    all_short = all_short && weight * 128 == std::floor(weight * 128);
  }
  // Of multiples of 1/128, products and sums are multiples of 2^-14 either way. Below 2^10 they
  // have no more bits than single precision keeps.
  const double most = 255 * size * size;
  if (all_short && most < 1024) return 0;
  // A term of the sum in order is rounded once with its weight, once with its value, and by each
  // addition but the first; either way of the other sum rounds products and additions, of which the
  // one of the tolerance is the last.
  constexpr double kRoundings = (1 + kTaps * kTaps) + 2 * (1 + kTaps);
  // A little more than the unit of rounding, for roundings of what is rounded.
  constexpr double kUnit = 0x1.01p-24;
  // Sums are cut to whole units.
  return static_cast<uint16_t>(std::ceil(kRoundings * kUnit * most * double{kUnitsOfOne}) + 1);
}

/// Doubles an image in tiles of a few columns and a band of rows.
class SeparableDoubler {
 public:
  SeparableDoubler(const ResamplePlan& plan, const ImageView& source, const ImageView& dest)
      : source_(source), dest_(dest), step_(static_cast<size_t>(plan.pixel_bytes)) {
    const uint32_t outside = OutsideColor(source);
    const uint8_t channels[] = {BlueOf(outside), GreenOf(outside), RedOf(outside),
                                AlphaOf(outside)};
    for (size_t i = 0; i < kValues; i += step_) std::copy_n(channels, step_, outside_ + i);
    rows_.weights = plan.weights;
    rows_.step = step_;
    rows_.tolerance = ToleranceOf(plan.weights);
    for (size_t i = 0; i < 4; ++i) rows_.bytes[i / 2][i % 2] = bytes_[i];
  }

  void Run() {
    for (int64_t band = 0; band < source_.Rows(); band += kBandRows) {
      const int64_t end = std::min(source_.Rows(), band + kBandRows);
      for (int64_t x = 0; x < source_.Columns(); x += MostColumns()) RunTile(x, band, end);
    }
  }

 private:
  static constexpr int64_t kHalf = kTaps / 2;
  /// Of a source row in a tile; what sums are made from fits the innermost cache.
  static constexpr size_t kTileBytes = 512;
  /// The most bytes of a vector: rows are filled up to whole ones.
  static constexpr size_t kVector = 64;
  static constexpr size_t kMostStep = 4;
  /// Sums of odd columns begin a pixel early.
  static constexpr size_t kEarly = 16;
  /// Rows of floats that the same vectors are read from begin at different lines of the cache.
  static constexpr size_t kSums = kTileBytes + kVector + kEarly;
  static constexpr size_t kValues = kTileBytes + kVector + kTaps * kMostStep;
  /// Source rows that tiles go down: each lies in a page of its own, as do the two rows made of it,
  /// and the processor remembers where some two thousand pages are.
  static constexpr int64_t kBandRows = 300;
  /// Source rows of a tile that the memory brings in advance.
  static constexpr int64_t kRowsAhead = 8;

  /// What is kept of a source row in a tile.
  struct Row {
    alignas(64) float even[kSums];
    alignas(64) float odd[kSums];
    alignas(64) float values[kValues];
  };

  /// Columns of a tile: its bytes and those of one pixel more, which odd columns need, are whole
  /// vectors.
  int64_t MostColumns() const { return static_cast<int64_t>(kTileBytes / step_ - 1); }

  /// The columns from `first` on of the rows from `begin` to `end`.
  void RunTile(int64_t first, int64_t begin, int64_t end) {
    const auto columns =
        std::min<int64_t>(static_cast<int64_t>(kTileBytes / step_), source_.Columns() - first);
    rows_.count = static_cast<size_t>(columns) * step_;
    for (int64_t row = begin - kHalf; row < end + kHalf; ++row) {
      AddRow(row, first);
      // Its last tap makes the odd row 2 y + 1 and the even one after it.
      const int64_t y = row - kHalf;
      if (y < begin - 1) continue;
      for (size_t k = 0; k < kTaps; ++k) {
        const Row& tap = RowAt(y - kHalf + 1 + static_cast<int64_t>(k));
        rows_.sums[k][0] = tap.even;
        rows_.sums[k][1] = tap.odd + kEarly;
        rows_.values[k] = tap.values;
      }
      for (int64_t i = 0; i < 2; ++i) {
        const int64_t later = std::min(2 * (y + kRowsAhead) + 1 + i, dest_.Rows() - 1);
        rows_.next[i] = dest_.Row(later) + 2 * first * static_cast<int64_t>(step_);
      }
      kernels_.down(rows_);
      if (y >= begin) StoreRow(2 * y + 1, rows_.bytes[0], first);
      if (y + 1 < end) StoreRow(2 * y + 2, rows_.bytes[1], first);
    }
  }

  Row& RowAt(int64_t row) { return ring_[static_cast<size_t>(row + kHalf) % kTaps]; }

  /// Values and sums of the taps of a tile in a source row, which may be outside.
  void AddRow(int64_t row, int64_t first) {
    Row& to = RowAt(row);
    const auto step = static_cast<int64_t>(step_);
    const bool inside = row >= 0 && row < source_.Rows();
    const int64_t from = first - kHalf;
    const int64_t columns = static_cast<int64_t>(rows_.count) / step;
    const int64_t begin = inside ? std::max<int64_t>(from, 0) : from;
    const int64_t end = inside ? std::min(first + columns + kHalf, source_.Columns()) : from;
    const auto before = static_cast<size_t>((begin - from) * step);
    const auto bytes = static_cast<size_t>((end - begin) * step);
    const size_t all = (rows_.count + step_ + kVector - 1) / kVector * kVector + kTaps * step_;
    std::copy_n(outside_, before, to.values);
    const size_t past = before + bytes;
    if (past < all) std::copy_n(outside_, all - past, to.values + past);
    if (inside) {
      const uint8_t* const at = source_.Row(row) + begin * step;
      if (row + kRowsAhead < source_.Rows()) {
        PrefetchRun(at + kRowsAhead * source_.stride, static_cast<int64_t>(bytes));
      }
      kernels_.widen(to.values + before, at, bytes);
    }
    kernels_.across(to.even, to.odd + kEarly, to.values, rows_.weights, step_, rows_.count);
  }

  /// Stores destination row `y` of a tile.
  void StoreRow(int64_t y, const uint8_t* const* bytes, int64_t first) {
    uint8_t* const to = dest_.Row(y) + 2 * first * static_cast<int64_t>(step_);
    kernels_.merge(to, bytes[0], bytes[1], step_, rows_.count);
    if (step_ == 4) HideAlpha(y, to, 2 * first);
  }

  /// Of samples of 4 by 4 pixels, those with a tap outside have no alpha.
  void HideAlpha(int64_t y, uint8_t* pixels, int64_t first) const {
    // The first tap of column or row i is (i + 1) / 2 - 2.
    const auto all_inside = [](int64_t i, int64_t size) {
      return i >= 3 && (i + 1) / 2 + 2 <= size;
    };
    const bool any = all_inside(y, source_.Rows());
    const auto count = static_cast<int64_t>(2 * rows_.count / step_);
    const auto hides = [&](int64_t i) {
      if (any && all_inside(first + i, source_.Columns())) return false;
      pixels[4 * i + 3] = 0;
      return true;
    };
    int64_t begin = 0;
    while (begin < count && hides(begin)) ++begin;
    for (int64_t i = count; i > begin && hides(i - 1);) --i;
  }

  const ImageView& source_;
  const ImageView& dest_;
  const SeparableDoublingKernels& kernels_ = ActiveSeparableDoublingKernels();
  const size_t step_;
  alignas(64) float outside_[kValues + kMostStep];  // values of columns that are outside
  DoubledRows rows_;
  alignas(64) uint8_t bytes_[4][kTileBytes];
  Row ring_[kTaps];
};

}  // namespace

void DoubleBySeparableTaps(const ResamplePlan& plan, const ImageView& source,
                           const ImageView& dest) {
  SeparableDoubler(plan, source, dest).Run();
}

}  // namespace qel
