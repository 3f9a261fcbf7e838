#include <cmath>

#include "color/color_transform.h"
#include "color/index_remap.h"
#include "color/tone_kernels.h"
#include "component/result_image.h"
#include "image/numeric.h"

namespace qel {
namespace {

/// Calls `bytes(row, count)` for the rows of 8- and 24-bit images, whose bytes are all colour, and
/// `pixels(row, count)` for those of 32-bit images. Other depths have no colour rows.
template <typename Bytes, typename Pixels>
void ForEachColorRow(const ImageView& view, Bytes&& bytes, Pixels&& pixels) {
  const int pixel_bytes = ExactPixelBytes(view.bit_count);
  if (pixel_bytes == 0 || !view.HasPixels()) return;
  const auto columns = static_cast<size_t>(view.Columns());
  for (int64_t y = 0; y < view.Rows(); ++y) {
    if (pixel_bytes == 4) {
      pixels(view.Row(y), columns);
    } else {
      bytes(view.Row(y), columns * static_cast<size_t>(pixel_bytes));
    }
  }
}

/// Offsets of the three channels, ready for every pixel of a row.
class ChannelShift {
 public:
  ChannelShift(int red, int green, int blue) : offsets_{blue, green, red} {}

  /// The shifted value of one channel (0 blue, 1 green, 2 red). Sums wrap before they are clamped.
  uint8_t Apply(int channel, uint8_t value) const {
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
    for (size_t i = 0; i < kShiftPeriod; ++i) {
      const size_t channel = i % static_cast<size_t>(pixel_bytes);
      const int offset = channel < 3 ? offsets_[channel] : 0;
      add[i] = ClampToByte(offset);
      subtract[i] = static_cast<uint8_t>(offset < -255 ? 255 : offset < 0 ? -offset : 0);
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
  for (int64_t y = 0; y < view.Rows(); ++y) {
    uint8_t* const row = view.Row(y);
    if (shift.Saturates()) {
      ActiveToneKernels().shift_bytes(row, static_cast<size_t>(view.Columns() * pixel_bytes), add,
                                      subtract);
      continue;
    }
    for (int64_t x = 0; x < view.Columns(); ++x) {
      for (int c = 0; c < 3; ++c) {
        row[x * pixel_bytes + c] = shift.Apply(c, row[x * pixel_bytes + c]);
      }
    }
  }
}

/// Writes the grey version of `source` into `dest`, row by row.
void WriteGrey(const ImageView& source, const ImageView& dest) {
  if (!source.HasPixels() || !dest.HasPixels()) return;
  const ToneKernels& kernels = ActiveToneKernels();
  // Deliberate: 8-bit rows mix each byte with the two after it as if they were one colour, so the
  // last two pixels of a row read past its width.
  const auto row_function = source.bit_count == 8    ? kernels.mix_bytes
                            : source.bit_count == 24 ? kernels.mean3
                            : source.bit_count == 32 ? kernels.mean4
                                                     : nullptr;
  if (row_function == nullptr) return;
  for (int64_t y = 0; y < source.Rows(); ++y) {
    row_function(dest.Row(y), source.Row(y), static_cast<size_t>(source.Columns()));
  }
}

}  // namespace

result_t CQELColorTransform::Lut(IQEL* image, uint8_t* table) {
  if (image == nullptr || table == nullptr) return kFail;
  const ToneKernels& kernels = ActiveToneKernels();
  ForEachColorRow(
      ReadSizeBitsAndFormat(*image),
      [&](uint8_t* row, size_t n) { kernels.lut_bytes(row, n, table); },
      [&](uint8_t* row, size_t n) { kernels.lut_pixels(row, n, table); });
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
  const double exponent = static_cast<double>(1.0f / gamma);
  const double scale = std::pow(255.0, exponent) / 255.0;
  uint8_t table[256];
  for (int i = 0; i < 256; ++i) {
    const double value = std::pow(static_cast<double>(i), exponent) / scale;
    table[i] = ClampToByte(TruncateToInt(value));
  }
  return Lut(image, table);
}

result_t CQELColorTransform::ShiftRGB(IQEL* image, int red, int green, int blue) {
  if (image == nullptr) return kFail;
  const ImageView view = ReadSizeBitsAndFormat(*image);
  if (!view.HasPixels()) return kOk;
  const ChannelShift shift(red, green, blue);
  if (view.bit_count >= 24) {
    ShiftDirect(view, shift);
    return kOk;
  }
  uint8_t table[256];
  for (int i = 0; i < 256; ++i) {
    const auto grey = static_cast<uint8_t>(i);
    table[i] = NearestGrey(shift.Apply(0, grey), shift.Apply(1, grey), shift.Apply(2, grey));
  }
  RemapIndices(view, table);
  return kOk;
}

result_t CQELColorTransform::GrayScale(IQEL* image) {
  if (image == nullptr) return kFail;
  const ImageView source = ReadView(*image);
  ResultImage output = ResultImage::FromCollection();
  if (!output) return kFail;
  output.Create(source);
  WriteGrey(source, output.View());
  output.AssignTo(image);
  return kOk;
}

result_t CQELColorTransform::Threshold(IQEL* image, int level) {
  if (image == nullptr) return kFail;
  const int32_t limit = WrapMultiply(level, 3);
  GrayScale(image);
  const ImageView view = ReadSizeBitsAndFormat(*image);
  if (!view.HasPixels()) return kOk;
  if (view.bit_count < 24) {
    uint8_t table[256];
    for (int i = 0; i < 256; ++i) table[i] = 3 * i > limit ? 255 : 0;
    RemapIndices(view, table);
    return kOk;
  }
  const ToneKernels& kernels = ActiveToneKernels();
  const auto row_function =
      DirectPixelBytes(view.bit_count) == 4 ? kernels.threshold4 : kernels.threshold3;
  for (int64_t y = 0; y < view.Rows(); ++y) {
    row_function(view.Row(y), static_cast<size_t>(view.Columns()), limit);
  }
  return kOk;
}

}  // namespace qel
