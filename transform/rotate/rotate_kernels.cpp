#include "transform/rotate/rotate_kernels.h"

#include "transform/rotate/sample_offsets.h"
#include "transform/trigonometry.h"
#include "transform/word_vectors.h"

namespace qel::QEL_LEVEL {
namespace {

// Every position that comes here lies inside the source, so that plain conversions truncate.

void Positions(SamplePoints& points, const SampleLine& on, int32_t first, size_t count) {
  const SampleLine line = on;
  for (size_t i = 0; i < count; ++i) {
    const float x = line.start_x + static_cast<float>(first + static_cast<int32_t>(i));
    points.x[i] = line.cosine * x + line.sine_y + line.shift_x;
    points.y[i] = line.cosine_y - line.sine * x + line.shift_y;
  }
  for (size_t i = count; i < RoundUp(count); ++i) {
    points.x[i] = points.x[count - 1];
    points.y[i] = points.y[count - 1];
  }
}

void PrefetchPixels(const SampleSource& source, int32_t pixel_bytes, const SampleLine& on,
                    int32_t first, size_t count) {
  const SampleLine line = on;
  const int32_t stride = source.stride;
  int32_t offsets[kSampleChunk];
  for (size_t begin = 0; begin < count; begin += kPixelsPerFetch * kSampleChunk) {
    for (size_t i = 0; i < kSampleChunk; i += I32::kLanes) {
      const auto number = first + static_cast<int32_t>(begin + kPixelsPerFetch * i);
      const I32 numbers = Set<I32>(number) + ShiftLeft<kFetchShift>(Iota<I32>(0));
      const F32 x = Set<F32>(line.start_x) + ConvertTo<F32>(numbers);
      const F32 source_x =
          Set<F32>(line.cosine) * x + Set<F32>(line.sine_y) + Set<F32>(line.shift_x);
      const F32 source_y =
          Set<F32>(line.cosine_y) - Set<F32>(line.sine) * x + Set<F32>(line.shift_y);
      StoreU(ConvertTo<I32>(source_y) * Set<I32>(stride) +
                 ConvertTo<I32>(source_x) * Set<I32>(pixel_bytes),
             offsets + i);
    }
    for (size_t i = 0; i < kSampleChunk && begin + kPixelsPerFetch * i < count; ++i) {
      PrefetchLine(source.bits + offsets[i]);
    }
  }
}

/// The vectoriser loads bytes one after the other; these loads do not wait for each other.
size_t GatherGrays(uint32_t* colors, const uint8_t* bits, const int32_t* offsets, size_t count,
                   uint32_t keep, uint32_t add) {
  size_t i = 0;
  for (; kHasByteLookup && i + U32::kLanes <= count; i += U32::kLanes) {
    const U32 grays = GatherWords<1>(bits, offsets + i) * Set<U32>(0x010101);
    StoreU((grays & Set<U32>(keep)) | Set<U32>(add), colors + i);
  }
  return i;
}

template <int kBytes>
void GatherPixels(uint32_t* colors, const SampleSource& source, const SamplePoints& points,
                  size_t count, float offset, uint32_t keep, uint32_t add) {
  int32_t offsets[kSampleChunk];
  PixelOffsets<kBytes>(offsets, source, points, count, offset, 0);
  size_t i = kBytes == 1 ? GatherGrays(colors, source.bits, offsets, count, keep, add) : 0;
  for (; i < count; ++i) {
    const uint8_t* const pixel = source.bits + offsets[i];
    uint32_t color;
    if constexpr (kBytes == 1) {
      color = *pixel * 0x010101u;
    } else {
      __builtin_memcpy(&color, pixel, 4);
    }
    colors[i] = (color & keep) | add;
  }
}

template <int kBytes, bool kOpaque = false>
void CopyPixels(uint8_t* dest, const SampleSource& source, const SampleLine& on, int32_t first,
                size_t count, float offset) {
  constexpr size_t kChunk = 256;
  const SampleLine line = on;
  const uint8_t* const bits = source.bits;
  const int32_t stride = source.stride;
  int32_t offsets[kChunk];
  for (; count > 0; first += kChunk) {
    const size_t some = count < kChunk ? count : kChunk;
    // Whole vectors, so that none of a short run are left over.
    const auto rounded = static_cast<int32_t>((some + I32::kLanes - 1) / I32::kLanes * I32::kLanes);
    for (int32_t i = 0; i < rounded; ++i) {
      const float x = line.start_x + static_cast<float>(first + i);
      const float source_x = line.cosine * x + line.sine_y + line.shift_x;
      const float source_y = line.cosine_y - line.sine * x + line.shift_y;
      const auto column = static_cast<int32_t>(source_x + offset);
      const auto row = static_cast<int32_t>(source_y + offset);
      offsets[i] = row * stride + column * kBytes;
    }
    CopyScatteredPixels<kBytes>(dest, some, [&](size_t i) {
      uint32_t pixel = bits[offsets[i]];
      if constexpr (kBytes > 1) __builtin_memcpy(&pixel, bits + offsets[i], 4);
      return kOpaque ? pixel | 0xFF000000u : pixel;
    });
    dest += kBytes * some;
    count -= some;
  }
}

template <int kAt>
QEL_SIMD_INLINE F64 ChannelOf(Half<U32> colors) {
  return ToDoubles(BitCast<Wholes>(ShiftRight<8 * kAt>(colors) & Set<Half<U32>>(0xFF)));
}

void Mix4(uint8_t* dest, const uint32_t* colors, size_t count) {
  using Colors = Half<U32>;
  size_t i = 0;
  for (; i + Colors::kLanes <= count; i += Colors::kLanes) {
    const auto sample = LoadU<Colors>(colors + i);
    const auto pixel = LoadU<Colors>(dest + 4 * i);
    const F64 alpha = ChannelOf<3>(sample);
    const F64 share = alpha / Fill(255);
    const F64 rest = (Fill(255) - alpha) / Fill(255);
    const auto mixed = [&]<int kAt>(std::integral_constant<int, kAt>) {
      const F64 sum = ChannelOf<kAt>(sample) * share + ChannelOf<kAt>(pixel) * rest;
      return ShiftLeft<8 * kAt>(BitCast<Colors>(ToWholes(sum)));
    };
    StoreU((sample & Set<Colors>(0xFF000000u)) | mixed(std::integral_constant<int, 0>()) |
               mixed(std::integral_constant<int, 1>()) | mixed(std::integral_constant<int, 2>()),
           dest + 4 * i);
  }
  for (; i < count; ++i) {
    const uint32_t alpha = colors[i] >> 24;
    for (int c = 0; c < 3; ++c) {
      uint8_t& channel = dest[4 * i + static_cast<size_t>(c)];
      const double sum =
          (colors[i] >> 8 * c & 0xFF) * (alpha / 255.0) + channel * ((255 - alpha) / 255.0);
      channel = static_cast<uint8_t>(static_cast<int>(sum));
    }
    dest[4 * i + 3] = static_cast<uint8_t>(alpha);
  }
}

void Store1(uint8_t* __restrict dest, const uint32_t* __restrict colors, size_t count) {
  for (size_t i = 0; i < count; ++i) dest[i] = static_cast<uint8_t>(colors[i] >> 16);
}

void Store3(uint8_t* dest, const uint32_t* colors, size_t count) {
  size_t i = 0;
  if constexpr (kHasByteLookup) {
    for (; i + U32::kLanes <= count; i += U32::kLanes) {
      StoreWords<3>(LoadU<U32>(colors + i), dest + 3 * i);
    }
    if (i == count) return;
    const size_t rest = count - i;
    return StoreWords<3>(MaskedLoad<U32>(FirstN<U32>(rest), colors + i), dest + 3 * i, rest);
  }
  // Whole words overlap the next pixel, which is written after them.
  for (; i + 1 < count; ++i) __builtin_memcpy(dest + 3 * i, colors + i, 4);
  if (i < count) __builtin_memcpy(dest + 3 * i, colors + i, 3);
}

void Store4(uint8_t* dest, const uint32_t* colors, size_t count) {
  __builtin_memcpy(dest, colors, 4 * count);
}

}  // namespace

extern const RotateKernels kRotateKernels;
constinit const RotateKernels kRotateKernels = {
    .positions = &Positions,
    .prefetch = &PrefetchPixels,
    .gather1 = &GatherPixels<1>,
    .gather3 = &GatherPixels<3>,
    .gather4 = &GatherPixels<4>,
    .copy1 = &CopyPixels<1>,
    .copy3 = &CopyPixels<3>,
    .copy4 = &CopyPixels<4>,
    .copy4_opaque = &CopyPixels<4, true>,
    .mix4 = &Mix4,
    .store1 = &Store1,
    .store3 = &Store3,
    .store4 = &Store4,
};

}  // namespace qel::QEL_LEVEL
