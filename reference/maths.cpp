#include <algorithm>
#include <cstring>

#include "reference/operations.h"
#include "reference/pixels.h"

namespace qel::reference {
namespace {

int UnsignedMin(int a, int b) {
  return static_cast<int>(std::min(static_cast<uint32_t>(a), static_cast<uint32_t>(b)));
}

/// Whether the mask, where one is given, selects the pixel.
bool IsSelected(const Raster* mask, int64_t x, int64_t y) {
  return mask == nullptr || mask->Row(y)[x] != 0;
}

bool LacksPixels(const Raster* mask) { return mask != nullptr && mask->Bits() == nullptr; }

bool CanCopy(int source_bits, int dest_bits) {
  if (source_bits == dest_bits) return true;
  if (source_bits == 8) return dest_bits == 24 || dest_bits == 32;
  if (source_bits == 24) return dest_bits == 32 || dest_bits == 8;
  if (source_bits == 32) return dest_bits == 24 || dest_bits == 8;
  return false;
}

void CopyRow(uint8_t* d, int dest_bits, const uint8_t* s, int source_bits, int64_t width,
             bool only_zeros) {
  if (source_bits == dest_bits && !only_zeros) {
    std::memmove(d, s, static_cast<size_t>(source_bits / 8 * width));
    return;
  }
  if (source_bits == dest_bits) {
    for (int64_t i = 0; i < source_bits / 8 * width; ++i) {
      if (d[i] == 0) d[i] = s[i];
    }
    return;
  }
  for (int64_t x = 0; x < width; ++x) {
    const uint8_t* from = s + x * (source_bits / 8);
    uint8_t* to = d + x * (dest_bits / 8);
    if (dest_bits == 8) {
      to[0] = static_cast<uint8_t>((from[0] + from[1] + from[2]) / 3);
      continue;
    }
    for (int i = 0; i < 3; ++i) to[i] = source_bits == 8 ? from[0] : from[i];
    if (dest_bits == 32) to[3] = 255;
  }
}

/// Expands a row of 5-6-5 pixels to three bytes each, blue first or red first.
void ExpandRow(uint8_t* d, const uint8_t* s, int64_t width, bool red_first) {
  for (int64_t x = 0; x < width; ++x) {
    const int v = s[2 * x] | s[2 * x + 1] << 8;
    const int b = (v & 0x1F) * 8;
    const int g = ((v / 32) & 0x3F) * 4;
    const int r = (v / 2048) * 8;
    d[3 * x] = static_cast<uint8_t>(red_first ? r : b);
    d[3 * x + 1] = static_cast<uint8_t>(g);
    d[3 * x + 2] = static_cast<uint8_t>(red_first ? b : r);
  }
}

uint8_t Quotient(int sum, float divisor) {
  if (divisor == 2.0f) {
    sum *= 4;
  } else if (divisor != 0.0f) {
    sum = TruncateToInt(static_cast<float>(sum) / divisor);
  }
  return static_cast<uint8_t>(ClampToByte(sum));
}

uint8_t FullClamp(float v) {
  if (v < 0.0f) return 0;
  if (v > 255.0f) return 255;
  return static_cast<uint8_t>(TruncateToInt(v) & 255);
}

int32_t LowerClamp(float v) { return v < 0.0f ? 0 : TruncateToInt(v); }

uint8_t Mixed(uint8_t a, uint8_t b, float factor_a, float factor_b, float offset) {
  const float product_a = static_cast<float>(a) * factor_a;
  const float product_b = static_cast<float>(b) * factor_b;
  return FullClamp((product_a + product_b) + offset);
}

/// Maps the samples of one pixel, by source and destination depth.
struct PixelScaler {
  float factor;
  float offset;

  float Map(float sample) const { return sample * factor + offset; }
  uint8_t Byte(float sample) const { return FullClamp(Map(sample)); }

  void FromWord(uint8_t* d, int dest_bits, bool to_words, const uint8_t* s) const {
    const auto sample = static_cast<float>(LoadWord(s));
    if (to_words) return StoreWord(d, LowerClamp(Map(sample)));
    for (int i = 0; i < (dest_bits == 8 ? 1 : 3); ++i) d[i] = Byte(sample);
  }

  void FromColor(uint8_t* d, int dest_bits, const uint8_t* s, int source_bits,
                 bool is_first) const {
    if (dest_bits == 8) {
      const float sum =
          (static_cast<float>(s[0]) + static_cast<float>(s[1])) + static_cast<float>(s[2]);
      d[0] = PixelScaler{factor / 3.0f, offset}.Byte(sum);
    } else if (dest_bits == 24) {
      for (int i = 0; i < 3; ++i) d[i] = Byte(s[i]);
    } else if (source_bits == 32 || is_first) {
      for (int i = 0; i < source_bits / 8; ++i) {
        d[i] = static_cast<uint8_t>(LowerClamp(Map(s[i])) & 255);
      }
    }
  }
};

}  // namespace

result_t CreateDestImage(const Raster& model, int bit_count, int color_model, Raster& result) {
  result.Create(model.width, model.height, model.planes,
                bit_count != 0 ? bit_count : model.bit_count,
                color_model != 0 ? static_cast<uint32_t>(color_model) : model.model);
  return kOk;
}

result_t Copy(Raster& dest, const Raster& source, const Raster* mask, int x, int y) {
  if (static_cast<uint32_t>(x) >= static_cast<uint32_t>(dest.width) ||
      static_cast<uint32_t>(y) >= static_cast<uint32_t>(dest.height)) {
    return kFail;
  }
  const int64_t width = std::min(int64_t{source.width}, int64_t{dest.width} - x);
  const int64_t height = std::min(int64_t{source.height}, int64_t{dest.height} - y);
  if (height <= 0) return kOk;
  const bool can_copy = CanCopy(source.bit_count, dest.bit_count);
  const result_t result = can_copy ? kOk : kFail;
  if (source.Bits() == nullptr || dest.Bits() == nullptr) return result;
  const bool expands = source.bit_count == 16 && dest.bit_count == 24 &&
                       source.model == kModelBgr && (dest.model == kModelBgr || dest.model == 0);
  for (int64_t r = 0; r < height; ++r) {
    uint8_t* d = dest.Row(y + r) + int64_t{x} * (dest.bit_count / 8);
    if (can_copy) {
      CopyRow(d, dest.bit_count, source.Row(r), source.bit_count, width, mask == &dest);
    } else if (expands) {
      ExpandRow(d, source.Bits() + 2 * r * (source.stride / 2), width, dest.model == 0);
    }
  }
  return result;
}

result_t Add(Raster& dest, const Raster& a, const Raster& b, float divisor) {
  if (a.bit_count != b.bit_count || a.model != b.model) return kFail;
  const int width = a.width;
  const int height = a.height;
  const int planes = a.planes;
  const int bit_count = a.bit_count;
  dest.Create(width, height, planes, bit_count, a.model);
  if (bit_count != 8 && bit_count != 24 && bit_count != 32) return kOk;
  const int64_t samples = int64_t{width} * (bit_count == 8 ? 1 : 3);
  for (int plane = 0; plane < planes; ++plane) {
    if (!a.Bits(plane) || !b.Bits(plane) || !dest.Bits(plane)) continue;
    for (int64_t y = 0; y < height; ++y) {
      for (int64_t i = 0; i < samples; ++i) {
        const int sum = a.Row(y, plane)[i] + b.Row(y, plane)[i];
        dest.Row(y, plane)[i] = Quotient(sum, divisor);
      }
    }
  }
  return kOk;
}

result_t Subtract(Raster& dest, const Raster& a, const Raster& b, int flags) {
  if (a.bit_count != b.bit_count || a.model != b.model) return kFail;
  const int bit_count = a.bit_count;
  if (bit_count != 8 && bit_count != 24 && bit_count != 32) return kOk;
  const int64_t width = UnsignedMin(a.width, b.width);
  const int64_t height = UnsignedMin(a.height, b.height);
  const int bytes = bit_count / 8;
  const bool is_absolute = bit_count == 32 ? (flags & 1) != 0 : flags != 0;
  int tally = 0;
  for (int plane = 0; plane < a.planes; ++plane) {
    if (!a.Bits(plane) || !b.Bits(plane) || !dest.Bits(plane)) continue;
    for (int64_t y = 0; y < height; ++y) {
      for (int64_t x = 0; x < width; ++x) {
        for (int i = 0; i < std::min(bytes, 3); ++i) {
          const int64_t at = x * bytes + i;
          int d = a.Row(y, plane)[at] - b.Row(y, plane)[at];
          if (d < 0) d = is_absolute ? -d : 0;
          if (bit_count != 8 && d >= 2) ++tally;
          dest.Row(y, plane)[at] = static_cast<uint8_t>(std::min(d, 255));
        }
        if (bit_count == 32) dest.Row(y, plane)[x * 4 + 3] = (flags & 2) != 0 ? 0 : 255;
      }
    }
  }
  return tally;
}

result_t AddScale(Raster& dest, const Raster& a, const Raster& b, const Raster* mask,
                  float factor_a, float factor_b, float offset) {
  const bool same_depth = a.bit_count == b.bit_count && a.bit_count == dest.bit_count;
  if (!same_depth && (a.bit_count <= 23 || b.bit_count <= 23 || dest.bit_count <= 23)) {
    return kFail;
  }
  const result_t result = same_depth || mask == nullptr ? kOk : kFail;
  if (!a.Bits() || !b.Bits() || !dest.Bits() || LacksPixels(mask)) return result;
  const int64_t width = std::min({a.width, b.width, dest.width});
  const int64_t height = std::min({a.height, b.height, dest.height});
  const auto pixel_bytes = [&](const Raster& image) {
    if (same_depth) return image.bit_count / 8;
    return image.bit_count <= 24 ? 3 : 4;
  };
  const int computed = same_depth ? dest.bit_count / 8 : 3;
  for (int64_t y = 0; y < height; ++y) {
    for (int64_t x = 0; x < width; ++x) {
      if (!IsSelected(mask, x, y)) continue;
      for (int i = 0; i < computed; ++i) {
        dest.Row(y)[x * pixel_bytes(dest) + i] =
            Mixed(a.Row(y)[x * pixel_bytes(a) + i], b.Row(y)[x * pixel_bytes(b) + i], factor_a,
                  factor_b, offset);
      }
    }
  }
  return result;
}

result_t Scale(Raster& dest, const Raster& source, const Raster* mask, float factor, float offset) {
  const int from = source.bit_count;
  const int to = dest.bit_count;
  const bool from_mono = source.model == kModelMono;
  const bool to_mono = dest.model == kModelMono;
  if (from != 8 && from != 24 && from != 32) return kFail;
  if (to != 8 && to != 24 && to != 32) return kFail;
  if (from == 24 && from_mono) return kFail;
  if (from == 8 && to == 32 && !to_mono) return kFail;

  const int64_t width = UnsignedMin(source.width, dest.width);
  const int64_t height = UnsignedMin(source.height, dest.height);
  const bool gray_to_gray = from == 8 && to == 8;
  const bool reads_words = (from == 32 && from_mono) || (from == 8 && to == 32);
  const bool writes_words = reads_words && to == 32 && to_mono;
  const int64_t dest_step = writes_words ? 4 * (dest.stride / 4) : dest.stride;
  int64_t source_step = source.stride;
  if (reads_words) source_step = int64_t{4} * (from == 8 ? source.stride : source.stride / 4);
  const Raster* used_mask = gray_to_gray ? mask : nullptr;
  const PixelScaler scaler = {factor, offset};
  for (int plane = 0; plane < (gray_to_gray ? 1 : source.planes); ++plane) {
    if (!source.Bits(plane) || !dest.Bits(plane) || LacksPixels(used_mask)) continue;
    for (int64_t y = 0; y < height; ++y) {
      for (int64_t x = 0; x < width; ++x) {
        const uint8_t* s = source.Bits(plane) + y * source_step + x * (reads_words ? 4 : from / 8);
        uint8_t* d = dest.Bits(plane) + y * dest_step + x * (to / 8);
        if (reads_words) {
          scaler.FromWord(d, to, writes_words, s);
        } else if (from != 8) {
          scaler.FromColor(d, to, s, from, x == 0);
        } else if (IsSelected(used_mask, x, y)) {
          for (int i = 0; i < to / 8; ++i) d[i] = scaler.Byte(s[0]);
        }
      }
    }
  }
  return kOk;
}

result_t Scale8(Raster& dest, const Raster& source, int offset, double factor) {
  if (source.model != kModelMono) return kNotMono;
  if (source.bit_count < 8) return kInvalidArgument;
  const int width = source.width;
  const int height = source.height;
  const int planes = source.planes;
  const int bit_count = source.bit_count;
  dest.Create(width, height, planes, 8, kModelMono);
  if (bit_count == 8) return kOk;
  for (int plane = 0; plane < planes; ++plane) {
    if (!source.Bits(plane) || !dest.Bits(plane)) continue;
    const uint32_t stride_samples =
        static_cast<uint32_t>(source.stride) / static_cast<uint32_t>(bit_count / 8);
    // A negative stride survives the unsigned division only modulo 2^32.
    const auto step = static_cast<int32_t>(4 * stride_samples);
    for (int64_t y = 0; y < height; ++y) {
      for (int64_t x = 0; x < width; ++x) {
        const int32_t sample = LoadWord(source.Bits(plane) + y * step + 4 * x);
        const int product = TruncateToInt(static_cast<double>(sample) * factor);
        dest.Row(y, plane)[x] = static_cast<uint8_t>(ClampToByte(WrappedSum(product, offset)));
      }
    }
  }
  return kOk;
}

result_t Equal(Raster& image, const Raster* mask, int value) {
  const bool is_bytes = image.bit_count == 8;
  const bool is_color = image.bit_count == 24 && image.model != kModelMono;
  const bool is_words =
      !is_bytes && (image.model == kModelMono ? image.bit_count > 8 : image.bit_count == 32);
  if (!is_bytes && !is_color && !is_words) return kOk;
  const Raster* used_mask = is_color ? nullptr : mask;
  if (LacksPixels(used_mask)) return kOk;
  const int64_t step =
      is_words ? int64_t{4} * (image.stride / (image.bit_count / 8)) : int64_t{image.stride};
  const auto bits = static_cast<uint32_t>(value);
  for (int plane = 0; plane < image.planes; ++plane) {
    if (!image.Bits(plane)) continue;
    for (int64_t y = 0; y < image.height; ++y) {
      uint8_t* row = image.Bits(plane) + y * step;
      for (int64_t x = 0; x < image.width; ++x) {
        if (!IsSelected(used_mask, x, y)) continue;
        if (is_bytes) row[x] = static_cast<uint8_t>(bits);
        if (is_words) StoreWord(row + 4 * x, value);
        for (int i = 0; is_color && i < 3; ++i) {
          row[3 * x + i] = static_cast<uint8_t>(bits >> (16 - 8 * i));
        }
      }
    }
  }
  return kOk;
}

}  // namespace qel::reference
