#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "component/result_image.h"
#include "image/interpolated_sampling.h"
#include "image/numeric.h"
#include "image/pixel_access.h"
#include "image/pixel_layout.h"
#include "simd/fetch.h"
#include "transform/image_transform.h"
#include "transform/resample/box_kernels.h"
#include "transform/warp/picker.h"

namespace qel {
namespace {

/// Source pixels per destination pixel, in single precision.
struct Scale {
  float x;
  float y;
};

bool CopiesNearest(const Scale& scale, int method, bool nearest_only, int bit_count) {
  const bool enlarges = scale.x <= 1.0f && scale.y <= 1.0f && method == 0;
  const bool whole_bytes = bit_count == 32 || bit_count == 24 || bit_count == 16 || bit_count == 8;
  return (enlarges || nearest_only) && whole_bytes;
}

bool AveragesBoxes(const Scale& scale, bool nearest_only) {
  return scale.x >= 1.0f && scale.y >= 1.0f && !nearest_only;
}

/// Offset of the source row of destination row `y`.
// Deliberate: the product is a single-precision one, so that offsets from 2^24 on lose low bits.
int64_t RowOffset(int64_t y, const Scale& scale, int stride) {
  const float row = std::floor(static_cast<float>(y) * scale.y);
  return static_cast<int64_t>(static_cast<float>(stride) * row);
}

/// The source column of destination column `x`.
float SourceColumn(int64_t x, const Scale& scale) {
  return std::floor(static_cast<float>(x) * scale.x);
}

/// Writes the rows of `dest` by `write(row, offset)`, where `offset` is that of the source row;
/// rows from the same source row are copied. Rows may overlap: below 8 bits they are written a byte
/// per pixel.
template <typename OffsetOfRow, typename Write>
void ForEachRow(const ImageView& dest, size_t row_bytes, OffsetOfRow offset_of_row, Write write) {
  int64_t last_offset = 0;
  for (int64_t y = 0; y < dest.Rows(); ++y) {
    const int64_t offset = offset_of_row(y);
    if (y > 0 && offset == last_offset) {
      std::memmove(dest.Row(y), dest.Row(y - 1), row_bytes);
    } else {
      write(dest.Row(y), offset);
    }
    last_offset = offset;
  }
}

void CopyNearest(const ImageView& source, const ImageView& dest, const Scale& scale,
                 int pixel_bytes, bool keep_alpha) {
  std::vector<int64_t> offsets(static_cast<size_t>(dest.Columns()));
  for (size_t x = 0; x < offsets.size(); ++x) {
    const float column = SourceColumn(static_cast<int64_t>(x), scale);
    offsets[x] = pixel_bytes == 3 ? TruncateToInt(static_cast<double>(column) * 3.0)
                                  : int64_t{TruncateToInt(column)} * pixel_bytes;
  }
  const Picker picker(std::move(offsets), pixel_bytes, keep_alpha);
  ForEachRow(
      dest, picker.RowBytes(), [&](int64_t y) { return RowOffset(y, scale, source.stride); },
      [&](uint8_t* row, int64_t offset) { picker.Pick(row, source.bits + offset); });
}

/// The boxes of source pixels that are averaged.
// Deliberate: the fraction of the scale is dropped, so that some columns and rows are never read.
struct Box {
  Box(const Scale& scale, int pixel_size)
      : columns(TruncateToInt(scale.x)),
        rows(TruncateToInt(scale.y)),
        pixel_bytes(pixel_size),
        area(static_cast<uint32_t>(WrapMultiply(columns, rows))) {}

  int64_t columns;
  int64_t rows;
  int pixel_bytes;
  uint32_t area;
};

/// Offsets in a source row of the boxes of a destination row.
std::vector<int64_t> BoxOffsets(int64_t count, const Scale& scale, int pixel_bytes) {
  std::vector<int64_t> offsets(static_cast<size_t>(count));
  for (size_t x = 0; x < offsets.size(); ++x) {
    const float column = SourceColumn(static_cast<int64_t>(x), scale);
    offsets[x] = static_cast<int64_t>(static_cast<double>(column) * pixel_bytes);
  }
  return offsets;
}

/// Averages one row of boxes. Areas and sums are taken modulo 2^32.
void AverageLargeBoxes(uint8_t* dest, const uint32_t* sums, const std::vector<int64_t>& offsets,
                       const Box& box) {
  const int channels = std::min(box.pixel_bytes, 3);
  for (size_t x = 0; x < offsets.size(); ++x) {
    for (int c = 0; c < channels; ++c) {
      const uint32_t* const first = sums + offsets[x] + c;
      uint32_t sum = 0;
      for (int64_t k = 0; k < box.columns; ++k) sum += first[k * box.pixel_bytes];
      // Unspecified: an area of 2^32 pixels counts as 0 and gives black.
      *(dest + static_cast<int64_t>(x) * box.pixel_bytes + c) =
          static_cast<uint8_t>(box.area == 0 ? 0 : sum / box.area);
    }
  }
}

/// The reciprocal of an area from 2 to `kLargestSmallBox`: with 2^s below the area, a factor of 16
/// bits, rounded up, is exact for all sums of that many bytes.
SmallBox SmallBoxOf(const Box& box) {
  int shift = 0;
  while ((2u << shift) < box.area) ++shift;
  const uint32_t factor = ((65536u << shift) + box.area - 1) / box.area;
  return {static_cast<size_t>(box.columns), static_cast<size_t>(box.rows),
          static_cast<size_t>(box.pixel_bytes), static_cast<uint16_t>(factor),
          static_cast<uint16_t>(shift)};
}

// Deliberate: alpha of 32-bit images is not averaged; it stays as the new image had it.
void AverageBoxes(const ImageView& source, const ImageView& dest, const Scale& scale,
                  int pixel_bytes) {
  const Box box(scale, pixel_bytes);
  const Picker picker(BoxOffsets(dest.Columns(), scale, pixel_bytes), pixel_bytes, true);
  const std::vector<int64_t>& offsets = picker.offsets();
  const auto count = static_cast<size_t>(offsets.back() + box.columns * pixel_bytes);
  const BoxMeanKernels& kernels = ActiveBoxMeanKernels();
  if (box.area == 1 || box.area > kLargestSmallBox) {
    std::vector<uint32_t> sums(box.area == 1 ? 0 : count);
    for (int64_t y = 0; y < dest.Rows(); ++y) {
      const uint8_t* const row = source.bits + RowOffset(y, scale, source.stride);
      if (box.area == 1) {
        picker.Pick(dest.Row(y), row);
      } else {
        kernels.sum_rows(sums.data(), row, source.stride, count, static_cast<size_t>(box.rows));
        AverageLargeBoxes(dest.Row(y), sums.data(), offsets, box);
      }
    }
    return;
  }
  const SmallBox small = SmallBoxOf(box);
  // Rows go in parts whose sums stay in the nearest cache.
  constexpr size_t kPart = 2048;
  const size_t reach = (small.columns - 1) * small.pixel_bytes;
  uint16_t scratch[3 * (kPart + kLargestSmallBox * kMaxChannels)];
  std::vector<uint8_t> means(count);
  for (int64_t y = 0; y < dest.Rows(); ++y) {
    const int64_t row = RowOffset(y, scale, source.stride);
    const int64_t ahead = RowOffset(y + 1, scale, source.stride) - row;
    for (size_t i = 0; i + reach < count; i += kPart) {
      kernels.box_means(means.data() + i, source.bits + row + i, source.stride, ahead,
                        std::min(kPart + reach, count - i), small, scratch);
    }
    picker.Pick(dest.Row(y), means.data());
  }
}

/// The positions in the source of the columns or rows of a destination: pixel centres are aligned.
class SamplePositions {
 public:
  SamplePositions(int64_t count, float scale) : count_(count), scale_(scale) {}

  int64_t size() const { return count_; }
  float operator[](int64_t i) const { return (static_cast<float>(i) + 0.5f) * scale_ - 0.5f; }
  template <typename Predicate>
  bool AllOf(Predicate&& predicate) const {
    for (int64_t i = 0; i < count_; ++i) {
      if (!predicate((*this)[i])) return false;
    }
    return true;
  }

 private:
  const int64_t count_;
  const float scale_;
};

/// Samples pixel by pixel: what every quicker way must equal.
void InterpolateSingly(const ImageView& source, const ImageView& dest,
                       const SamplePositions& columns, const SamplePositions& rows, int method) {
  for (int64_t y = 0; y < rows.size(); ++y) {
    for (int64_t x = 0; x < columns.size(); ++x) {
      const uint32_t colour =
          GetPixelColorInterpolated(source.bits, columns[x], rows[y], source.width, source.height,
                                    source.stride, method, source.bit_count);
      SetPixelColor(dest.bits, static_cast<int>(x), static_cast<int>(y), dest.width, dest.height,
                    dest.stride, colour, dest.bit_count);
    }
  }
}

/// Methods that take one source pixel per destination pixel. False when some lie outside.
bool PickPixels(const ImageView& source, const ImageView& dest, const SamplePositions& columns,
                const SamplePositions& rows, Sampling sampling) {
  const auto tap = sampling == Sampling::kNearest ? [](float v) { return NearestTap(v); }
                                                  : [](float v) { return TruncateToInt(v); };
  const auto within = [&](const SamplePositions& positions, int size) {
    return positions.AllOf([&](float v) { return tap(v) >= 0 && tap(v) < size; });
  };
  if (!within(columns, source.width) || !within(rows, source.height)) return false;
  const int pixel_bytes = source.bit_count == 8 ? 1 : DirectPixelBytes(source.bit_count);
  std::vector<int64_t> offsets;
  offsets.reserve(static_cast<size_t>(columns.size()));
  size_t opaque_pixels = 0;
  for (int64_t x = 0; x < columns.size(); ++x) {
    const int column = tap(columns[x]);
    offsets.push_back(int64_t{column} * pixel_bytes);
    opaque_pixels += column < source.width - 1 ? 1 : 0;
  }
  const Picker picker(std::move(offsets), pixel_bytes, false);
  const bool opaque = sampling == Sampling::kBilinear && source.bit_count == 32;
  const int64_t last_row = int64_t{source.height - 1} * source.stride;
  ForEachRow(
      dest, picker.RowBytes(), [&](int64_t y) { return int64_t{tap(rows[y])} * source.stride; },
      [&](uint8_t* row, int64_t offset) {
        picker.Pick(row, source.bits + offset);
        if (opaque && offset != last_row) ActiveResampleKernels().make_opaque(row, opaque_pixels);
      });
  return true;
}

/// Interpolates by weighted taps in tiles of a few columns and a band of rows. The taps of a source
/// row are spread out once per tile and serve all destination rows that they reach.
class TileInterpolator {
 public:
  TileInterpolator(const ImageView& source, const ImageView& dest, const SamplePositions& columns,
                   const SamplePositions& rows, const InterpolationMethod& method)
      : source_(source),
        dest_(dest),
        columns_(columns),
        positions_(rows),
        kernel_(method.kernel),
        window_(method.sampling == Sampling::kKernel4 ? kTaps4 : kTaps12),
        taps_(static_cast<size_t>(window_.count)),
        channels_(
            static_cast<size_t>(source.bit_count == 8 ? 1 : DirectPixelBytes(source.bit_count))),
        outside_(OutsideColor(source)),
        rows_(static_cast<size_t>(std::min(rows.size(), kBandRows))),
        row_weights_(rows_.size() * taps_) {}

  /// False when some positions are too far out to have taps; nothing is written then.
  bool Run() {
    const auto has_taps = [&](const SamplePositions& positions, int size) {
      return positions.AllOf([&](float v) { return !window_.Misses(TapOrigin(v), size); });
    };
    if (!has_taps(columns_, source_.width) || !has_taps(positions_, source_.height)) return false;
    tile_.taps = taps_;
    tile_.channels = channels_;
    tile_.row_bytes = source_.Columns() * static_cast<int64_t>(channels_);
    // The planes of all slots fit the innermost cache, or nearly so.
    const size_t most = taps_ == kMaxTaps ? (channels_ > 1 ? 16 : 64)
                        : channels_ > 1   ? 64
                                          : kMaxTileColumns;
    constexpr size_t kUnit = 32;
    tile_.columns =
        std::min(most, (static_cast<size_t>(columns_.size()) + kUnit - 1) / kUnit * kUnit);
    plane_size_ = taps_ * channels_ * tile_.columns;
    planes_ = std::make_unique_for_overwrite<float[]>((kSlots + 1) * plane_size_ + kAlignment);
    for (band_ = 0; band_ < positions_.size(); band_ += kBandRows) {
      rows_.resize(static_cast<size_t>(std::min(kBandRows, positions_.size() - band_)));
      for (size_t y = 0; y < rows_.size(); ++y) DescribeRow(y);
      const auto columns = static_cast<int64_t>(tile_.columns);
      for (int64_t x = 0; x < columns_.size(); x += columns) RunTile(x);
    }
    return true;
  }

 private:
  /// Rows that tiles go down: each lies in a page of its own, and the processor remembers where
  /// some two thousand pages are.
  static constexpr int64_t kBandRows = 600;
  /// Slots for source rows: more than the taps of one destination row, for others nearby.
  static constexpr int kSlots = 16;
  static constexpr size_t kAlignment = 16;
  static constexpr int64_t kNoRow = -1;
  /// Rows of a tile that the memory brings in advance.
  static constexpr int kRowsAhead = 16;

  /// One destination row: where its taps are.
  struct TapRow {
    int64_t first;         // first source row, maybe outside
    const float* weights;  // at the same address as two rows before, where they are the same
    bool with_alpha;       // whether its samples have alpha
  };

  /// Row `y` of the band.
  void DescribeRow(size_t y) {
    const float position = positions_[band_ + static_cast<int64_t>(y)];
    const int origin = TapOrigin(position);
    rows_[y] = {int64_t{origin} + window_.first, &row_weights_[y * taps_],
                taps_ == kMaxTaps || window_.Inside(origin, source_.height)};
    TapWeights(window_, kernel_, position, origin, &row_weights_[y * taps_]);
    if (y < 2) return;
    const float* const weights = rows_[y - 2].weights;
    if (std::equal(weights, weights + taps_, rows_[y].weights)) rows_[y].weights = weights;
  }

  void DescribeTile(int64_t first) {
    const uint8_t outside[] = {BlueOf(outside_), GreenOf(outside_), RedOf(outside_),
                               AlphaOf(outside_)};
    std::copy(std::begin(outside), std::end(outside), tile_.outside);
    for (size_t i = 0; i < tile_.columns; ++i) {
      // The last tile repeats its last column.
      const float position =
          columns_[std::min(first + static_cast<int64_t>(i), columns_.size() - 1)];
      const int origin = TapOrigin(position);
      float weights[kMaxTaps];
      TapWeights(window_, kernel_, position, origin, weights);
      for (size_t tap = 0; tap < taps_; ++tap) {
        const int64_t column = int64_t{origin} + window_.first + static_cast<int64_t>(tap);
        const bool inside = column >= 0 && column < source_.width;
        tile_.offsets[tap][i] = inside ? column * static_cast<int64_t>(channels_) : -1;
        tile_.weights[tap][i] = weights[tap];
      }
      // 4 by 4 samples have alpha only where no tap is outside; 12 by 12 samples everywhere.
      const bool with_alpha = taps_ == kMaxTaps || window_.Inside(origin, source_.width);
      tile_.alpha_mask[i] = with_alpha ? 255 : 0;
    }
    for (size_t i = 0; i < tile_.columns; i += kGroupColumns) DescribeGroup(i);
    const auto clamped = [&](int64_t i, int tap) {
      const int64_t column = int64_t{TapOrigin(columns_[i])} + window_.first + tap;
      return std::clamp<int64_t>(column, 0, source_.width - 1) * static_cast<int64_t>(channels_);
    };
    const int64_t last = std::min(first + static_cast<int64_t>(tile_.columns), columns_.size()) - 1;
    first_byte_ = clamped(first, 0);
    read_bytes_ = clamped(last, window_.count - 1) - first_byte_ + static_cast<int64_t>(channels_);
  }

  /// The group of columns that begins at column `first` of the tile.
  void DescribeGroup(size_t first) {
    TapGroup& group = tile_.groups[first / kGroupColumns];
    group.base = tile_.offsets[0][first];
    const int64_t last = tile_.offsets[taps_ - 1][first + kGroupColumns - 1];
    group.bytes = last + static_cast<int64_t>(channels_) - group.base;
    if (group.base < 0 || last < 0 || group.bytes > kMostGroupBytes) group.bytes = 0;
    for (size_t i = 0; i < kGroupColumns; ++i) {
      group.index[i] = static_cast<int32_t>(tile_.offsets[0][first + i] - group.base);
    }
  }

  /// Where the planes of a slot begin, at a whole vector.
  float* PlanesOf(size_t slot) {
    const auto address = reinterpret_cast<uintptr_t>(planes_.get()) / sizeof(float);
    return planes_.get() + (kAlignment - address % kAlignment) + slot * plane_size_;
  }

  /// The planes of source row `row`, gathered when they are not there.
  const float* RowPlanes(int64_t row) {
    if (row < 0 || row >= source_.height) return PlanesOf(kSlots);
    const auto slot = static_cast<size_t>(row) % kSlots;
    if (plane_rows_[slot] != row) {
      if (row + kRowsAhead < source_.height) {
        Fetch(source_.Row(row + kRowsAhead) + first_byte_, read_bytes_);
      }
      ActiveResampleKernels().gather(PlanesOf(slot), source_.Row(row), tile_);
      plane_rows_[slot] = row;
    }
    return PlanesOf(slot);
  }

  BlendRow RowOf(size_t y, int64_t first_column) {
    BlendRow row;
    row.dest =
        dest_.Row(band_ + static_cast<int64_t>(y)) + first_column * static_cast<int64_t>(channels_);
    if (y + kRowsAhead < rows_.size()) {
      Fetch<1>(row.dest + kRowsAhead * dest_.stride,
               static_cast<int64_t>(tile_.columns * channels_));
    }
    for (size_t j = 0; j < taps_; ++j) {
      row.planes[j] = RowPlanes(rows_[y].first + static_cast<int64_t>(j));
    }
    row.weights = rows_[y].weights;
    row.with_alpha = rows_[y].with_alpha;
    return row;
  }

  /// The columns from `first` on of the band.
  void RunTile(int64_t first) {
    DescribeTile(first);
    std::ranges::fill(plane_rows_, kNoRow);
    float* const outside = PlanesOf(kSlots);
    for (size_t i = 0; i < plane_size_; ++i) {
      outside[i] = tile_.outside[i / tile_.columns % channels_];
    }
    const ResampleKernels& kernels = ActiveResampleKernels();
    const BlendPair blend_pair = kernels.blend_pair(taps_, channels_);
    const BlendBlock blend_block = kernels.blend_block(taps_, channels_);
    const size_t count = std::min(tile_.columns, static_cast<size_t>(columns_.size() - first));
    for (size_t y = 0; y < rows_.size();) {
      if (IsBlock(y)) {
        blend_block(
            {RowOf(y, first), RowOf(y + 1, first), RowOf(y + 2, first), RowOf(y + 3, first)}, tile_,
            count);
        y += 4;
      } else {
        const size_t rows = ShareSlots(y, y + 1) && !IsBlock(y + 1) ? 2 : 1;
        const BlendRow upper = RowOf(y, first);
        blend_pair({upper, rows == 1 ? upper : RowOf(y + 1, first)}, tile_, count);
        y += rows;
      }
    }
  }

  /// True when the slots have room for the taps of both rows. Those of rows further apart overwrite
  /// each other.
  bool ShareSlots(size_t y, size_t other) const {
    return other < rows_.size() &&
           std::abs(rows_[other].first - rows_[y].first) <= kSlots - window_.count;
  }
  /// True for four rows as `BlendBlock` wants them: most rows of a picture of twice the size.
  bool IsBlock(size_t y) const {
    const auto same_taps = [&](size_t row) { return rows_[row].first == rows_[row + 1].first; };
    const auto same_weights = [&](size_t row) {
      return rows_[row].weights == rows_[row + 2].weights;
    };
    return ShareSlots(y, y + 2) && y + 3 < rows_.size() && same_taps(y) && same_taps(y + 2) &&
           same_weights(y) && same_weights(y + 1);
  }

  const ImageView& source_;
  const ImageView& dest_;
  const SamplePositions columns_;
  const SamplePositions positions_;  // of rows
  const KernelFunction kernel_;
  const TapWindow window_;
  const size_t taps_;
  const size_t channels_;
  const uint32_t outside_;
  int64_t band_ = 0;  // its first row
  std::vector<TapRow> rows_;
  std::vector<float> row_weights_;
  TileTaps tile_;
  int64_t first_byte_ = 0;  // of those in a source row that the tile reads
  int64_t read_bytes_ = 0;
  size_t plane_size_ = 0;
  std::unique_ptr<float[]> planes_;  // of the rows in the slots, then of a row that is outside
  int64_t plane_rows_[kSlots];
};

void Interpolate(const ImageView& source, const ImageView& dest, const Scale& scale, int method) {
  const SamplePositions columns(dest.Columns(), scale.x);
  const SamplePositions rows(dest.Rows(), scale.y);
  const InterpolationMethod& how = MethodOf(method);
  if (source.HasPixels() && (source.bit_count == 8 || source.bit_count >= 24)) {
    const bool picks = how.sampling == Sampling::kNearest || how.sampling == Sampling::kBilinear;
    if (picks && PickPixels(source, dest, columns, rows, how.sampling)) return;
    if (!picks && TileInterpolator(source, dest, columns, rows, how).Run()) return;
  }
  InterpolateSingly(source, dest, columns, rows, method);
}

/// Bytes per pixel of box averages: depths other than 24 and 32 bits count as one byte.
int BoxPixelBytes(int bit_count) { return bit_count == 32 ? 4 : bit_count == 24 ? 3 : 1; }

void Resize(const ImageView& source, const ImageView& dest, const Scale& scale, int method,
            bool nearest_only) {
  if (!dest.HasPixels()) return;
  const bool copies = CopiesNearest(scale, method, nearest_only, source.bit_count);
  if (!copies && !AveragesBoxes(scale, nearest_only)) {
    Interpolate(source, dest, scale, method);
    return;
  }
  if (source.Empty()) return;
  const int pixel_bytes = copies ? source.bit_count / 8 : BoxPixelBytes(source.bit_count);
  if (source.bits == nullptr) {
    // Every pixel of a source without memory is black with the outside marker.
    uint8_t black[4] = {0, 0, 0, kOutsideMarker};
    ImageView pixel = source;
    pixel.bits = black;
    CopyNearest(pixel, dest, {0.0f, 0.0f}, pixel_bytes, !copies);
  } else if (copies) {
    CopyNearest(source, dest, scale, pixel_bytes, false);
  } else {
    AverageBoxes(source, dest, scale, pixel_bytes);
  }
}

}  // namespace

result_t CQELImageTransform::Resample(IQEL* source, IQEL** result, int new_width, int new_height,
                                      int method, int nearest_only) {
  if (source == nullptr) return kFail;
  if (result == nullptr) return kNullOutput;
  ImageShape shape;
  const result_t read = ReadFormat(*source, shape);
  if (Failed(read)) return read;
  ReadSize(*source, shape);
  const ImageView view = ReadPlane(*source, shape, 0);
  const Scale scale = {static_cast<float>(shape.width) / static_cast<float>(new_width),
                       static_cast<float>(shape.height) / static_cast<float>(new_height)};
  // The caller owns the new image from here on, also when a host call throws.
  SmartPtr<IQELImageDIB> made = QELObject::CreateImageDIB();
  *result = made.Detach();
  if (*result == nullptr) return kFail;
  const auto output = QueryFor<IQELImage>(*result);
  if (!output) return kOk;
  ImageShape resized = shape;
  resized.width = new_width;
  resized.height = new_height;
  const ImageView dest = NewPixels(*output, resized).Plane(0);
  if (new_width == shape.width && new_height == shape.height) {
    output->Assign(source, 0);
  } else {
    Resize(view, dest, scale, method, nearest_only != 0);
  }
  return kOk;
}

}  // namespace qel
