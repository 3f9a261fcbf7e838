#ifndef QEL_CLI_BATCH_PICTURE_JOB_H_
#define QEL_CLI_BATCH_PICTURE_JOB_H_

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cli/batch/forecast.h"
#include "cli/batch/run_stats.h"
#include "cli/session/picture_io.h"
#include "cli/session/session.h"
#include "operations/bands/band_pipeline.h"
#include "pictures/rows.h"

namespace qel::cli {

/// What all pictures of a run have in common.
struct JobTools {
  const Forecaster& forecaster;
  const pictures::ReadOptions& reading;
  const pictures::WriteOptions& writing;
  const Session& session;
  PictureFiles& second_pictures;
};

/// One picture on its way from a file through the steps to a file: by bands where it can be, on
/// several threads, with the same bytes for any number of them.
class PictureJob {
 public:
  /// How much of the work is done, from 0 to 1; calls come one at a time, from any thread.
  using Progress = std::function<void(double share)>;

  /// Looks at the header of `file`, which is the input of `item`; nothing is decoded. Keeps all.
  /// Throws what `OpenRows` and `Forecaster::Of` throw.
  PictureJob(const JobTools& tools, const BatchItem& item, pictures::ByteSource& file, int threads);

  /// What is read.
  const Shape& source() const { return forecast_.plan.ShapeBefore(0); }

  /// Makes the picture and writes the bytes of its file to `sink`, then prints what there is to
  /// say. Throws what reading, steps, writing and the sink throw.
  void Run(pictures::ByteSink& sink, PictureTimes& times, const Progress& progress);

 private:
  class FileSource;
  class ImageSource;
  class FileSink;
  class ImageSink;

  SmartPtr<host::HostImage> NewImage(const Shape& shape, int height) const;
  void ReadWhole(PictureTimes& times);
  void RunWhole(size_t index);
  void RunBands(const Passage& passage, FileSink& target, PictureTimes& times);
  void PrintAll(const std::vector<std::string>& writer_notes) const;

  const JobTools& tools_;
  const BatchItem& item_;
  const int threads_;
  std::unique_ptr<pictures::RowReader> reader_;
  Forecast forecast_;
  SmartPtr<host::HostImage> image_;  ///< the picture so far, where it is one image
  std::vector<operations::StepRecord> records_;
};

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_PICTURE_JOB_H_
