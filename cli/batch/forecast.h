#ifndef QEL_CLI_BATCH_FORECAST_H_
#define QEL_CLI_BATCH_FORECAST_H_

#include <string>
#include <vector>

#include "cli/batch/batch_plan.h"
#include "cli/operations.h"
#include "operations/bands/band_plan.h"
#include "pictures/rows.h"

namespace qel::cli {

/// Bytes of an image of the tool that are touched: rows of a multiple of 64 bytes, and below 24
/// bits three times their size in reserve, of small images always and of others where an operation
/// reaches there.
double ImageBytes(const Shape& shape, operations::Reach reach = operations::Reach::kRows);

/// How the rows of a file come or go.
struct RowTraffic {
  bool streams = false;
  double held_bytes = 0;  ///< besides the rows

  template <typename ReaderOrWriter>
  static RowTraffic Of(const ReaderOrWriter& rows) {
    return {rows.streams(), static_cast<double>(rows.held_bytes())};
  }
};

/// A stretch of steps and how it is carried out.
struct Passage {
  operations::Stretch stretch;
  bool by_bands = false;   ///< otherwise one step after the other takes the whole picture
  int band_rows = 0;       ///< of the result
  int threads = 1;         ///< fewer than there are where bands are very large
  bool from_file = false;  ///< bands are read from the file, otherwise from an image
  bool to_file = false;    ///< bands are written to the file, otherwise into an image
};

/// How one picture will be made.
struct Forecast {
  operations::BandPlan plan;
  std::vector<Passage> passages;
  double peak_bytes = 0;  ///< of memory that it takes at a time, if it hardly compresses

  /// What is written.
  const Shape& shape() const { return plan.result(); }
};

/// Follows pictures through the steps without running them. A run asks before it decodes a
/// picture, a dry run asks nothing else: both refuse the same.
struct Forecaster {
  const std::vector<Step>& steps;
  const pictures::Limits& limits;
  operations::ShapeOfPicture second;  ///< shapes of second pictures
  const pictures::WriteOptions& writing;
  int band_rows = 0;  ///< that were asked for; 0: what suits the picture

  /// How a picture of this shape will be made on `threads` threads; `reading` is what its file's
  /// reader says.
  /// Throws `StepError` for steps that do not take it or make too much of it, `PictureError` when
  /// it takes too much memory while it is read (kTooLarge), and when its format cannot hold the
  /// result or writing takes too much memory (kDoesNotFit).
  Forecast Of(const BatchItem& item, const Shape& source, const RowTraffic& reading,
              int threads) const;
};

/// Bytes of memory that this process has had at a time at most.
double PeakBytes();

/// "5.0 MiB".
std::string Mebibytes(double bytes);

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_FORECAST_H_
