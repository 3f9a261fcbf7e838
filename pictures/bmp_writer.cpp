#include <algorithm>
#include <memory>

#include "pictures/bmp_header.h"
#include "pictures/index_rows.h"

namespace qel::pictures {
namespace {

constexpr uint32_t kStandardColors = 0x73524742;  // "sRGB"

class BmpEncoder final : public RowEncoder {
 public:
  explicit BmpEncoder(const Output& output)
      : RowEncoder(output),
        row_bytes_(RowBytes(output.shape.width, output.shape.bit_count)),
        step_(BmpStep(row_bytes_)) {
    const std::vector<uint8_t> header = MakeHeader();
    end_ = header.size() + step_ * static_cast<uint64_t>(output.shape.height);
    output.NoteLostProfile("BMP");
    output.NoteLostTexts("BMP");
    output.sink.Write(header);
  }

  /// The last row of the picture is the first one of the file.
  void Write(const PictureView& rows) override {
    constexpr size_t kAtATime = size_t{1} << 18;
    const int most = static_cast<int>(std::max<size_t>(1, kAtATime / step_));
    for (int y = 0; y < rows.height; y += most) {
      const int count = std::min(most, rows.height - y);
      stored_.assign(static_cast<size_t>(count) * step_, 0);
      for (int i = 0; i < count; ++i) {
        std::copy_n(rows.Row(y + i), row_bytes_, stored_.end() - (i + 1) * ptrdiff_t(step_));
      }
      end_ -= stored_.size();
      output_.sink.WriteAt(end_, stored_);
    }
  }

 private:
  std::vector<uint8_t> MakeHeader() const {
    const PictureView& shape = output_.shape;
    const bool alpha = shape.bit_count == 32;
    const std::vector<PaletteEntry> palette =
        shape.bit_count <= 8 ? PaletteOf(shape) : std::vector<PaletteEntry>();
    const uint32_t header_bytes = alpha ? kV4Header : kInfoHeader;
    const uint64_t pixels_at = kFileHeaderBytes + header_bytes + 4 * palette.size();
    const uint64_t pixel_bytes = step_ * static_cast<uint64_t>(shape.height);
    std::vector<uint8_t> header{'B', 'M'};
    const auto put = [&](uint64_t value) { AppendLittle(header, static_cast<uint32_t>(value), 4); };
    put(pixels_at + pixel_bytes);
    put(0);
    put(pixels_at);
    put(header_bytes);
    put(static_cast<uint32_t>(shape.width));
    put(static_cast<uint32_t>(shape.height));
    AppendLittle(header, 1, 2);
    AppendLittle(header, static_cast<uint32_t>(shape.bit_count), 2);
    put(alpha ? BmpHeader::kMasks : BmpHeader::kPlain);
    put(pixel_bytes);
    put(DotsPerMetre(output_.metadata.dpi_x));
    put(DotsPerMetre(output_.metadata.dpi_y));
    put(palette.size());
    put(0);
    if (alpha) {
      for (const uint32_t mask : {0xFF0000u, 0xFF00u, 0xFFu, 0xFF000000u}) put(mask);
      put(kStandardColors);
      header.resize(pixels_at);
    }
    for (const PaletteEntry& entry : palette) {
      header.insert(header.end(), {entry.blue, entry.green, entry.red, 0});
    }
    return header;
  }

  size_t row_bytes_;
  size_t step_;                  ///< the same with padding
  std::vector<uint8_t> stored_;  ///< some rows
  uint64_t end_;                 ///< of the rows of the file that are not there yet
};

}  // namespace

void CheckBmpShape(const OutputShape& shape) {
  constexpr uint64_t kLargestPalette = 1024;
  const uint64_t step = BmpStep(RowBytes(shape.width, shape.bit_count));
  const uint64_t before = kFileHeaderBytes + kV4Header + kLargestPalette;
  if (before + step * static_cast<uint64_t>(shape.height) > UINT32_MAX) {
    shape.DoesNotFit("BMP holds at most 4 GiB; choose PNG or TIFF");
  }
}

std::unique_ptr<RowEncoder> StartBmp(const Output& output) {
  return std::make_unique<BmpEncoder>(output);
}

}  // namespace qel::pictures
