#include <algorithm>
#include <cmath>

#include "image/image_view.h"
#include "image/pixel_layout.h"
#include "maths/arithmetic_kernels.h"
#include "maths/maths.h"
#include "maths/row_walk.h"

namespace qel {
namespace {

bool SameFormat(const ImageShape& a, const ImageShape& b) {
  return a.bit_count == b.bit_count && a.model == b.model;
}

/// Adds two rows of channel values. Sums have 511 values: nearly every quotient of them is that by
/// a reciprocal (Granlund and Montgomery 1994), and all of them fit a table.
class Adder {
 public:
  explicit Adder(float divisor) : clamps_only_(divisor == 0.0f) {
    if (clamps_only_) return;
    // Deliberate: a divisor of 2 multiplies by four instead of halving.
    const float by = divisor == 2.0f ? 0.25f : divisor;
    has_factor_ = FindFactor(by);
    for (int sum = 0; !has_factor_ && sum <= kLargestByteSum; ++sum) {
      table_[sum] = ClampToByte(TruncateToInt(static_cast<float>(sum) / by));
    }
  }
  void operator()(const ArithmeticKernels& kernels, uint8_t* dest, const uint8_t* a,
                  const uint8_t* b, size_t values) const {
    if (clamps_only_) return kernels.add(dest, a, b, values);
    if (has_factor_) return kernels.add_scaled(dest, a, b, values, factor_);
    kernels.add_by_table(dest, a, b, values, table_);
  }

 private:
  /// Finds the factor that gives the quotients of all sums.
  bool FindFactor(float divisor) {
    // Others have factors that do not fit 16 bits, or quotients that are all 0.
    if (!(divisor > 1.0f / 64 && divisor <= kLargestByteSum)) return false;
    float reciprocal = 1024.0f / divisor;
    for (factor_.shift = 0; reciprocal < 32768.0f; ++factor_.shift) reciprocal *= 2;
    factor_.factor = static_cast<uint16_t>(std::min(std::ceil(reciprocal), 65535.0f));
    return ActiveArithmeticKernels().divides(factor_, divisor);
  }

  bool clamps_only_;
  bool has_factor_ = false;
  SumFactor factor_;
  uint8_t table_[512];
};

void AddPlane(const RowWalk& dest, const RowWalk& a, const RowWalk& b, int64_t values, int64_t rows,
              const Adder& add) {
  const ArithmeticKernels& kernels =
      KernelsFor(ActiveArithmeticKernels(), ArithmeticOneByOne(), dest, {a, b}, values, rows);
  WriteRows(dest, {a, b}, values, rows, [&](uint8_t* to, int64_t y, int64_t x, size_t count) {
    add(kernels, to, a.At(x, y), b.At(x, y), count);
  });
}

/// How `Subtract` treats a bit count and its flags.
struct Difference {
  int bytes = 0;  ///< per pixel; 0: not subtracted
  bool absolute = false;
  bool counted = false;
  uint8_t alpha = 0;

  Difference(int bit_count, int flags) : bytes(ExactPixelBytes(bit_count)) {
    // Deliberate: below 32 bits any flag selects the absolute difference, the one for alpha too.
    absolute = bytes == 4 ? (flags & 1) != 0 : flags != 0;
    counted = bytes != 1;
    alpha = (flags & 2) != 0 ? 0 : 255;
  }
  ArithmeticKernels::DifferenceRow Row(const ArithmeticKernels& kernels) const {
    if (bytes == 4) return absolute ? kernels.difference_pixels : kernels.subtract_pixels;
    return absolute ? kernels.difference_bytes : kernels.subtract_bytes;
  }
};

uint64_t SubtractPlane(const RowWalk& dest, const RowWalk& a, const RowWalk& b,
                       const Difference& difference, const ImageShape& area) {
  const size_t units = difference.bytes == 3 ? 3 : 1;  // of a pixel
  const auto row = difference.Row(KernelsFor(ActiveArithmeticKernels(), ArithmeticOneByOne(), dest,
                                             {a, b}, area.Columns(), area.Rows()));
  uint64_t tally = 0;
  WriteRows(dest, {a, b}, area.Columns(), area.Rows(),
            [&](uint8_t* to, int64_t y, int64_t x, size_t count) {
              tally += row(to, a.At(x, y), b.At(x, y), count * units, difference.alpha);
            });
  return tally;
}

RowWalk WalkOf(const ImageView& view, int64_t pixel_bytes) {
  return {view.bits, view.stride, pixel_bytes};
}

/// A weighted sum of two images where a mask selects; no mask bits select everything.
struct Mixture {
  RowWalk dest, a, b, mask;
  int computed;  ///< bytes of each pixel that take part
  int64_t columns, rows;

  void Write(const MixWeights& weights) const;

 private:
  bool EveryByte() const {
    return mask.bits == nullptr && dest.pixel_bytes == computed && a.pixel_bytes == computed &&
           b.pixel_bytes == computed;
  }
  bool Fits(const ArithmeticKernels::MixPixels& sizes) const {
    return sizes.dest_bytes == dest.pixel_bytes && sizes.a_bytes == a.pixel_bytes &&
           sizes.b_bytes == b.pixel_bytes && sizes.computed == computed;
  }
  /// For sizes of pixels that no kernel knows.
  void MixPixelsOfRow(int64_t y, const MixWeights& weights) const;
};

void Mixture::MixPixelsOfRow(int64_t y, const MixWeights& weights) const {
  for (int64_t x = 0; x < columns; ++x) {
    if (mask.Row(y)[x] == 0) continue;
    for (int i = 0; i < computed; ++i) {
      dest.Row(y)[x * dest.pixel_bytes + i] =
          weights(a.Row(y)[x * a.pixel_bytes + i], b.Row(y)[x * b.pixel_bytes + i]);
    }
  }
}

void Mixture::Write(const MixWeights& weights) const {
  const ArithmeticKernels& kernels =
      weights.Bounded() ? KernelsFor(ActiveArithmeticKernels(), ArithmeticOneByOne(), dest,
                                     {a, b, mask}, columns, rows)
                        : ArithmeticOneByOne();
  const auto* const pixels =
      std::find_if(std::begin(kernels.mix_pixels), std::end(kernels.mix_pixels),
                   [this](const auto& sizes) { return Fits(sizes); });
  for (int64_t y = 0; y < rows; ++y) {
    if (EveryByte()) {
      kernels.mix(dest.Row(y), a.Row(y), b.Row(y), static_cast<size_t>(columns * computed),
                  weights);
    } else if (pixels != std::end(kernels.mix_pixels)) {
      const uint8_t* const selected = mask.bits != nullptr ? mask.Row(y) : nullptr;
      pixels->row(dest.Row(y), a.Row(y), b.Row(y), selected, static_cast<size_t>(columns), weights);
    } else {
      MixPixelsOfRow(y, weights);
    }
  }
}

}  // namespace

result_t CQELMaths::Add(IQELImage* dest, IQEL* a, IQEL* b, float divisor) {
  if (dest == nullptr || a == nullptr || b == nullptr) return kFail;
  ImageShape shape, shape_b;
  ReadFormat(*a, shape);
  ReadFormat(*b, shape_b);
  if (!SameFormat(shape, shape_b)) return kFail;
  ReadSize(*a, shape);
  const NewPixels sum(*dest, shape);
  // Deliberate: rows of 4-byte pixels are added as if they were packed at three bytes. Alpha bytes
  // are added with the others, and the last quarter of a row stays as `Create` left it.
  const int64_t values = shape.Columns() * std::min(ExactPixelBytes(shape.bit_count), 3);
  const Adder add(divisor);
  for (int plane = 0; plane < shape.planes; ++plane) {
    const ImageView from_a = ReadPlane(*a, shape, plane);
    const ImageView from_b = ReadPlane(*b, shape, plane);
    const ImageView to = sum.Plane(plane);
    if (values == 0 || !from_a.HasPixels() || !from_b.HasPixels() || !to.HasPixels()) continue;
    AddPlane(WalkOf(to, 1), WalkOf(from_a, 1), WalkOf(from_b, 1), values, shape.Rows(), add);
  }
  return kOk;
}

result_t CQELMaths::Subtract(IQEL* dest, IQEL* a, IQEL* b, int flags) {
  if (dest == nullptr || a == nullptr || b == nullptr) return kInvalidArgument;
  ImageShape area, shape_b;
  ReadFormat(*a, area);
  ReadFormat(*b, shape_b);
  if (!SameFormat(area, shape_b)) return kFail;
  ReadSize(*a, area);
  ReadSize(*b, shape_b);
  area.width = SmallerUnsigned(area.width, shape_b.width);
  area.height = SmallerUnsigned(area.height, shape_b.height);
  const Difference difference(area.bit_count, flags);
  uint64_t tally = 0;
  for (int plane = 0; plane < area.planes; ++plane) {
    const ImageView from_a = ReadPlane(*a, area, plane);
    const ImageView from_b = ReadPlane(*b, area, plane);
    const ImageView to = ReadPlane(*dest, area, plane);
    const bool subtracts = difference.bytes != 0;
    if (!subtracts || !from_a.HasPixels() || !from_b.HasPixels() || !to.HasPixels()) continue;
    tally += SubtractPlane(WalkOf(to, difference.bytes), WalkOf(from_a, difference.bytes),
                           WalkOf(from_b, difference.bytes), difference, area);
  }
  // A tally is never a failure code.
  return difference.counted ? static_cast<result_t>(std::min<uint64_t>(tally, INT32_MAX)) : kOk;
}

result_t CQELMaths::AddScale(IQEL* dest, IQEL* a, IQEL* b, IQEL* mask, float factor_a,
                             float factor_b, float offset) {
  if (dest == nullptr || a == nullptr || b == nullptr) return kFail;
  const ImageShape shape_a = ReadShape(*a);
  const ImageShape shape_b = ReadShape(*b);
  const ImageShape shape = ReadShape(*dest);
  const bool same_depth =
      shape_a.bit_count == shape_b.bit_count && shape_a.bit_count == shape.bit_count;
  if (!same_depth && std::min({shape_a.bit_count, shape_b.bit_count, shape.bit_count}) <= 23) {
    return kFail;
  }
  const auto pixel_bytes = [=](const ImageShape& s) {
    return same_depth ? WholePixelBytes(s.bit_count) : s.bit_count <= 24 ? 3 : 4;
  };
  const ImageView from_a = ReadPlane(*a, shape_a, 0);
  const ImageView from_b = ReadPlane(*b, shape_b, 0);
  const ImageView to = ReadPlane(*dest, shape, 0);
  const ImageView selection = mask != nullptr ? ReadPlane(*mask, {}, 0) : ImageView{};
  const Mixture mixture = {.dest = WalkOf(to, pixel_bytes(shape)),
                           .a = WalkOf(from_a, pixel_bytes(shape_a)),
                           .b = WalkOf(from_b, pixel_bytes(shape_b)),
                           .mask = WalkOf(selection, 1),
                           .computed = same_depth ? pixel_bytes(shape) : 3,
                           .columns = std::min({from_a.width, from_b.width, to.width}),
                           .rows = std::min({from_a.height, from_b.height, to.height})};
  if (from_a.HasPixels() && from_b.HasPixels() && to.HasPixels() &&
      (mask == nullptr || selection.bits != nullptr)) {
    mixture.Write({factor_a, factor_b, offset});
  }
  // Deliberate: mixed depths with a mask are reported as failed although they were written.
  return same_depth || mask == nullptr ? kOk : kFail;
}

}  // namespace qel
