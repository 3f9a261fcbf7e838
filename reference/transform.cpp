#include <algorithm>
#include <cmath>
#include <cstring>

#include "reference/operations.h"
#include "reference/pixels.h"

namespace qel::reference {
namespace {

uint32_t SampleOf(const Raster& image, float x, float y, int method) {
  return Interpolated(image.Bits(), x, y, image.width, image.height, image.stride, method,
                      image.bit_count);
}

/// Start of row y when the stride counts whole 32-bit words.
uint8_t* WordRow(Raster& image, int64_t y, int plane) {
  return image.Bits(plane) + 4 * y * (image.stride / 4);
}
const uint8_t* WordRow(const Raster& image, int64_t y, int plane) {
  return WordRow(const_cast<Raster&>(image), y, plane);
}

/// The turned rectangle: size of its bounding box and where its first pixel lies.
struct TurnedBox {
  int width, height;
  float start_x, start_y;
};

TurnedBox TurnBox(int w, int h, float k, float s) {
  const float right = static_cast<float>(w) - 0.5f;
  const float bottom = static_cast<float>(h) - 0.5f;
  const float corners[4][2] = {{-0.5f, -0.5f}, {right, -0.5f}, {-0.5f, bottom}, {right, bottom}};
  float xs[4], ys[4];
  for (int i = 0; i < 4; ++i) {
    xs[i] = k * corners[i][0] - s * corners[i][1];
    ys[i] = s * corners[i][0] + k * corners[i][1];
  }
  const auto [min_x, max_x] = std::minmax({xs[0], xs[1], xs[2], xs[3]});
  const auto [min_y, max_y] = std::minmax({ys[0], ys[1], ys[2], ys[3]});
  TurnedBox box;
  box.width = TruncateToInt(std::floor(max_x - min_x + 0.5f));
  box.height = TruncateToInt(std::floor(max_y - min_y + 0.5f));
  box.start_x = (min_x + max_x - static_cast<float>(box.width - 1)) * 0.5f;
  box.start_y = (min_y + max_y - static_cast<float>(box.height - 1)) * 0.5f;
  return box;
}

}  // namespace

result_t Flip(const Raster& source, Raster& result) {
  CreateLike(source, result);
  if (source.Bits() == nullptr || result.Bits() == nullptr) return kOk;
  const int bytes = std::min(std::abs(source.stride), std::abs(result.stride));
  for (int i = 0; i < source.height; ++i) {
    std::memcpy(result.Row(i), source.Row(source.height - 1 - i), static_cast<size_t>(bytes));
  }
  return kOk;
}

result_t Mirror(const Raster& source, Raster& result) {
  CreateLike(source, result);
  const int bytes = source.bit_count == 8    ? 1
                    : source.bit_count == 24 ? 3
                    : source.bit_count == 32 ? 4
                                             : 0;
  if (bytes == 0) return kOk;
  ForEachPixel(source, [&](int x, int y) {
    std::copy_n(source.Row(y) + (source.width - 1 - x) * bytes, bytes, result.Row(y) + x * bytes);
  });
  return kOk;
}

result_t FlipBits(Raster& image) {
  const int bytes = image.bit_count / 8;
  if (image.bit_count != 24 && image.bit_count != 32) return kOk;
  ForEachPixel(image, [&](int x, int y) {
    std::swap(image.Row(y)[x * bytes], image.Row(y)[x * bytes + 2]);
  });
  return kOk;
}

result_t FlipImageAndBits(Raster& image) {
  if (image.bit_count != 24 && image.bit_count != 32) return kOk;
  if (image.Bits() == nullptr) return kOk;
  const int bytes = image.bit_count / 8;
  for (int y = 0; y < image.height / 2; ++y) {
    uint8_t* top = image.Row(y);
    uint8_t* bottom = image.Row(image.height - 1 - y);
    for (int x = 0; x < image.width; ++x) {
      for (int b = 0; b < 3; ++b) {
        // The bottom's bytes 2, 1, 0 come to the top's 0, 1, 2 and the other way round.
        std::swap(top[x * bytes + b], bottom[x * bytes + 2 - b]);
      }
    }
  }
  if (image.height % 2 == 1 && image.width >= 2) {
    uint8_t* middle = image.Row(image.height / 2);
    for (int i = 0; i < image.width / 2; ++i) std::swap(middle[4 * i], middle[4 * i + 2]);
  }
  return kOk;
}

result_t Rotate4(const Raster& source, Raster& dest, int angle) {
  if (angle != 90 && angle != 180 && angle != 270) return kOk;
  const int w = source.width;
  const int h = source.height;
  if (angle == 180) {
    dest.Create(w, h, source.planes, source.bit_count, source.model);
  } else {
    dest.Create(h, w, source.planes, source.bit_count, source.model);
  }
  const int bytes = source.bit_count / 8;
  for (int plane = 0; bytes >= 1 && plane < source.planes; ++plane) {
    if (source.Bits(plane) == nullptr || dest.Bits(plane) == nullptr) continue;
    ForEachPixel(dest, [&](int x, int y) {
      int sx = angle == 180 ? w - 1 - x : angle == 270 ? w - 1 - y : y;
      const int sy = angle == 180 ? h - 1 - y : angle == 270 ? x : h - 1 - x;
      if (angle == 180 && bytes != 1 && bytes != 4) --sx;
      const uint8_t* from = bytes == 4 ? WordRow(source, sy, plane) : source.Row(sy, plane);
      uint8_t* to = bytes == 4 ? WordRow(dest, y, plane) : dest.Row(y, plane);
      std::copy_n(from + sx * bytes, bytes, to + x * bytes);
    });
  }
  return kOk;
}

result_t IncreaseBpp(const Raster& source, Raster& result, int bit_count, uint32_t model) {
  if (static_cast<uint32_t>(bit_count) <= static_cast<uint32_t>(source.bit_count)) {
    result = source;  // the very image
    return kNothingToDo;
  }
  if (!result.Create(source.width, source.height, source.planes, bit_count, model)) {
    result = Raster();
    return kInvalidArgument;
  }
  const bool indexed = source.bit_count <= 8;
  ForEachPixel(source, [&](int x, int y) {
    uint8_t* to = result.Row(y) + x * (bit_count / 8);
    if (indexed && (bit_count == 24 || bit_count == 32)) {
      const uint8_t index = source.Row(y)[x];
      if (source.palette.empty()) {
        to[0] = to[1] = to[2] = index;
        if (bit_count == 32) to[3] = 255;
      } else {
        to[0] = source.palette[index].blue;
        to[1] = source.palette[index].green;
        to[2] = source.palette[index].red;
      }
    } else if (source.bit_count == 24 && bit_count == 32) {
      std::copy_n(source.Row(y) + 3 * x, 3, to);
      to[3] = 255;
    }
  });
  return kOk;
}

result_t Resample(const Raster& source, Raster& result, int new_width, int new_height, int method,
                  int nearest_only) {
  const float x_scale = static_cast<float>(source.width) / static_cast<float>(new_width);
  const float y_scale = static_cast<float>(source.height) / static_cast<float>(new_height);
  const int bpp = source.bit_count;
  result.Create(new_width, new_height, source.planes, bpp, source.model);
  if (new_width == source.width && new_height == source.height) {
    result.Assign(source);
    return kOk;
  }
  const bool copies = bpp == 32 || bpp == 24 || bpp == 16 || bpp == 8;
  const bool nearest =
      ((x_scale <= 1.0f && method == 0 && y_scale <= 1.0f) || nearest_only != 0) && copies;
  const bool box = !nearest && x_scale >= 1.0f && y_scale >= 1.0f && nearest_only == 0;
  if (result.Bits() == nullptr) return kOk;
  const bool empty = source.Bits() == nullptr || source.width <= 0 || source.height <= 0;
  if ((nearest || box) && empty) return kOk;
  const int box_width = TruncateToInt(x_scale);
  const int box_height = TruncateToInt(y_scale);
  const int step = bpp == 32 ? 4 : bpp == 24 ? 3 : 1;
  ForEachPixel(result, [&](int x, int y) {
    const auto sx = static_cast<int64_t>(std::floor(static_cast<float>(x) * x_scale));
    const float sy = std::floor(static_cast<float>(y) * y_scale);
    const auto row_offset = static_cast<int64_t>(static_cast<float>(source.stride) * sy);
    if (nearest) {
      std::copy_n(source.Bits() + row_offset + sx * (bpp / 8), bpp / 8,
                  result.Row(y) + x * (bpp / 8));
    } else if (box) {
      const uint8_t* start = source.Bits() + row_offset + sx * step;
      for (int c = 0; c < std::min(step, 3); ++c) {
        uint32_t sum = 0;
        for (int j = 0; j < box_height; ++j) {
          for (int i = 0; i < box_width; ++i) {
            sum += start[int64_t{j} * source.stride + i * step + c];
          }
        }
        result.Row(y)[x * step + c] =
            static_cast<uint8_t>(sum / static_cast<uint32_t>(box_width * box_height));
      }
    } else {
      const float px = (static_cast<float>(x) + 0.5f) * x_scale - 0.5f;
      const float py = (static_cast<float>(y) + 0.5f) * y_scale - 0.5f;
      SetPixelOf(result, x, y, SampleOf(source, px, py, method));
    }
  });
  return kOk;
}

result_t Rotate(const Raster& source, Raster& result, int angle, int method, int force_alpha,
                int keep_size) {
  if (angle == 0) {
    result = source;  // the very image
    return kOk;
  }
  if (angle == -90) angle = 270;
  if (angle == 90 || angle == 180 || angle == 270) return Rotate4(source, result, angle);
  const int w = source.width;
  const int h = source.height;
  const float theta = static_cast<float>(WrappedProduct(angle, -1)) * 1.5707964f / 90.0f;
  const float k = static_cast<float>(std::cos(static_cast<double>(theta)));
  const float s = static_cast<float>(std::sin(static_cast<double>(theta)));
  const int bits = force_alpha != 0 ? 32 : source.bit_count;
  TurnedBox box = TurnBox(w, h, k, s);
  float shift_x = 0.0f, shift_y = 0.0f;
  if (keep_size != 0) {
    const float right = static_cast<float>(w) - 0.5f;
    const float bottom = static_cast<float>(h) - 0.5f;
    box = {w, h, (-0.5f + right - static_cast<float>(WrappedSum(w, -1))) * 0.5f,
           (-0.5f + bottom - static_cast<float>(WrappedSum(h, -1))) * 0.5f};
    box.start_x -= static_cast<float>(w) * 0.5f;
    box.start_y -= static_cast<float>(h) * 0.5f;
    shift_x = static_cast<float>(box.width) * 0.5f;
    shift_y = static_cast<float>(box.height) * 0.5f;
  }
  if (!result.Create(box.width, box.height, source.planes, bits,
                     force_alpha != 0 ? 0 : source.model)) {
    return kOk;
  }
  result.Fill((PixelOf(source, 0, 0) & 0xFFFFFF) | 0xFF000000);
  if (result.Bits() == nullptr) return kOk;
  const int step = bits == 32 ? 4 : bits >= 16 ? 3 : 1;
  ForEachPixel(result, [&](int i, int j) {
    const float x = box.start_x + static_cast<float>(i);
    const float y = box.start_y + static_cast<float>(j);
    float sx = k * x + s * y;
    float sy = k * y - s * x;
    if (keep_size != 0) {
      sx += shift_x;
      sy += shift_y;
    }
    if (sx <= 3.0f || sx >= static_cast<float>(w - 4) || sy <= 3.0f ||
        sy >= static_cast<float>(h - 4)) {
      return;
    }
    const uint32_t sample = SampleOf(source, sx, sy, method);
    for (int c = 0; c < step; ++c) {
      // Shallow images take the red one.
      result.Row(j)[i * step + c] = static_cast<uint8_t>(Channel(sample, step == 1 ? 2 : c));
    }
  });
  return kOk;
}

result_t RotatePaste(const Raster& source, Raster& target, double angle, int method, int key) {
  const int w = source.width;
  const int h = source.height;
  const float k = static_cast<float>(std::cos(angle));
  const float s = static_cast<float>(std::sin(angle));
  const TurnedBox box = TurnBox(w, h, k, s);
  const int step = target.bit_count <= 24 ? 3 : 4;
  for (int j = 0; j < std::min(target.height, box.height); ++j) {
    for (int i = 0; i < std::min(target.width, box.width); ++i) {
      const float x = box.start_x + static_cast<float>(i);
      const float y = box.start_y + static_cast<float>(j);
      const float sx = k * x + s * y;
      const float sy = k * y - s * x;
      if (!(sx >= 0.0f && sx <= static_cast<float>(w) && sy >= 0.0f &&
            sy <= static_cast<float>(h))) {
        continue;
      }
      const uint32_t sample = SampleOf(source, sx, sy, method);
      uint8_t* to = target.Row(j) + i * step;
      if (source.bit_count > 24) {
        const double a = Channel(sample, 3) / 255.0;
        const double b = (255 - Channel(sample, 3)) / 255.0;
        for (int c = 0; c < 3; ++c) {
          to[c] = static_cast<uint8_t>(TruncateToInt(Channel(sample, c) * a + to[c] * b));
        }
      } else {
        if ((sample & 0xFFFFFF) == static_cast<uint32_t>(key)) continue;
        for (int c = 0; c < 3; ++c) to[c] = static_cast<uint8_t>(Channel(sample, c));
      }
      if (target.bit_count > 24) to[3] = static_cast<uint8_t>(Channel(sample, 3));
    }
  }
  return kOk;
}

result_t Skew(const Raster& source, Raster& result, float x_gain, float y_gain, int x_pivot,
              int y_pivot, int /*unused*/, int force_alpha) {
  const int bits = force_alpha != 0 ? 32 : source.bit_count;
  result.Create(source.width, source.height, source.planes, bits,
                force_alpha != 0 ? 0x42475241u : source.model);
  if (x_pivot == 0) x_pivot = source.width / 2;
  if (y_pivot == 0) y_pivot = source.height / 2;
  ForEachPixel(source, [&](int x, int y) {
    const float shift_x = static_cast<float>(WrappedSum(y, WrappedProduct(y_pivot, -1))) * x_gain;
    const float shift_y = static_cast<float>(WrappedSum(x, WrappedProduct(x_pivot, -1))) * y_gain;
    const int sx = TruncateToInt(static_cast<float>(x) + shift_x);
    const int sy = TruncateToInt(static_cast<float>(y) + shift_y);
    uint32_t color = PixelOf(source, sx, sy);
    if (Channel(color, 3) != 1 && force_alpha != 0) color |= 0xFF000000u;
    SetPixelOf(result, x, y, color);
  });
  return kOk;
}

result_t Quad(const Raster& source, Raster& result, const Corners& p, uint32_t new_width,
              uint32_t new_height, int16_t blend) {
  const auto length = [](double ax, double ay, double bx, double by) {
    return std::sqrt((bx - ax) * (bx - ax) + (by - ay) * (by - ay));
  };
  const auto fixed = [](double v) { return TruncateToInt(v * 65536 + 0.5); };
  const auto step = [&](double distance, double whole, uint32_t count) {
    const double divisor = whole / (whole / count);
    return divisor > 0.001 ? fixed(distance / divisor) : 0;
  };
  if (new_width == 0 || new_width >= 65536) {
    new_width = static_cast<uint32_t>(
        TruncateToInt(std::min(length(p.x1, p.y1, p.x2, p.y2), length(p.x3, p.y3, p.x4, p.y4))));
  }
  if (new_height == 0 || new_height >= 65536) {
    new_height = static_cast<uint32_t>(
        TruncateToInt(std::min(length(p.x1, p.y1, p.x3, p.y3), length(p.x2, p.y2, p.x4, p.y4))));
  }
  const int b = source.bit_count;
  result.Create(static_cast<int>(new_width), static_cast<int>(new_height), 1, b, source.model);
  if (b < 8 || result.Bits() == nullptr) return kOk;
  const int bytes = b / 8;
  const double left_length = length(p.x1, p.y1, p.x3, p.y3);
  const double right_length = length(p.x2, p.y2, p.x4, p.y4);
  int left_x = fixed(p.x1), left_y = fixed(p.y1), right_x = fixed(p.x2), right_y = fixed(p.y2);
  for (int r = 0; r < static_cast<int>(new_height); ++r) {
    const int lx = left_x / 65536, ly = left_y / 65536;
    const int rx = right_x / 65536, ry = right_y / 65536;
    const double scan = length(lx, ly, rx, ry);
    const int step_x = step(rx - lx, scan, new_width);
    const int step_y = step(ry - ly, scan, new_width);
    int x = WrappedProduct(lx, 65536), y = WrappedProduct(ly, 65536);
    for (int column = 0; column < static_cast<int>(new_width); ++column) {
      const int sx = WrappedSum(x, 32768) >> 16;
      const int sy = WrappedSum(y, 32768) >> 16;
      uint8_t* to = result.Row(r) + column * bytes;
      if (sx < 1 || sx > int64_t{source.width} - 2 || sy < 1 || sy > int64_t{source.height} - 2) {
        std::memset(to, 0, static_cast<size_t>(bytes));
      } else if (b == 8 || blend == 0) {
        std::memcpy(to, source.Row(sy) + sx * bytes, static_cast<size_t>(bytes));
      } else {
        const uint32_t fx = static_cast<uint32_t>(x) & 0xFFFF;
        const uint32_t fy = static_cast<uint32_t>(y) & 0xFFFF;
        const uint8_t* top = source.Row(y >> 16) + (x >> 16) * bytes;
        const uint8_t* below = top + source.stride;
        for (int c = 0; c < bytes; ++c) {
          const uint32_t sum = top[c] * ((65536 - fx) + (65536 - fy)) +
                               top[c + bytes] * (fx + (65536 - fy)) +
                               below[c] * ((65536 - fx) + fy) + below[c + bytes] * (fx + fy);
          to[c] = static_cast<uint8_t>(((sum >> 2) + 32768) >> 16);
        }
      }
      x = WrappedSum(x, step_x);
      y = WrappedSum(y, step_y);
    }
    left_x = WrappedSum(left_x, step(p.x3 - p.x1, left_length, new_height));
    left_y = WrappedSum(left_y, step(p.y3 - p.y1, left_length, new_height));
    right_x = WrappedSum(right_x, step(p.x4 - p.x2, right_length, new_height));
    right_y = WrappedSum(right_y, step(p.y4 - p.y2, right_length, new_height));
  }
  return kOk;
}

result_t Transform(const PointTransform& transform, const Raster& source, Raster& result,
                   int x_offset, int y_offset, uint32_t new_width, uint32_t new_height) {
  if (source.width <= 0 || source.height <= 0) return kFail;
  const int w = new_width > 0 && new_width < 65536 ? static_cast<int>(new_width) : source.width;
  const int h = new_height > 0 && new_height < 65536 ? static_cast<int>(new_height) : source.height;
  const int b = source.bit_count;
  result.Create(w, h, 1, b, source.model);
  const bool alpha = b == 32 && (source.model == 0x42475241u || source.model == 0x52474241u);
  result.Fill(alpha ? 0xFF000000u : 0u);
  if (b != 8 && b != 24 && b != 32) return kOk;
  ForEachPixel(result, [&](int x, int y) {
    double px = static_cast<double>(x) + x_offset;
    double py = static_cast<double>(y) + y_offset;
    transform(px, py);
    if (px >= 0 && px < source.width && py >= 0 && py < source.height) {
      std::copy_n(source.Row(TruncateToInt(py)) + TruncateToInt(px) * (b / 8), b / 8,
                  result.Row(y) + x * (b / 8));
    }
  });
  return kOk;
}

result_t TransformPaste(const PointTransform& transform, const Raster& source, Raster& target,
                        int x_offset, int y_offset, int16_t fill_voids) {
  const int b = source.bit_count;
  const int bytes = b / 8;
  const int tw = target.width;
  const int th = target.height;
  const auto put = [&](int64_t x, int64_t y, const uint8_t* pixel) {
    std::memcpy(target.Row(y) + x * bytes, pixel, static_cast<size_t>(bytes));
  };
  for (int y = 0; y < source.height; ++y) {
    int64_t previous = 0;
    for (int x = 0; x < source.width; ++x) {
      if (b == 8 && x == source.width - 1) continue;
      if (b != 8 && b != 24 && b != 32) continue;
      double px = x, py = y;
      transform(px, py);
      const double fx = std::floor(x_offset + px + 0.5);
      const double fy = std::floor(y_offset + py + 0.5);
      if (!(fx >= 0 && fy >= 0 && fx < tw && fy < th)) continue;
      const auto dx = static_cast<int64_t>(fx);
      const auto dy = static_cast<int64_t>(fy);
      uint8_t pixel[4];
      std::memcpy(pixel, source.Row(y) + x * bytes, static_cast<size_t>(bytes));
      if (b == 24 && fill_voids != 0) {
        for (int c = 0; c < 3; ++c) pixel[c] = std::max<uint8_t>(pixel[c], 1);
        put(dx, dy, pixel);
      } else if (b == 32 && fill_voids != 0) {
        const uint8_t one[4] = {1, 0, 0, 0};
        const bool black = pixel[0] == 0 && pixel[1] == 0 && pixel[2] == 0;
        put(dx, dy, black ? one : pixel);
      } else if (b == 24) {
        put(dx, dy, pixel);
        const int64_t n = dx - previous;
        if (previous > 0 && n > 0) {
          for (int64_t i = dx - n + 1; i <= dx; ++i) {
            put(i, dy, pixel);
            if (dy < th - 1) put(i, dy + 1, pixel);
          }
        }
        previous = dx;
      } else {
        put(dx, dy, pixel);
        if (dx < tw - 1) put(dx + 1, dy, pixel);
        if (dy < th - 1) put(dx, dy + 1, pixel);
      }
    }
  }
  if (fill_voids != 0 && (b == 24 || b == 32)) FillVoids(target);
  return kOk;
}

result_t FillVoids(Raster& image) {
  const int b = image.bit_count;
  if (b != 8 && b != 24 && b != 32) return kFail;
  const bool alpha = image.model == 0x42475241u || image.model == 0x52474241u;
  for (int y = 1; y < image.height - 1; ++y) {
    if (b == 32) {
      for (int x = 1; x < image.width - 1; ++x) {
        uint32_t here, right, next;
        uint8_t* pixel = WordRow(image, y, 0) + 4 * x;
        std::memcpy(&here, pixel, 4);
        std::memcpy(&right, pixel + 4, 4);
        std::memcpy(&next, WordRow(image, y + 1, 0) + 4 * x, 4);
        if (here != 0) continue;
        uint32_t taken = right != 0 ? right : next;
        if (taken != 0 && alpha) taken = (taken & 0xFFFFFF) | 0xFF000000u;
        std::memcpy(pixel, &taken, 4);
      }
      continue;
    }
    const int step = b / 8;
    for (int i = step; i <= step * image.width - step - 1; ++i) {
      uint8_t* byte = image.Row(y) + i;
      if (*byte != 0) continue;
      const int neighbours[4] = {byte[-step], byte[step], image.Row(y + 1)[i], image.Row(y - 1)[i]};
      int count = 0, sum = 0;
      for (const int value : neighbours) {
        if (value == 0) continue;
        ++count;
        sum += value;
      }
      if (count >= (b == 8 ? 1 : 3)) *byte = static_cast<uint8_t>(sum / count);
    }
  }
  return kOk;
}

result_t CircleTransform(Raster& image, int mode, int with_alpha, float factor) {
  if (mode < 0) return kInvalidArgument;
  const int width = image.width;
  const int height = image.height;
  Raster work;
  work.Create(width, height, image.planes, with_alpha != 0 ? 32 : image.bit_count, image.model);
  const int cx = width / 2;
  const int cy = height / 2;
  const int limit =
      TruncateToInt(std::sqrt(static_cast<double>(cx) * cx + static_cast<double>(cy) * cy));
  const double swirl = static_cast<double>(static_cast<float>(limit / 2) * factor);
  ForEachPixel(image, [&](int x, int y) {
    const int dx = cx - x;
    const int dy = cy - y;
    const double d = static_cast<double>(
        std::sqrt(static_cast<float>(WrappedSum(WrappedProduct(dx, dx), WrappedProduct(dy, dy)))));
    int sx = -1, sy = -1;
    if (d < limit) {
      double a = std::atan2(static_cast<double>(dy), static_cast<double>(dx));
      double r = d;
      if (mode == 0) r = d * d / limit;
      if (mode == 1) r = std::sqrt(limit * d);
      if (mode == 2) a = a + d / swirl;
      if (mode <= 2) {
        sx = WrappedSum(cx, WrappedProduct(TruncateToInt(r * std::cos(a)), -1));
        sy = WrappedSum(cy, WrappedProduct(TruncateToInt(r * std::sin(a)), -1));
      } else if (mode == 3) {
        sx = TruncateToInt(std::fabs(width * a / 6.2831852));
        sy = TruncateToInt(std::fabs(height * d / limit));
      } else {
        sx = x - 16 + x % 32;
        sy = y;
      }
    }
    uint32_t color = PixelOf(image, sx, sy);
    if (with_alpha != 0 && Channel(color, 3) != 1) color |= 0xFF000000u;
    SetPixelOf(work, x, y, color);
  });
  image.Assign(work);
  return kOk;
}

}  // namespace qel::reference
