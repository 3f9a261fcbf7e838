#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <numeric>

#include "color/color_rows.h"
#include "color/color_transform.h"
#include "color/tone_kernels.h"
#include "component/result_image.h"
#include "image/memory_reach.h"
#include "image/numeric.h"
#include "image/write_rows.h"

namespace qel {
namespace {

/// Calls `bytes(row, count)` for the rows of 8- and 24-bit images, whose bytes are all color, and
/// `pixels(row, count)` for those of 32-bit images. Other depths have no color rows.
template <typename Bytes, typename Pixels>
void ForEachColorRow(const ImageView& view, Bytes&& bytes, Pixels&& pixels) {
  const int pixel_bytes = ExactPixelBytes(view.bit_count);
  if (pixel_bytes == 0) return;
  ForEachRow(view, pixel_bytes, [&](uint8_t* row, size_t columns) {
    if (pixel_bytes == 4) {
      pixels(row, columns);
    } else {
      bytes(row, columns * static_cast<size_t>(pixel_bytes));
    }
  });
}

/// Offsets of the three channels, ready for every pixel of a row.
class ChannelShift {
 public:
  ChannelShift(int red, int green, int blue) : offsets_{blue, green, red} {}

  /// The shifted value of one channel (0 blue, 1 green, 2 red). Sums wrap before they are clamped.
  uint8_t Apply(size_t channel, uint8_t value) const {
    return ClampToByte(WrapAdd(value, offsets_[channel]));
  }
  /// False for offsets so large that some sums wrap: those are no saturating additions.
  bool Saturates() const {
    for (const int offset : offsets_) {
      if (offset > INT32_MAX - 255) return false;
    }
    return true;
  }
  /// Fills the patterns of `ToneKernels::shift_bytes`.
  void FillPatterns(int pixel_bytes, uint8_t (&add)[kShiftPeriod],
                    uint8_t (&subtract)[kShiftPeriod]) const {
    for (size_t i = 0; i < kShiftPeriod; i += static_cast<size_t>(pixel_bytes)) {
      for (size_t c = 0; c < static_cast<size_t>(pixel_bytes); ++c) {
        const int offset = c < 3 ? offsets_[c] : 0;
        add[i + c] = ClampToByte(offset);
        subtract[i + c] = static_cast<uint8_t>(offset < -255 ? 255 : offset < 0 ? -offset : 0);
      }
    }
  }

 private:
  int offsets_[3];
};

void ShiftDirect(const ImageView& view, const ChannelShift& shift) {
  const int pixel_bytes = DirectPixelBytes(view.bit_count);
  uint8_t add[kShiftPeriod];
  uint8_t subtract[kShiftPeriod];
  shift.FillPatterns(pixel_bytes, add, subtract);
  ForEachRow(view, pixel_bytes, [&](uint8_t* row, size_t pixels) {
    const auto bytes = static_cast<size_t>(pixel_bytes);
    if (shift.Saturates()) {
      return ActiveToneKernels().shift_bytes(row, pixels * bytes, add, subtract);
    }
    for (size_t x = 0; x < pixels; ++x) {
      for (size_t c = 0; c < 3; ++c) row[x * bytes + c] = shift.Apply(c, row[x * bytes + c]);
    }
  });
}

/// Palette indices take the gray nearest to their shifted color.
void ShiftIndices(const ImageView& view, const ChannelShift& shift) {
  if (view.bit_count == 8 && shift.Saturates()) {
    uint8_t add[kShiftPeriod];
    uint8_t subtract[kShiftPeriod];
    shift.FillPatterns(3, add, subtract);
    return ForEachRow(view, 1, [&](uint8_t* row, size_t pixels) {
      ActiveToneKernels().shift_grays(row, pixels, add, subtract);
    });
  }
  uint8_t table[256];
  for (int i = 0; i < 256; ++i) {
    const auto gray = static_cast<uint8_t>(i);
    table[i] = NearestGray(shift.Apply(0, gray), shift.Apply(1, gray), shift.Apply(2, gray));
  }
  RemapIndices(view, table);
}

/// log2(x) for x above 0 and up to 1, by the series of the area tangent.
constexpr double Log2(double x) {
  double whole = 0;
  for (; x < 1; x *= 2) --whole;
  const double y = (x - 1) / (x + 1);  // at most a third
  double sum = 0, power = y;
  for (int k = 1; k < 40; k += 2, power *= y * y) sum += power / k;
  return whole + 2 * sum / std::numbers::ln2;
}

/// log2(i / 255); for 0 a number that makes the least of all powers.
alignas(64) constexpr auto kLogarithms = [] {
  std::array<float, 256> logarithms{};
  logarithms[0] = -1e9f;
  for (size_t i = 1; i < 256; ++i) {
    logarithms[i] = static_cast<float>(Log2(static_cast<double>(i) / 255));
  }
  return logarithms;
}();

/// trunc(i^exponent / scale) with scale = 255^exponent / 255, clamped to a byte, for all bytes i.
/// Estimates decide where they do not lie near a whole number; about one value in 500 is left for
/// the mathematics library.
void FillGammaTable(float exponent, uint8_t (&table)[256]) {
  const auto power = static_cast<double>(exponent);
  const double scale = std::pow(255.0, power) / 255.0;
  const auto exactly = [=](int i) {
    return ClampToByte(TruncateToInt(std::pow(static_cast<double>(i), power) / scale));
  };
  if (exponent == 1.0f) {  // no estimate tells one whole number from the next
    std::iota(std::begin(table), std::end(table), uint8_t{0});
    return;
  }
  if (!(exponent >= 1.0f / 64 && exponent <= 64.0f)) {
    for (int i = 0; i < 256; ++i) table[i] = exactly(i);
    return;
  }
  uint8_t most[256];
  ActiveToneKernels().bracket_powers(exponent, kLogarithms.data(), table, most);
  for (int i = 0; i < 256; ++i) {
    if (table[i] != most[i]) table[i] = exactly(i);
  }
}

/// Writes the gray version of `source` into `dest`, row by row.
void WriteGray(const ImageView& source, const ImageView& dest) {
  if (!source.HasPixels() || !dest.HasPixels()) return;
  const ToneKernels& kernels = ActiveToneKernels();
  // Deliberate: 8-bit rows mix each byte with the two after it as if they were one color, so the
  // last two pixels of a row read past its width.
  const auto row_function = source.bit_count == 8    ? kernels.mix_bytes
                            : source.bit_count == 24 ? kernels.mean3
                            : source.bit_count == 32 ? kernels.mean4
                                                     : nullptr;
  if (row_function == nullptr) return;
  const int64_t pixel_bytes = source.bit_count / 8;
  const int64_t row_bytes = source.Columns() * pixel_bytes;
  const MemoryReach read(source.bits, source.stride, row_bytes, source.Rows());
  const bool apart = !read.Meets({dest.bits, dest.stride, row_bytes, source.Rows()});
  WriteRows(dest.bits, dest.stride, pixel_bytes, source.Columns(), source.Rows(), apart,
            [&](uint8_t* to, int64_t y, int64_t x, size_t count) {
              row_function(to, source.Row(y) + x * pixel_bytes, count);
            });
}

}  // namespace

result_t CQELColorTransform::Lut(IQEL* image, uint8_t* table) {
  if (image == nullptr || table == nullptr) return kFail;
  const ToneKernels& kernels = ActiveToneKernels();
  const ImageView view = ReadSizeBitsAndFormat(*image);
  const ByteMap map = MapFor(view, table);
  ForEachColorRow(
      view, [&](uint8_t* row, size_t n) { kernels.lut_bytes(row, n, map); },
      [&](uint8_t* row, size_t n) { kernels.lut_pixels(row, n, map); });
  return kOk;
}

result_t CQELColorTransform::Negative(IQEL* image) {
  if (image == nullptr) return kFail;
  const ToneKernels& kernels = ActiveToneKernels();
  ForEachColorRow(ReadSizeBitsAndFormat(*image), kernels.invert_bytes, kernels.invert_pixels);
  return kOk;
}

result_t CQELColorTransform::Light(IQEL* image, int brightness, int contrast) {
  const float scale = static_cast<float>(WrapAdd(contrast, 100)) / 100.0f;
  const auto offset = static_cast<float>(WrapAdd(brightness, 128));
  uint8_t table[256];
  for (int i = 0; i < 256; ++i) {
    table[i] = ClampToByte(TruncateToInt(static_cast<float>(i - 128) * scale + offset));
  }
  return Lut(image, table);
}

result_t CQELColorTransform::Gamma(IQEL* image, float gamma) {
  uint8_t table[256];
  FillGammaTable(1.0f / gamma, table);
  return Lut(image, table);
}

result_t CQELColorTransform::ShiftRGB(IQEL* image, int red, int green, int blue) {
  if (image == nullptr) return kFail;
  const ImageView view = ReadSizeBitsAndFormat(*image);
  if (!view.HasPixels()) return kOk;
  const ChannelShift shift(red, green, blue);
  if (view.bit_count >= 24) {
    ShiftDirect(view, shift);
  } else {
    ShiftIndices(view, shift);
  }
  return kOk;
}

result_t CQELColorTransform::GrayScale(IQEL* image) {
  if (image == nullptr) return kFail;
  const ImageView source = ReadView(*image);
  ResultImage output = ResultImage::FromCollection();
  if (!output) return kFail;
  output.Create(source);
  WriteGray(source, output.View());
  output.AssignTo(image);
  return kOk;
}

result_t CQELColorTransform::Threshold(IQEL* image, int level) {
  if (image == nullptr) return kFail;
  const int32_t limit = WrapMultiply(level, 3);
  GrayScale(image);
  const ImageView view = ReadSizeBitsAndFormat(*image);
  if (!view.HasPixels()) return kOk;
  const ToneKernels& kernels = ActiveToneKernels();
  if (view.bit_count == 8) {
    const auto highest_black = static_cast<uint8_t>(std::clamp(limit, 0, 3 * 255) / 3);
    ForEachRow(view, 1, [&](uint8_t* row, size_t pixels) {
      kernels.threshold_bytes(row, pixels, highest_black, limit < 0 ? 255 : 0);
    });
    return kOk;
  }
  if (view.bit_count < 24) {
    uint8_t table[256];
    for (int i = 0; i < 256; ++i) table[i] = 3 * i > limit ? 255 : 0;
    RemapIndices(view, table);
    return kOk;
  }
  const int pixel_bytes = DirectPixelBytes(view.bit_count);
  ForEachRow(view, pixel_bytes, [&](uint8_t* row, size_t pixels) {
    (pixel_bytes == 4 ? kernels.threshold4 : kernels.threshold3)(row, pixels, limit);
  });
  return kOk;
}

}  // namespace qel
