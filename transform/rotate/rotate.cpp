#include <algorithm>
#include <bit>

#include "component/result_image.h"
#include "image/memory_reach.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "simd/prefetch.h"
#include "transform/image_transform.h"
#include "transform/rotate/rotation_sampler.h"

namespace qel {
namespace {

/// Pixels along every edge of the source that `Rotate` does not sample.
constexpr float kLowMargin = 3.0f;
constexpr int kHighMargin = 4;

using StoreColors = void (*)(uint8_t* dest, const uint32_t* colors, size_t count);

/// How `Rotate` writes pixels.
// Deliberate: depths from 16 bits on that are not 32 take three bytes, all below take one, whatever
// the depth; only at 8, 24 and 32 bits is that the size of a pixel.
struct PixelWriter {
  explicit PixelWriter(int bit_count)
      : pixel_bytes(bit_count == 32   ? 4
                    : bit_count >= 16 ? 3
                                      : 1),
        store(pixel_bytes == 4   ? ActiveRotateKernels().store4
              : pixel_bytes == 3 ? ActiveRotateKernels().store3
                                 : ActiveRotateKernels().store1) {}

  int pixel_bytes;
  StoreColors store;
};

/// What is drawn of a frame.
struct DrawnPart {
  int width;
  int height;
  bool whole_rows;  ///< each row is complete before the next one begins
};

/// Calls `write(j, first, colors, count)` for the sampled pixels of `part`: those whose positions
/// are neither `too_low` nor `too_high`, which take a position and the source's size along its
/// axis. Those near the border and those in doubt come later, one by one, before the next row where
/// rows must be whole. What the sampler can copy goes to the row at row_at(j) instead, where that
/// is not null.
template <typename TooLow, typename TooHigh, typename RowAt, typename Write>
void SampleRows(RotationSampler& sampler, const RotatedFrame& frame, const ImageView& source,
                const DrawnPart& part, TooLow too_low, TooHigh too_high, RowAt row_at,
                Write write) {
  alignas(64) uint32_t colors[kSampleChunk];
  RunGuess guess;
  PointQueue border;
  PointQueue doubts;
  const auto finish = [&](PointQueue& queue, bool is_inside) {
    sampler.BlendPoints(colors, queue, is_inside);
    for (size_t k = 0; k < queue.count; ++k)
      write(queue.places[k].j, queue.places[k].i, colors + k, 1);
    queue.count = 0;
  };
  const auto put_off = [&](PointQueue& queue, bool is_inside, const SampleRow& row, int i) {
    queue.places[queue.count] = {row.j, i};
    queue.points.x[queue.count] = row.way.SourceX(i);
    queue.points.y[queue.count++] = row.way.SourceY(i);
    if (queue.count == kSampleGroup) finish(queue, is_inside);
  };
  CopiedRow copied[kMostCopiedRows];
  int copied_count = 0;
  const auto copy_rows = [&] {
    if (copied_count > 0) sampler.Copy(copied, copied_count);
    copied_count = 0;
  };
  const auto sample = [&](int j, const SampleRow& row, int begin, int end) {
    for (int first = begin; first < end; first += sampler.chunk()) {
      const int count = std::min(sampler.chunk(), end - first);
      const uint64_t doubtful = sampler.Sample(colors, row, first, count);
      int settled = 0;
      for (uint64_t bits = doubtful; bits != 0; bits &= bits - 1) {
        const int doubt = std::countr_zero(bits);
        if (doubt > settled) write(j, first + settled, colors + settled, doubt - settled);
        settled = doubt + 1;
      }
      if (count > settled) write(j, first + settled, colors + settled, count - settled);
      // These take the place of `colors`.
      for (uint64_t bits = doubtful; bits != 0; bits &= bits - 1) {
        const int i = first + std::countr_zero(bits);
        const bool is_inside = sampler.HasTapsInside(row.way.SourceX(i), row.way.SourceY(i));
        put_off(is_inside ? doubts : border, is_inside, row, i);
      }
    }
  };
  const auto sample_border = [&](int j, const SampleRow& row, int begin, int end) {
    if (!sampler.BlendsBorder()) return sample(j, row, begin, end);
    for (int i = begin; i < end; ++i) put_off(border, false, row, i);
  };
  const auto sample_row = [&](int j, const PixelRun& columns) {
    const PixelRun run = RunWithinSource(columns, frame.RowAt(j), source.width, source.height,
                                         guess, too_low, too_high);
    uint8_t* const to = sampler.Copies() ? row_at(j) : nullptr;
    const SampleRow row = sampler.RowAt(j, run);
    sample_border(j, row, run.begin, row.inside.begin);
    if (to == nullptr) {
      sample(j, row, row.inside.begin, row.inside.end);
    } else {
      copied[copied_count++] = {to, row};
      if (part.whole_rows || copied_count == sampler.copied_rows()) copy_rows();
    }
    sample_border(j, row, row.inside.end, run.end);
  };
  const auto sample_bands = [&](int begin, int end) {
    for (PixelRun columns = {0, 0}; columns.end < part.width;) {
      columns = {columns.end, columns.end + std::min(sampler.band(), part.width - columns.end)};
      for (int j = begin; j < end; ++j) sample_row(j, columns);
      copy_rows();
    }
    finish(border, false);
    finish(doubts, true);
  };
  if (!part.whole_rows) return sample_bands(0, part.height);
  for (int j = 0; j < part.height; ++j) sample_bands(j, j + 1);
}

/// What samples and pixels of at least 24 bits have in a mixture, for each alpha of the sample.
struct Shares {
  double sample[256];
  double pixel[256];
};
constexpr Shares kShares = [] {
  Shares shares{};
  for (int alpha = 0; alpha < 256; ++alpha) {
    shares.sample[alpha] = alpha / 255.0;
    shares.pixel[alpha] = (255 - alpha) / 255.0;
  }
  return shares;
}();

/// Mixes a sample into a pixel by the sample's alpha.
void BlendSample(uint8_t* pixel, uint32_t sample) {
  const double share = kShares.sample[AlphaOf(sample)];
  const double rest = kShares.pixel[AlphaOf(sample)];
  const uint8_t channels[] = {BlueOf(sample), GreenOf(sample), RedOf(sample)};
  for (int c = 0; c < 3; ++c) {
    // No mixture leaves the range of a byte.
    pixel[c] = static_cast<uint8_t>(static_cast<int>(channels[c] * share + pixel[c] * rest));
  }
}

/// Writes one sample into a target pixel, as the source's depth asks for.
// Deliberate: a key color with anything in its top byte matches no sample.
void PastePixel(uint8_t* pixel, uint32_t sample, bool blends, bool with_alpha, uint32_t key) {
  if (blends) {
    BlendSample(pixel, sample);
  } else {
    if ((sample & 0x00FFFFFFu) == key) return;
    pixel[0] = BlueOf(sample);
    pixel[1] = GreenOf(sample);
    pixel[2] = RedOf(sample);
  }
  if (with_alpha) pixel[3] = AlphaOf(sample);
}

/// True when one of the samples has this color, whatever its alpha is.
bool HasColor(const uint32_t* colors, int count, uint32_t color) {
  bool any = false;
  for (int i = 0; i < count; ++i) any |= (colors[i] & 0x00FFFFFFu) == color;
  return any;
}

/// True when rows that are written hold pixels of the source.
bool SharesMemory(const ImageView& source, const MemoryReach& written) {
  const int64_t bits =
      source.bit_count >= 24 ? 8 * DirectPixelBytes(source.bit_count) : source.bit_count;
  const MemoryReach read(source.bits, source.stride, (source.Columns() * bits + 7) / 8,
                         source.Rows());
  return source.HasPixels() && read.Meets(written);
}

/// Draws the turned source into the top-left of `target`.
void PasteRotated(const ImageView& source, const ImageView& target, const RotatedFrame& frame,
                  int method, uint32_t key) {
  if (!target.HasPixels()) return;
  const bool blends = source.bit_count > 24;
  const bool with_alpha = target.bit_count > 24;
  const int pixel_bytes = with_alpha ? 4 : 3;
  const int columns = std::min(target.width, frame.width());
  const int rows = std::min(target.height, frame.height());
  const int64_t row_bytes = int64_t{columns} * pixel_bytes;
  const bool shares_memory =
      SharesMemory(source, MemoryReach(target.bits, target.stride, row_bytes, rows));
  RotationSampler sampler(PlanRotate(source, method, shares_memory), source, frame,
                          blends || with_alpha);
  SampleRows(
      sampler, frame, source,
      {columns, rows, shares_memory || RowsOverlap(row_bytes, target.stride)},
      [](float v, int) { return v < 0.0f; },
      [](float v, int size) { return v > static_cast<float>(size); },
      [](int) -> uint8_t* { return nullptr; },
      [&](int j, int first, const uint32_t* colors, int count) {
        uint8_t* const pixels = target.Row(j) + int64_t{first} * pixel_bytes;
        // Reads all over the source keep the processor from foreseeing what is written.
        if (j + 1 < rows) PrefetchRun<1>(pixels + target.stride, int64_t{count} * pixel_bytes);
        if (blends && with_alpha) {
          return ActiveRotateKernels().mix4(pixels, colors, static_cast<size_t>(count));
        }
        if (!blends && !HasColor(colors, count, key)) {
          const auto store =
              with_alpha ? ActiveRotateKernels().store4 : ActiveRotateKernels().store3;
          return store(pixels, colors, static_cast<size_t>(count));
        }
        for (int i = 0; i < count; ++i) {
          PastePixel(pixels + int64_t{i} * pixel_bytes, colors[i], blends, with_alpha, key);
        }
      });
}

}  // namespace

// Deliberate: a margin of about four pixels along the edges of the source is never drawn.
void RunRotate(const RotatePlan& plan, const ImageView& source, const ImageView& dest,
               const RotatedFrame& frame) {
  if (!dest.HasPixels()) return;
  const PixelWriter writer(dest.bit_count);
  const int64_t row_bytes = int64_t{frame.width()} * writer.pixel_bytes;
  const auto pixel_at = [&](int j, int first) {
    return dest.Row(j) + int64_t{first} * writer.pixel_bytes;
  };
  RotationSampler sampler(plan, source, frame, writer.pixel_bytes == 4);
  SampleRows(
      sampler, frame, source, {frame.width(), frame.height(), RowsOverlap(row_bytes, dest.stride)},
      [](float v, int) { return v <= kLowMargin; },
      [](float v, int size) { return v >= static_cast<float>(WrapSubtract(size, kHighMargin)); },
      [&](int j) { return dest.bit_count == source.bit_count ? dest.Row(j) : nullptr; },
      [&](int j, int first, const uint32_t* colors, int count) {
        writer.store(pixel_at(j, first), colors, static_cast<size_t>(count));
      });
}

result_t CQELImageTransform::Rotate(IQEL* source, IQEL** result, int angle, int method,
                                    int force_alpha, int keep_size) {
  if (source == nullptr) return kFail;
  if (result == nullptr) return kNullOutput;
  if (angle == 0) {
    *result = SmartPtr<IQEL>::Retain(source).Detach();
    return kOk;
  }
  if (angle == -90) angle = 270;
  if (angle == 90 || angle == 180 || angle == 270) {
    ResultImage output = ResultImage::FromLocator();
    if (!output) return kFail;
    const result_t turned = Rotate4(source, output.Get(), angle);
    output.Store(result);
    return turned;
  }
  const Turn turn = Turn::ByDegrees(angle);
  const ImageShape shape = ReadShape(*source);
  const RotatedFrame frame = keep_size != 0
                                 ? RotatedFrame::SameSize(shape.width, shape.height, turn)
                                 : RotatedFrame::Bounding(shape.width, shape.height, turn);
  ResultImage output = ResultImage::FromLocator();
  if (!output) return kFail;
  ImageShape drawn = shape;
  drawn.width = frame.width();
  drawn.height = frame.height();
  if (force_alpha != 0) {
    drawn.bit_count = 32;
    drawn.model = 0;
  }
  // Deliberate: an image that cannot be created as asked is handed out undrawn, as a success.
  if (Succeeded(output.Create(drawn))) {
    const ImageView dest = output.View();
    const ImageView view = ReadPlane(*source, shape, 0);
    output.Fill(WithAlpha(
        GetPixelColor(view.bits, 0, 0, view.width, view.height, view.stride, view.bit_count), 255));
    RunRotate(PlanRotate(view, method, false), view, dest, frame);
  }
  output.Store(result);
  return kOk;
}

result_t CQELImageTransform::RotatePaste(IQEL* source, IQEL* target, double angle, int method,
                                         int key) {
  if (source == nullptr) return kFail;
  if (target == nullptr) return kNullOutput;
  const Turn turn = Turn::By(angle);
  const ImageShape shape = ReadShape(*source);
  const ImageShape target_shape = ReadShape(*target);
  const RotatedFrame frame = RotatedFrame::Bounding(shape.width, shape.height, turn);
  const ImageView to = ReadPlane(*target, target_shape, 0);
  PasteRotated(ReadPlane(*source, shape, 0), to, frame, method, static_cast<uint32_t>(key));
  return kOk;
}

}  // namespace qel
