#ifndef QEL_COMPOSE_RESIZE_H_
#define QEL_COMPOSE_RESIZE_H_

#include <vector>

#include "compose/pixels.h"

namespace qel::compose {

/// The kernels of resizing.
enum class ResizeFilter {
  kLanczos,   ///< windowed sinc of three lobes: the sharpest
  kMitchell,  ///< cubic of Mitchell and Netravali with B = C = 1/3: no ringing to speak of
  kArea,      ///< mean of the area that a pixel covers
  kNearest,   ///< one pixel copied, no new colours
};

/// What a picture is to become: scaled to `width` x `height`, of which the part of `dest_width` x
/// `dest_height` at (`left`, `top`) is made. All sizes are at least 1, the part lies inside.
struct ResizeRequest {
  int source_width = 0;
  int source_height = 0;
  int width = 0;
  int height = 0;
  int left = 0;
  int top = 0;
  int dest_width = 0;
  int dest_height = 0;
  ResizeFilter filter = ResizeFilter::kLanczos;
  /// Mixes light instead of sRGB values: fine patterns keep their brightness.
  bool linear_light = false;

  bool operator==(const ResizeRequest&) const = default;
};

/// Weights of source samples for a run of samples of one axis.
struct ResizeAxis {
  int taps = 0;                ///< source samples for each sample, the same number for all
  std::vector<int> first;      ///< the first of them, by sample
  std::vector<float> weights;  ///< `padded_taps` for each sample, the last ones 0
  int padded_taps = 0;         ///< a multiple of 4

  const float* Weights(int index) const {
    return weights.data() + static_cast<ptrdiff_t>(index) * padded_taps;
  }
};

/// Resamples pictures separably: down the columns, then along the rows, in 32-bit floats with one
/// rounding at the end. A shrinking kernel is widened by the scale, so that no detail is skipped;
/// beyond the edges the outermost samples repeat. Colours are weighted by their alpha: transparent
/// pixels lend no colour to others. A row of the result depends on the source rows that
/// `SourceRows` names and on nothing else, so any division into bands gives the same bytes.
/// Threads: any number may run one resizer on bands of their own.
class Resizer {
 public:
  explicit Resizer(const ResizeRequest& request);

  /// The source rows that rows [dest.begin, dest.end) of the result are made of.
  RowRange SourceRows(RowRange dest) const;

  /// Makes as many rows as `dest` has, from number `dest_first` of the result on. `source` holds
  /// the source's rows from number `source_first` on, those of `SourceRows` at least. Both have the
  /// full widths and the same channels.
  void Run(const ConstPixels& source, int source_first, const Pixels& dest, int dest_first) const;

 private:
  void CopyNearest(const ConstPixels& source, int source_first, const Pixels& dest,
                   int dest_first) const;

  ResizeRequest request_;
  ResizeAxis columns_;
  ResizeAxis rows_;
};

}  // namespace qel::compose

#endif  // QEL_COMPOSE_RESIZE_H_
