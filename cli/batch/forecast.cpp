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

/// A picture on its way through the steps, as far as memory goes. An image that is replaced leaves
/// its memory for the next one.
class Walk {
 public:
  Walk(const Forecaster& given, const BatchItem& item, const Shape& source,
       const RowTraffic& reading, int threads)
      : given_(given),
        item_(item),
        reading_(reading),
        threads_(threads),
        // The source is within the limits, or streams.
        forecast_{BandPlan(given.steps, source, given.second), {}},
        writing_(TrafficOfOutput()) {}

  Forecast Run() {
    for (const Stretch& stretch : plan().stretches()) {
      forecast_.passages.push_back(Pass(stretch));
    }
    if (!forecast_.passages.back().to_file) {
      TakeBytes(kept_ + held_ + writing_.held_bytes, [&](const std::string& what) {
        throw PictureError(PictureError::Kind::kDoesNotFit, item_.output, "writing " + what);
      });
    }
    return std::move(forecast_);
  }

 private:
  const BandPlan& plan() const { return forecast_.plan; }
  double most_bytes() const { return static_cast<double>(given_.limits.max_memory); }

  RowTraffic TrafficOfOutput() const {
    NoSink nowhere;
    pictures::WriteOptions options = given_.writing;
    options.threads = threads_;
    const Shape& shape = plan().result();
    const pictures::PictureView view{
        .width = shape.width, .height = shape.height, .bit_count = shape.bits};
    return RowTraffic::Of(*pictures::WriteByRows(nowhere, item_.output, view, {}, options));
  }

  /// Notes that so much memory is taken at a time; has `refuse` throw when that is too much.
  template <typename Refuse>
  void TakeBytes(double bytes, const Refuse& refuse) {
    forecast_.peak_bytes = std::max(forecast_.peak_bytes, bytes);
    if (bytes <= most_bytes()) return;
    refuse(fmt::format("takes {} of memory, more than the limit of {}", Mebibytes(bytes),
                       Mebibytes(most_bytes())));
  }
  void TakeBytesToRead(double bytes) {
    TakeBytes(bytes, [&](const std::string& what) {
      throw PictureError(PictureError::Kind::kTooLarge, item_.input, "reading " + what);
    });
  }

  /// Throws for a picture that must be one image and has too many pixels for that.
  void CheckSize(PictureError::Kind kind, const std::string& path, const Shape& shape) const {
    if (given_.limits.AllowSize(shape.width, shape.height)) return;
    throw PictureError(
        kind, path,
        fmt::format("{} pixels, which are needed at once here, are more than the limit of {}",
                    shape.Size(), given_.limits.max_pixels));
  }

  Passage Pass(const Stretch& stretch) {
    const bool first = forecast_.passages.empty();
    const bool last = &stretch == &plan().stretches().back();
    Passage passage{stretch};
    passage.from_file = first && stretch.by_bands && reading_.streams && !stretch.looks_everywhere;
    passage.to_file = last && stretch.by_bands && writing_.streams;
    if (first && !passage.from_file) ReadWhole();
    if (stretch.by_bands) PassByBands(passage, last);
    if (!passage.by_bands) PassByStep(stretch);
    return passage;
  }

  void ReadWhole() {
    const Shape& source = plan().ShapeBefore(0);
    CheckSize(PictureError::Kind::kTooLarge, item_.input, source);
    held_ = ImageBytes(source);
    TakeBytesToRead(held_ + reading_.held_bytes);
  }

  /// From an image to an image there is another way, which takes less memory.
  void PassByBands(Passage& passage, bool last) {
    const Shape& result = plan().ShapeBefore(passage.stretch.end);
    passage.band_rows = given_.band_rows > 0 ? std::min(given_.band_rows, result.height)
                                             : BandRowsFor(plan(), passage.stretch, threads_);
    passage.threads = ThreadsFor(plan(), passage, threads_);
    const double made = passage.to_file ? 0 : ImageBytes(result);
    const double bytes = kept_ + held_ + made + BytesInFlight(plan(), passage, passage.threads) +
                         (passage.from_file ? reading_.held_bytes : 0) +
                         (passage.to_file ? writing_.held_bytes : 0);
    passage.by_bands =
        passage.from_file || passage.to_file || (threads_ > 1 && bytes <= most_bytes());
    if (!passage.by_bands) return;
    if (last && !passage.to_file) {
      CheckSize(PictureError::Kind::kDoesNotFit, item_.output, result);
    }
    TakeBytesToRead(bytes);
    kept_ = std::max(kept_, held_);
    held_ = made;
  }

  void PassByStep(const Stretch& stretch) {
    for (size_t i = stretch.begin; i < stretch.end; ++i) {
      const Step& step = plan().steps()[i];
      const Shape &before = plan().ShapeBefore(i), &after = plan().ShapeBefore(i + 1);
      operations::ShapeAfter(step, before, given_.limits.max_pixels, given_.second);
      const Reach reach = ReachOf(plan(), i);
      held_ = std::max(held_, ImageBytes(before, reach));
      if (!step.operation->in_place || after.bits != before.bits) {
        kept_ = std::max(kept_, held_);
        held_ = ImageBytes(after, reach);
      }
      TakeBytes(kept_ + held_, [&](const std::string& what) {
        throw StepError(fmt::format("{}: {}", step.operation->name, what), step.operation->name);
      });
    }
  }

  const Forecaster& given_;
  const BatchItem& item_;
  const RowTraffic& reading_;
  const int threads_;
  Forecast forecast_;
  const RowTraffic writing_;
  double held_ = 0;  ///< bytes of the image that there is so far
  double kept_ = 0;  ///< of the largest that was replaced
};

}  // namespace

double ImageBytes(const Shape& shape, Reach reach) {
  constexpr double kOwnPages = 1 << 20;  // from here on what is not touched takes no memory
  const double row = static_cast<double>((int64_t{shape.width} * shape.bits + 511) / 512 * 64);
  const double rows = row * shape.height;
  const double ends = 2 * std::max(row, 4.0 * shape.width);  // slack, which is zeroed
  const double all = shape.bits < 24 ? 4 * rows : rows;
  return ends + (reach == Reach::kBeyond || ends + all < kOwnPages ? all : rows);
}

Forecast Forecaster::Of(const BatchItem& item, const Shape& source, const RowTraffic& reading,
                        int threads) const {
  return Walk(*this, item, source, reading, threads).Run();
}

double PeakBytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return 1024.0 * static_cast<double>(usage.ru_maxrss);
}

std::string Mebibytes(double bytes) { return fmt::format("{:.1f} MiB", bytes / (1 << 20)); }

}  // namespace qel::cli
