#include <algorithm>
#include <cstring>

#include "component/result_image.h"
#include "image/memory_reach.h"
#include "image/write_rows.h"
#include "transform/image_transform.h"
#include "transform/layout/depth_kernels.h"

namespace qel {
namespace {

/// The palette of an image, valid while the interface is held; empty when it has none.
class SourcePalette {
 public:
  explicit SourcePalette(IQEL* image) : palette_(QueryFor<IQELImagePalette>(image)) {
    if (palette_) palette_->GetPalette(&entries_, &count_);
    for (uint32_t i = 0; !Empty() && i < std::min(count_, kEntries); ++i) {
      uint32_t color;
      std::memcpy(&color, &entries_[i], sizeof(color));
      colors_.of[i] = color & 0x00FFFFFFu;
    }
  }

  bool Empty() const { return count_ == 0 || entries_ == nullptr; }
  /// The entries that there are, for rows that the palette `Covers`.
  const PaletteColors& Colors() const { return colors_; }
  /// True when no index of the row is beyond the palette.
  bool Covers(const uint8_t* row, size_t count) const {
    if (count_ >= kEntries || count == 0) return true;
    uint8_t highest = 0;
    for (size_t i = 0; i < count; ++i) highest = std::max(highest, row[i]);
    return highest < count_;
  }
  // Deliberate: an index is not compared with the number of entries. Beyond the palette it takes
  // whatever the image has in memory there.
  const RGBQUAD& Entry(uint8_t index) const { return entries_[index]; }

 private:
  static constexpr uint32_t kEntries = 256;

  SmartPtr<IQELImagePalette> palette_;
  RGBQUAD* entries_ = nullptr;
  uint32_t count_ = 0;
  PaletteColors colors_ = {};
};

// Deliberate: at 32 bits palette colors leave alpha as the new image had it, while gray levels and
// 24-bit colors come out opaque.
void ExpandRow(uint8_t* dest, const uint8_t* source, size_t count, int pixel_bytes,
               const SourcePalette& palette) {
  const DepthKernels& kernels = ActiveDepthKernels();
  if (palette.Covers(source, count)) {
    const auto expand = pixel_bytes == 4 ? kernels.palette_to_32 : kernels.palette_to_24;
    expand(dest, source, count, palette.Colors());
    return;
  }
  for (size_t i = 0; i < count; ++i) {
    std::memcpy(dest + i * static_cast<size_t>(pixel_bytes), &palette.Entry(source[i]), 3);
  }
}

void ConvertPixels(const ImageView& source, const ImageView& dest, const SourcePalette& palette) {
  if (!source.HasPixels() || !dest.HasPixels()) return;
  const bool to_32 = dest.bit_count == 32;
  const bool from_index = source.bit_count <= 8 && (to_32 || dest.bit_count == 24);
  if (!from_index && !(source.bit_count == 24 && to_32)) return;
  const DepthKernels& kernels = ActiveDepthKernels();
  const auto widen = !from_index ? kernels.color_to_32
                     : to_32     ? kernels.gray_to_32
                                 : kernels.gray_to_24;
  const int64_t from_bytes = from_index ? 1 : 3;
  const int to_bytes = to_32 ? 4 : 3;
  const MemoryReach read(source.bits, source.stride, source.Columns() * from_bytes, source.Rows());
  const MemoryReach written(dest.bits, dest.stride, source.Columns() * to_bytes, source.Rows());
  // Entries beyond a palette leave the fourth byte as it is.
  const bool apart = !read.Meets(written) && (palette.Empty() || !to_32);
  WriteRows(dest.bits, dest.stride, to_bytes, source.Columns(), source.Rows(), apart,
            [&](uint8_t* to, int64_t y, int64_t x, size_t count) {
              const uint8_t* const from = source.Row(y) + x * from_bytes;
              if (from_index && !palette.Empty()) {
                ExpandRow(to, from, count, to_bytes, palette);
              } else {
                widen(to, from, count);
              }
            });
}

}  // namespace

result_t CQELImageTransform::IncreaseBpp(IQEL* source, IQEL** result, int bit_count,
                                         uint32_t color_model) {
  if (source == nullptr) return kFail;
  if (result == nullptr) return kNullOutput;
  const ImageShape shape = ReadShape(*source);
  if (static_cast<uint32_t>(bit_count) <= static_cast<uint32_t>(shape.bit_count)) {
    *result = SmartPtr<IQEL>::Retain(source).Detach();
    return kNothingToDo;
  }
  ResultImage output = ResultImage::FromCollection();
  const SourcePalette palette(source);
  if (!output) return kFail;
  ImageShape wider = shape;
  wider.bit_count = bit_count;
  wider.model = color_model;
  const result_t created = output.Create(wider);
  if (Failed(created)) return created;
  const ImageView from = ReadPlane(*source, shape, 0);
  ConvertPixels(from, output.View(), palette);
  output.Store(result);
  return kOk;
}

}  // namespace qel
