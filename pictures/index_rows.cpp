#include "pictures/index_rows.h"

#include <algorithm>
#include <cstring>

namespace qel::pictures {

void UnpackIndices(const uint8_t* packed, int bits, int count, uint8_t* indices) {
  if (bits == 8) {
    std::memcpy(indices, packed, static_cast<size_t>(count));
    return;
  }
  for (int x = 0; x < count; ++x) indices[x] = LoadIndex(packed, bits, x);
}

std::vector<PaletteEntry> GrayRamp(int bits) {
  const int last = (1 << bits) - 1;
  std::vector<PaletteEntry> ramp;
  for (int i = 0; i <= last; ++i) {
    const auto level = static_cast<uint8_t>(i * 255 / last);
    ramp.push_back({level, level, level, 0});
  }
  return ramp;
}

std::vector<PaletteEntry> PaletteOf(const PictureView& picture) {
  if (picture.palette.empty()) return GrayRamp(picture.bit_count);
  const size_t most = size_t{1} << picture.bit_count;
  const auto entries = picture.palette.first(std::min(picture.palette.size(), most));
  return {entries.begin(), entries.end()};
}

bool IsGray(std::span<const PaletteEntry> palette) {
  return std::all_of(palette.begin(), palette.end(), [](const PaletteEntry& entry) {
    return entry.blue == entry.green && entry.blue == entry.red;
  });
}

IndexRows::IndexRows(const ReadOptions& options, int bits, std::vector<PaletteEntry> palette,
                     Meaning meaning, PictureInfo& info) {
  palette.resize(std::min<size_t>(palette.size(), size_t{1} << bits));
  std::copy(palette.begin(), palette.end(), colors_.begin());
  const bool gray = meaning == Meaning::kGray;
  // Eight-bit grey needs no palette to keep its depth.
  kept_ = options.keep_palette_depth && !(gray && bits == 8);
  bit_count_ = kept_ ? (bits == 2 ? 4 : bits) : gray ? 8 : 24;
  info.bit_count = bit_count_;
  if (kept_) info.palette = std::move(palette);
}

void IndexRows::Put(const uint8_t* indices, int count, uint8_t* row, int x) const {
  if (kept_) {
    if (bit_count_ == 8) {
      std::memcpy(row + x, indices, static_cast<size_t>(count));
    } else {
      for (int i = 0; i < count; ++i) StoreIndex(row, bit_count_, x + i, indices[i]);
    }
  } else if (bit_count_ == 8) {
    for (int i = 0; i < count; ++i) row[x + i] = colors_[indices[i]].blue;
  } else {
    uint8_t* pixel = row + ptrdiff_t{x} * 3;
    for (int i = 0; i < count; ++i, pixel += 3) {
      const PaletteEntry& color = colors_[indices[i]];
      pixel[0] = color.blue;
      pixel[1] = color.green;
      pixel[2] = color.red;
    }
  }
}

}  // namespace qel::pictures
