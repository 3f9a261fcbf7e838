#ifndef QEL_OPERATIONS_BANDS_BAND_PLAN_H_
#define QEL_OPERATIONS_BANDS_BAND_PLAN_H_

#include <cstdint>
#include <span>
#include <vector>

#include "operations/steps.h"

namespace qel::operations {

/// Steps of a chain that go together.
struct Stretch {
  size_t begin = 0;
  size_t end = 0;
  /// Bands go through all of the steps one after the other; otherwise it is one step, on the whole
  /// picture.
  bool by_bands = false;
  /// The first step makes bands, each of which needs the whole picture.
  bool looks_everywhere = false;
};

/// How a chain of steps is cut into bands of rows, so that they give the bytes that the whole
/// picture gives.
///
/// A step whose pixels look `Border::rows` up and down needs that many more rows of the picture
/// before it, as far as there are any. Beyond the sides of the picture its top-left pixel stands,
/// which an image shows in its own top-left pixel: bands that begin further down have one more row
/// on top for it.
class BandPlan {
 public:
  /// For a picture of this shape. Keeps `steps`. Throws as `ShapeAfter`, but for sizes.
  BandPlan(std::span<const Step> steps, const Shape& source, const ShapeOfPicture& second);

  std::span<const Step> steps() const { return steps_; }
  /// One after the other they have all the steps; a chain without steps is one stretch.
  const std::vector<Stretch>& stretches() const { return stretches_; }
  /// The picture before step `index`, or after the last one.
  const Shape& ShapeBefore(size_t index) const { return shapes_[index]; }
  const Shape& result() const { return shapes_.back(); }

  /// The rows of the pictures before each of the steps [begin, end) of a stretch by bands, and
  /// after the last, that rows of the last are made of.
  std::vector<RowRange> RowsFor(size_t begin, size_t end, RowRange result) const;
  /// Whether a step reads the top-left pixel of the picture before it for what lies outside.
  bool LooksOutside(size_t index) const;

 private:
  enum class Way { kRows, kEverywhere, kWhole };
  Way WayOf(size_t index, const ShapeOfPicture& second) const;

  std::span<const Step> steps_;
  std::vector<Shape> shapes_;
  std::vector<Stretch> stretches_;
};

/// A block of the picture after a step that keeps its size, and what it is made of.
struct Block {
  RowRange rows;     ///< of the result
  RowRange columns;  ///< of the result
  RowRange source_rows;
  RowRange source_columns;
  /// The top-left pixel of the source's block, which is not looked at as a pixel, must show that of
  /// the whole picture: what stands outside.
  bool needs_corner = false;
};

/// Cuts a picture, as high as the sum of `heights` and as wide as the sum of `widths`, into blocks
/// of these sizes for a step with this border, row by row. Blocks are as wide as the picture where
/// the step looks at whole rows. `border` may not be the whole picture.
std::vector<Block> CutIntoBlocks(const Border& border, std::span<const int> heights,
                                 std::span<const int> widths);

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_BANDS_BAND_PLAN_H_
