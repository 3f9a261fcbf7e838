#ifndef QEL_TRANSFORM_TAP_TOLERANCE_H_
#define QEL_TRANSFORM_TAP_TOLERANCE_H_

#include <cstddef>

namespace qel {

// Sums of 4 x 4 or 12 x 12 weighted values are stated one product after the other, in single
// precision. Sums along one axis that are then summed along the other take fewer products, and
// differ by roundings alone. Where no whole number lies between such a sum less and plus what both
// may be off by, its byte is settled; elsewhere the sum is formed as stated.

/// Taps along one axis, unless others are asked for.
inline constexpr size_t kBoundedTaps = 12;

/// What roundings of sums depend on: the weights of the taps along one axis.
struct WeightLine {
  double sum = 0;          ///< of the weights, without its sign
  double sizes = 0;        ///< the sum of the weights without signs
  double running_sum = 0;  ///< the sums of the first one, the first two and so on but all, without
  double running_sizes = 0;  ///< their signs, added; the same of the weights without signs
};

/// The line of `weights`, which lie `step` apart, from the first one or backwards from the last.
template <size_t kTaps = kBoundedTaps>
constexpr WeightLine LineOf(const float* weights, ptrdiff_t step) {
  WeightLine line;
  double sum = 0;
  for (size_t k = 0; k < kTaps; ++k, weights += step) {
    sum += static_cast<double>(*weights);
    line.sum = sum < 0 ? -sum : sum;
    line.sizes += static_cast<double>(*weights < 0 ? -*weights : *weights);
    if (k + 1 == kTaps) break;
    line.running_sum += line.sum;
    line.running_sizes += line.sizes;
  }
  return line;
}

/// By what two sums of values from m - r to m + r may differ: `of_middle` * m + `of_reach` * r.
struct Tolerance {
  double of_middle = 0;
  double of_reach = 0;

  [[gnu::always_inline]] constexpr double Of(double lowest, double highest) const {
    return (of_middle * (highest + lowest) + of_reach * (highest - lowest)) / 2;
  }
};

/// By what sums as stated and sums down columns and then across may differ, where `rows` and
/// `columns` have no quantity below those of the weights, and the weights of a line as they are
/// summed differ from those stated by `weight_error` times 2^-24 at the most, all together.
///
/// Every rounding is off by the 2^24th part of the number at the most. A sum of values from m - r
/// to m + r is at most m times that of its weights plus r times that of their sizes. Rounded are,
/// as stated, the product of two weights, that with a value, which is at most m + r times their
/// size, and all sums on the way. In the other order, products and sums are rounded down the
/// columns, and so they are across, where what is summed is off already; there the taps of a line
/// may come in another order, in which the lines are `summed_rows` and `summed_columns`.
template <size_t kTaps = kBoundedTaps>
constexpr Tolerance ToleranceOf(const WeightLine& rows, const WeightLine& columns,
                                double weight_error, const WeightLine& summed_rows,
                                const WeightLine& summed_columns) {
  const double all = rows.sizes * columns.sizes;
  const double products = 4 * all + weight_error * (rows.sizes + columns.sizes);
  const auto sums = [&](double WeightLine::*line, double WeightLine::*before) {
    const double stated =
        kTaps * rows.*before * columns.*line + rows.sizes * (columns.*before + columns.*line);
    const double down = summed_rows.*before + rows.*line;
    const double across = rows.*line * (summed_columns.*before + columns.*line);
    return stated + columns.sizes * down + across;
  };
  // That rounded numbers are rounded again adds less than a thousandth, and adding the tolerance to
  // a sum of less than 4 times the largest value rounds once more.
  constexpr double kUnit = 0x1p-24;
  const auto total = [&](double of_sums) { return kUnit * (1.001 * (products + of_sums) + 4); };
  return {total(sums(&WeightLine::sum, &WeightLine::running_sum)),
          total(sums(&WeightLine::sizes, &WeightLine::running_sizes))};
}
template <size_t kTaps = kBoundedTaps>
constexpr Tolerance ToleranceOf(const WeightLine& rows, const WeightLine& columns,
                                double weight_error) {
  return ToleranceOf<kTaps>(rows, columns, weight_error, rows, columns);
}

}  // namespace qel

#endif  // QEL_TRANSFORM_TAP_TOLERANCE_H_
