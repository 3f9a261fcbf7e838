#include "cli/batch/forecast.h"

#include <fmt/core.h>
#include <sys/resource.h>

#include <algorithm>
#include <optional>

#include "operations/bands/band_pipeline.h"
#include "pictures/picture_file.h"

namespace qel::cli {
namespace {

using operations::BandPlan;
using operations::Reach;
using operations::RowRange;
using operations::Stretch;
using pictures::PictureError;

/// Nobody reads what a forecast writes.
class NoSink final : public pictures::ByteSink {
 public:
  void Write(std::span<const uint8_t>) override {}
  void WriteAt(uint64_t, std::span<const uint8_t>) override {}
};

Reach ReachOf(const BandPlan& plan, size_t step) {
  return plan.steps()[step].operation->ReachOf(plan.steps()[step].AsGiven(),
                                               plan.ShapeBefore(step));
}

Shape WithHeight(Shape shape, int height) {
  shape.height = height;
  return shape;
}

/// Images in memory while a band goes through a stretch.
struct BandBytes {
  double largest = 0;  ///< of one image
  double working = 0;  ///< of the images that a step has at a time
  double rows = 0;     ///< of the picture that it is made of and the next band needs as well
};

/// Of a band of `rows` rows in the middle of the result.
BandBytes BytesOfBand(const BandPlan& plan, const Stretch& stretch, int rows) {
  const int middle = (plan.ShapeBefore(stretch.end).height - rows) / 2;
  const std::vector<RowRange> ranges =
      plan.RowsFor(stretch.begin, stretch.end, {middle, middle + rows});
  BandBytes bytes;
  // In-place steps keep the rows that there are.
  int held = ranges.front().size();
  double before =
      stretch.looks_everywhere ? 0 : ImageBytes(WithHeight(plan.ShapeBefore(stretch.begin), held));
  bytes.largest = bytes.working = before;
  for (size_t i = stretch.begin; i < stretch.end; ++i) {
    const Operation& operation = *plan.steps()[i].operation;
    const Reach reach = ReachOf(plan, i);
    if (!stretch.looks_everywhere || i > stretch.begin) {
      before = std::max(before, ImageBytes(WithHeight(plan.ShapeBefore(i), held), reach));
    }
    if (operation.source_rows != nullptr) held = ranges[i + 1 - stretch.begin].size();
    const double after = ImageBytes(WithHeight(plan.ShapeBefore(i + 1), held), reach);
    const bool changes =
        operation.in_place && plan.ShapeBefore(i + 1).bits == plan.ShapeBefore(i).bits;
    bytes.largest = std::max({bytes.largest, before, after});
    bytes.working = std::max(bytes.working, changes ? after : before + after);
    before = after;
  }
  if (!stretch.looks_everywhere && middle > 0) {
    const int next = plan.RowsFor(stretch.begin, stretch.end, {middle - 1, middle}).front().end;
    bytes.rows = std::max(0, next - ranges.front().begin) *
                 ImageBytes(WithHeight(plan.ShapeBefore(stretch.begin), 1));
  }
  return bytes;
}

/// Rows of the picture before a stretch that as many of the result are made of, in the middle.
int SourceRows(const BandPlan& plan, const Stretch& stretch, int rows) {
  const int middle = (plan.ShapeBefore(stretch.end).height - rows) / 2;
  return plan.RowsFor(stretch.begin, stretch.end, {middle, middle + rows}).front().size();
}

/// Rows of bands that fit into the caches and still leave every thread several of them.
int BandRowsFor(const BandPlan& plan, const Stretch& stretch, int threads) {
  constexpr double kSmallPicture = 512 << 10, kBand = 2 << 20, kLargestBand = 32 << 20;
  constexpr int kLeast = 16, kBandsForThread = 4;
  const int height = plan.ShapeBefore(stretch.end).height;
  const auto largest = [&](int rows) {
    return BytesOfBand(plan, stretch, std::min(rows, height)).largest;
  };
  if (largest(height) <= kSmallPicture) return height;
  int rows = std::max(kLeast, height / (kBandsForThread * threads));
  while (rows > kLeast && largest(rows) > kBand) rows = std::max(kLeast, rows * 3 / 4);
  // A row of a picture that shrinks a lot stands for many.
  while (rows > 1 && largest(rows) > kLargestBand) rows = rows * 3 / 4;
  // Rows that several bands have in common are calculated for each of them.
  constexpr int kRowsForShared = 4;
  rows = std::min(rows, height);
  const int shared = SourceRows(plan, stretch, 1);
  while (rows < height && !stretch.looks_everywhere &&
         SourceRows(plan, stretch, rows) < kRowsForShared * shared) {
    const int more = std::min(height, rows + rows / 4 + 1);
    if (largest(more) > kLargestBand) break;
    rows = more;
  }
  return rows;
}

/// All bands of a passage that are in memory at a time.
double BytesInFlight(const BandPlan& plan, const Passage& passage, int threads) {
  const BandBytes band = BytesOfBand(plan, passage.stretch, passage.band_rows);
  const int bands = (plan.ShapeBefore(passage.stretch.end).height - 1) / passage.band_rows + 1;
  const int flying = static_cast<int>(
      std::min(static_cast<size_t>(bands), operations::BandPipeline::MostInFlight(threads)));
  const int running = std::min(flying, threads);
  return running * band.working + (flying - running) * band.largest + band.rows;
}

/// Threads for the bands of a passage: a row of the result can take hundreds of megabytes of rows.
int ThreadsFor(const BandPlan& plan, const Passage& passage, int threads) {
  constexpr double kMostBytes = 256 << 20;
  while (threads > 1 && BytesInFlight(plan, passage, threads) > kMostBytes) --threads;
  return threads;
}

}  // namespace

double ImageBytes(const Shape& shape, Reach reach) {
  constexpr double kOwnPages = 1 << 20;  // from here on what is not touched takes no memory
  const double row = static_cast<double>((int64_t{shape.width} * shape.bits + 511) / 512 * 64);
  const double rows = row * shape.height;
  const double all = shape.bits < 24 ? 4 * rows : rows;
  return reach == Reach::kBeyond || all < kOwnPages ? all : rows;
}

/// Throws for a picture that must be one image and has too many pixels for that.
void Forecaster::CheckSize(PictureError::Kind kind, const std::string& path,
                           const Shape& shape) const {
  if (limits.AllowSize(shape.width, shape.height)) return;
  throw PictureError(
      kind, path,
      fmt::format("{} pixels, which are needed at once here, are more than the limit of {}",
                  shape.Size(), limits.max_pixels));
}

/// An image that is replaced leaves its memory for the next one.
Forecast Forecaster::Of(const BatchItem& item, const Shape& source, const RowTraffic& reading,
                        int threads) const {
  // The source is within the limits, or streams.
  Forecast forecast{BandPlan(steps, source, second), {}};
  const BandPlan& plan = forecast.plan;
  const auto reach = [&](double bytes, const auto& refuse) {
    forecast.peak_bytes = std::max(forecast.peak_bytes, bytes);
    if (bytes <= static_cast<double>(limits.max_memory)) return;
    refuse(fmt::format("takes {} of memory, more than the limit of {}", Mebibytes(bytes),
                       Mebibytes(static_cast<double>(limits.max_memory))));
  };
  const auto reach_reading = [&](double bytes) {
    reach(bytes, [&](const std::string& what) {
      throw PictureError(PictureError::Kind::kTooLarge, item.input, "reading " + what);
    });
  };
  NoSink nowhere;
  pictures::WriteOptions options = writing;
  options.threads = threads;
  const Shape& result = plan.result();
  const RowTraffic target = RowTraffic::Of(*pictures::WriteByRows(
      nowhere, item.output,
      pictures::PictureView{
          .width = result.width, .height = result.height, .bit_count = result.bits},
      {}, options));

  bool in_file = true;  // what there is so far
  double held = 0;      // the image of it
  double kept = 0;      // the largest that was replaced
  for (const Stretch& stretch : plan.stretches()) {
    const bool last = &stretch == &plan.stretches().back();
    Passage passage{stretch};
    passage.from_file = in_file && stretch.by_bands && reading.streams && !stretch.looks_everywhere;
    passage.to_file = last && stretch.by_bands && target.streams;
    if (in_file && !passage.from_file) {
      CheckSize(PictureError::Kind::kTooLarge, item.input, source);
      held = ImageBytes(plan.ShapeBefore(stretch.begin));
      reach_reading(held + reading.held_bytes);
    }
    in_file = false;
    double made = 0, bytes = 0;  // by bands
    if (stretch.by_bands) {
      const int height = plan.ShapeBefore(stretch.end).height;
      passage.band_rows =
          band_rows > 0 ? std::min(band_rows, height) : BandRowsFor(plan, stretch, threads);
      passage.threads = ThreadsFor(plan, passage, threads);
      made = passage.to_file ? 0 : ImageBytes(plan.ShapeBefore(stretch.end));
      bytes = kept + held + made + BytesInFlight(plan, passage, passage.threads) +
              (passage.from_file ? reading.held_bytes : 0) +
              (passage.to_file ? target.held_bytes : 0);
      // From an image to an image there is another way, which takes less memory.
      const bool fits = bytes <= static_cast<double>(limits.max_memory);
      passage.by_bands = passage.from_file || passage.to_file || (threads > 1 && fits);
    }
    if (passage.by_bands) {
      if (last && !passage.to_file) {
        CheckSize(PictureError::Kind::kDoesNotFit, item.output, result);
      }
      reach_reading(bytes);
      kept = std::max(kept, held);
      held = made;
    }
    for (size_t i = stretch.begin; i < stretch.end && !passage.by_bands; ++i) {
      const Operation& operation = *steps[i].operation;
      operations::ShapeAfter(steps[i], plan.ShapeBefore(i), limits.max_pixels, second);
      held = std::max(held, ImageBytes(plan.ShapeBefore(i), ReachOf(plan, i)));
      const bool changes =
          operation.in_place && plan.ShapeBefore(i + 1).bits == plan.ShapeBefore(i).bits;
      if (!changes) {
        kept = std::max(kept, held);
        held = ImageBytes(plan.ShapeBefore(i + 1), ReachOf(plan, i));
      }
      reach(kept + held, [&](const std::string& what) {
        throw StepError(fmt::format("{}: {}", operation.name, what), operation.name);
      });
    }
    forecast.passages.push_back(passage);
  }
  if (!forecast.passages.back().to_file) {
    reach(kept + held + target.held_bytes, [&](const std::string& what) {
      throw PictureError(PictureError::Kind::kDoesNotFit, item.output, "writing " + what);
    });
  }
  return forecast;
}

double PeakBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return 1024.0 * static_cast<double>(usage.ru_maxrss);
}

std::string Mebibytes(double bytes) { return fmt::format("{:.1f} MiB", bytes / (1 << 20)); }

}  // namespace qel::cli
