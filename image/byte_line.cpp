#include "image/byte_line.h"

#include <algorithm>
#include <iterator>

namespace qel {
namespace {

/// Values between the ends at which they are clamped.
struct Bounds {
  const int32_t (&values)[256];
  int32_t most;  ///< from here on, values are clamped

  /// How a slope fits, given the best of all offsets.
  enum class Fit { kTooFlat, kTooSteep, kExact };
  /// Narrows the range of offsets, value by value. Where it becomes empty, the latest value and an
  /// earlier one want the slope changed.
  Fit TrySlope(ByteLine& line) const {
    int32_t least = -65535, largest = 65535;
    for (int32_t i = 0; i < 256; ++i) {
      const int32_t needed = (values[i] << line.shift) - (i * line.slope >> 8);
      if (values[i] > 0) least = std::max(least, needed);
      if (least > largest) return Fit::kTooFlat;
      if (values[i] < most) largest = std::min(largest, needed + (1 << line.shift) - 1);
      if (least > largest) return Fit::kTooSteep;
    }
    line.offset = least;
    return Fit::kExact;
  }
};

}  // namespace

std::optional<ByteLine> FindByteLine(const int32_t (&values)[256], bool wraps) {
  const Bounds bounds = {values, wraps ? INT32_MAX : 255};
  if (!std::is_sorted(std::begin(values), std::end(values))) return {};
  // The values that are not clamped tell the slope within 1 / n either way.
  const auto* const first = std::upper_bound(std::begin(values), std::end(values), 0);
  const auto* const end = std::lower_bound(first, std::end(values), bounds.most);
  const auto n = static_cast<int32_t>(end - first) - 1;
  if (n < 1 || values[0] < 0 || values[255] > 1023) return {};
  const int32_t rise = end[-1] - *first;
  ByteLine line = {.slope = 0, .offset = 0, .shift = 8, .wraps = wraps};
  const auto slope_bound = [&](int32_t r) { return (r << (8 + line.shift)) / n; };
  while (line.shift > 1 && (slope_bound(rise + 1) > UINT16_MAX || values[255] >> (16 - line.shift)))
    --line.shift;
  int32_t low = std::max(slope_bound(rise - 1), 0);
  int32_t high = std::min(slope_bound(rise + 1) + 1, int32_t{UINT16_MAX});
  while (low <= high) {
    const int32_t middle = (low + high) / 2;
    line.slope = static_cast<uint16_t>(middle);
    switch (bounds.TrySlope(line)) {
      case Bounds::Fit::kTooFlat:
        low = middle + 1;
        break;
      case Bounds::Fit::kTooSteep:
        high = middle - 1;
        break;
      case Bounds::Fit::kExact:
        const bool saturates = (255 * line.slope >> 8) + line.offset > UINT16_MAX;
        return wraps && saturates ? std::nullopt : std::optional(line);
    }
  }
  return {};
}

}  // namespace qel
