#ifndef QEL_CLI_BATCH_FORECAST_H_
#define QEL_CLI_BATCH_FORECAST_H_

#include <string>
#include <vector>

#include "cli/batch/batch_plan.h"
#include "cli/operations.h"
#include "pictures/limits.h"

namespace qel::cli {

/// Bytes of an image of the tool: rows of a multiple of 64 bytes, below 24 bits with three times
/// their size in reserve.
double ImageBytes(const Shape& shape);

/// What will become of one picture.
struct Forecast {
  Shape shape;            ///< that is written
  double peak_bytes = 0;  ///< of memory that it takes at a time, if it hardly compresses
};

/// Follows pictures through the steps without running them. A run asks before it decodes a
/// picture, a dry run asks nothing else: both refuse the same.
struct Forecaster {
  const std::vector<Step>& steps;
  const pictures::Limits& limits;
  operations::ShapeOfPicture second;  ///< shapes of second pictures
  std::string extension = {};         ///< that stands for those of the outputs; may be empty

  /// What becomes of a picture that has this shape once it is read.
  /// Throws `StepError` for steps that do not take it or make too much of it, `PictureError` when
  /// it takes too much memory while it is read (kTooLarge), and when its format cannot hold the
  /// result or writing takes too much memory (kDoesNotFit).
  Forecast Of(const BatchItem& item, const Shape& source) const;
};

/// "5.0 MiB".
std::string Mebibytes(double bytes);

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_FORECAST_H_
