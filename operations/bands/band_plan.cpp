#include "operations/bands/band_plan.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include "operations/shape_after.h"

namespace qel::operations {
namespace {

/// The rows or columns, of `length` that there are, that `part` of the result is made of when
/// pixels look `reach` far, and one more in front where nobody looks: for the corner.
RowRange WithNeighbors(RowRange part, int reach, bool has_corner, int length) {
  const int64_t begin = int64_t{part.begin} - reach - (has_corner ? 1 : 0);
  const int64_t end = int64_t{part.end} + reach;
  return {static_cast<int>(std::max<int64_t>(begin, 0)),
          static_cast<int>(std::min<int64_t>(end, length))};
}

/// Neighbouring ranges of these sizes, from 0 on.
std::vector<RowRange> RangesOf(std::span<const int> sizes) {
  std::vector<RowRange> ranges;
  int begin = 0;
  for (const int size : sizes) {
    ranges.push_back({begin, begin + size});
    begin += size;
  }
  return ranges;
}

}  // namespace

BandPlan::BandPlan(std::span<const Step> steps, const Shape& source, const ShapeOfPicture& second)
    : steps_(steps), shapes_{source} {
  constexpr int64_t kAny = std::numeric_limits<int64_t>::max();
  for (size_t i = 0; i < steps.size(); ++i) {
    const Shape after = ShapeAfter(steps[i], shapes_[i], kAny, second);
    const Way way = WayOf(i, second);
    shapes_.push_back(after);
    const bool goes_on = way == Way::kRows && !stretches_.empty() && stretches_.back().by_bands;
    if (goes_on) {
      stretches_.back().end = i + 1;
    } else {
      stretches_.push_back({i, i + 1, way != Way::kWhole, way == Way::kEverywhere});
    }
  }
  if (steps.empty()) stretches_.push_back({0, 0, true, false});
}

BandPlan::Way BandPlan::WayOf(size_t index, const ShapeOfPicture& second) const {
  const Step& step = steps_[index];
  const Operation& operation = *step.operation;
  const Given given = step.AsGiven();
  const Shape& shape = shapes_[index];
  if (operation.random || operation.counts) return Way::kWhole;
  if (operation.source_rows != nullptr) {
    const RowRange rows = operation.source_rows(given, shape, {0, 1});
    if (rows.size() <= 0) return Way::kWhole;
    return shape.height > 1 && rows.size() >= shape.height ? Way::kEverywhere : Way::kRows;
  }
  const Border border = operation.BorderOf(given, shape);
  if (border.IsWholePicture()) return Way::kWhole;
  for (const Parameter& parameter : operation.parameters) {
    if (parameter.kind != Kind::kPicture || !step.arguments.Has(parameter.name)) continue;
    // Bands of both lie side by side.
    const Shape other = second(step.arguments.Text(parameter.name));
    if (border.rows > 0 || other.height < shape.height) return Way::kWhole;
  }
  return Way::kRows;
}

bool BandPlan::LooksOutside(size_t index) const {
  const Operation& operation = *steps_[index].operation;
  return operation.source_rows == nullptr &&
         operation.BorderOf(steps_[index].AsGiven(), shapes_[index]).rows > 0;
}

std::vector<RowRange> BandPlan::RowsFor(size_t begin, size_t end, RowRange result) const {
  std::vector<RowRange> rows(end - begin + 1);
  rows.back() = result;
  for (size_t i = end; i-- > begin;) {
    const RowRange after = rows[i + 1 - begin];
    RowRange& before = rows[i - begin];
    const Operation& operation = *steps_[i].operation;
    const Given given = steps_[i].AsGiven();
    if (operation.source_rows != nullptr) {
      before = operation.source_rows(given, shapes_[i], after);
      continue;
    }
    const int reach = operation.BorderOf(given, shapes_[i]).rows;
    before = WithNeighbors(after, reach, reach > 0, shapes_[i].height);
  }
  return rows;
}

std::vector<Block> CutIntoBlocks(const Border& border, std::span<const int> heights,
                                 std::span<const int> widths) {
  const bool whole_rows = border.columns == Border::kAll;
  const int reach_columns = whole_rows ? 0 : border.columns;
  const bool looks_outside = border.rows > 0 || reach_columns > 0;
  const int height = std::reduce(heights.begin(), heights.end());
  const int width = std::reduce(widths.begin(), widths.end());
  std::vector<Block> blocks;
  for (const RowRange rows : RangesOf(heights)) {
    for (const RowRange columns : RangesOf(whole_rows ? std::span(&width, 1) : widths)) {
      Block block{rows, columns, WithNeighbors(rows, border.rows, looks_outside, height),
                  WithNeighbors(columns, reach_columns, looks_outside, width)};
      block.needs_corner =
          looks_outside && (block.source_rows.begin > 0 || block.source_columns.begin > 0);
      blocks.push_back(block);
    }
  }
  return blocks;
}

}  // namespace qel::operations
