#include "bench/check.h"

#include <cstdlib>
#include <cstring>

#include "host/pixel_slack.h"
#include "reference/readings.h"

namespace qel::bench {
namespace {

constexpr uint8_t kFresh = 0xCD;  // what fresh rows hold on both sides

/// The same image for the plain reading: padding included, zeros round the rows where operations
/// read.
Raster RasterOf(const host::HostImage& image) {
  if (image.Bits() == nullptr) return {};
  reference::Rng rng(1);
  Raster raster(rng, image.width(), image.height(), image.bit_count(), image.model(),
                {.padding = static_cast<int>(image.stride() - image.RowBytes())});
  const auto bytes = static_cast<size_t>(image.height()) * static_cast<size_t>(image.stride());
  const auto [before, after] = host::SlackOf(image.width(), image.height(), image.stride(),
                                             image.bit_count(), image.model());
  std::memset(raster.Bits() - before, 0, static_cast<size_t>(before));
  std::memcpy(raster.Bits(), image.Bits(), bytes);
  std::memset(raster.Bits() + bytes, 0, static_cast<size_t>(after));
  raster.palette.assign(image.palette().begin(), image.palette().end());
  return raster;
}

/// Where the image differs from what is expected, or empty.
std::string Difference(const host::HostImage& image, const Raster& expected) {
  if (image.width() != expected.width || image.height() != expected.height ||
      image.bit_count() != expected.bit_count || image.model() != expected.model) {
    return "its format differs from " + expected.Describe();
  }
  for (int y = 0; image.Bits() != nullptr && y < image.height(); ++y) {
    for (int64_t i = 0; i < image.RowBytes(); ++i) {
      if (image.Row(y)[i] == expected.Row(y)[i]) continue;
      return "byte " + std::to_string(i) + " of row " + std::to_string(y) + " is " +
             std::to_string(image.Row(y)[i]) + ", not " + std::to_string(expected.Row(y)[i]);
    }
  }
  return {};
}

}  // namespace

Verdict Check(const Row& row, const Components& components, int depth) {
  using Kind = Verdict::Kind;
  NewImageOptions() = {.clear = true, .clear_byte = kFresh};
  Stage stage(row.inputs, depth, kSmallPicture);
  std::vector<Raster> rasters;
  for (size_t i = 0; i < stage.count(); ++i) rasters.push_back(RasterOf(stage[i]->Host()));
  const MethodCall call = row.CallFor(kSmallPicture);
  Raster expected_result;
  std::srand(1);  // the random operations draw the same numbers
  const result_t expected = reference::Read(call, rasters, expected_result);
  std::srand(1);
  const result_t actual = stage.Run(components, call);
  NewImageOptions() = {};

  if (Failed(expected)) return {Kind::kWrong, "the row's arguments are refused by definition"};
  if (actual == kFail) return {Kind::kNotAvailable, "not available"};
  if (actual != expected) {
    return {Kind::kWrong,
            "it returns " + std::to_string(actual) + ", not " + std::to_string(expected)};
  }
  for (size_t i = 0; i < stage.count(); ++i) {
    const std::string difference = Difference(stage[i]->Host(), rasters[i]);
    if (!difference.empty())
      return {Kind::kWrong, "image " + std::to_string(i) + ": " + difference};
  }
  const host::HostImage* const result = stage.HostResult();
  if ((result != nullptr) != (expected_result.bit_count != 0)) {
    return {Kind::kWrong, "a result is made or missing against the definition"};
  }
  const std::string difference = result != nullptr ? Difference(*result, expected_result) : "";
  if (!difference.empty()) return {Kind::kWrong, "result: " + difference};
  return {Kind::kRight};
}

}  // namespace qel::bench
