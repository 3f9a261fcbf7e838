#include "operations/bands/band_plan.h"

#include <algorithm>
#include <limits>

#include "operations/shape_after.h"

namespace qel::operations {

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
    const int64_t top = int64_t{after.begin} - reach - (reach > 0 ? 1 : 0);
    const int64_t bottom = int64_t{after.end} + reach;
    before = {static_cast<int>(std::max<int64_t>(top, 0)),
              static_cast<int>(std::min<int64_t>(bottom, shapes_[i].height))};
  }
  return rows;
}

}  // namespace qel::operations
