#ifndef QEL_OPERATIONS_BANDS_BAND_PIPELINE_H_
#define QEL_OPERATIONS_BANDS_BAND_PIPELINE_H_

#include <optional>
#include <string>
#include <vector>

#include "operations/bands/band_plan.h"
#include "operations/engine.h"
#include "operations/transparency.h"

namespace qel::operations {

/// Where the rows of a picture come from, from the top down. Threads: one at a time, whichever.
class BandSource {
 public:
  virtual ~BandSource() = default;
  /// The picture, where it is one image that is only read; otherwise null.
  virtual IQEL* Whole() = 0;
  /// An image for `rows` rows of the picture, with its width, depth and palette.
  virtual SmartPtr<IQEL> NewImage(int rows) = 0;
  /// Puts the next `count` rows of the picture into rows of `image` from number `at` on.
  virtual void FillRows(IQEL& image, int at, int count) = 0;
};

/// Where the rows of a result go, from the top down. Threads: one at a time, whichever.
class BandSink {
 public:
  virtual ~BandSink() = default;
  /// Takes the next rows of the result, which are these rows of `image`.
  virtual void TakeRows(IQEL& image, RowRange rows) = 0;
};

/// What there is to say of a step once it has run.
struct StepRecord {
  std::optional<Transparency> before, after;  ///< of the rows that were needed
  std::vector<std::string> notes;
  double seconds = 0;  ///< of all threads together

  /// Adds what there is to say of another band.
  void Add(const StepRecord& other);
};

/// Takes a picture through a stretch of steps by bands.
///
/// One thread at a time reads rows and one writes them, in order; the steps run on all threads,
/// each on a band of its own.
class BandPipeline {
 public:
  /// Bands have `band_rows` rows of the result, the last one perhaps less. Keeps all.
  BandPipeline(const Engine& engine, const BandPlan& plan, const Stretch& stretch,
               PictureSource& pictures, int band_rows);

  /// Bands that are in memory at a time at most: one more than there are threads lets the next one
  /// be read while another one waits for being written.
  static constexpr size_t MostInFlight(int threads) {
    return threads > 1 ? static_cast<size_t>(threads) + 1 : 1;
  }

  /// Runs on `threads` threads, the caller's among them, or less where no more can be started.
  /// Adds to `records`, which has one for each step of the plan. Throws what the first fault
  /// throws, of whatever thread.
  void Run(BandSource& source, BandSink& sink, int threads, std::vector<StepRecord>& records);

 private:
  friend class BandWork;

  const Engine& engine_;
  const BandPlan& plan_;
  const Stretch stretch_;
  PictureSource& pictures_;
  int band_rows_;
};

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_BANDS_BAND_PIPELINE_H_
