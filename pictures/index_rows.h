#ifndef QEL_PICTURES_INDEX_ROWS_H_
#define QEL_PICTURES_INDEX_ROWS_H_

#include <array>
#include <vector>

#include "pictures/codec.h"

namespace qel::pictures {

/// Index `x` of a row that packs `bits` (1, 2, 4 or 8) per index, the leftmost in the high bits.
inline uint8_t LoadIndex(const uint8_t* row, int bits, int64_t x) {
  const int64_t position = x * bits;
  return static_cast<uint8_t>(row[position >> 3] >> (8 - bits - (position & 7)) &
                              ((1 << bits) - 1));
}

/// Sets index `x` of such a row and nothing beside it.
inline void StoreIndex(uint8_t* row, int bits, int64_t x, uint8_t index) {
  const int64_t position = x * bits;
  const auto shift = static_cast<int>(8 - bits - (position & 7));
  uint8_t& byte = row[position >> 3];
  byte = static_cast<uint8_t>((byte & ~(((1 << bits) - 1) << shift)) | index << shift);
}

/// One byte per index.
void UnpackIndices(const uint8_t* packed, int bits, int count, uint8_t* indices);

/// The 2^bits greys from black to white.
std::vector<PaletteEntry> GrayRamp(int bits);

/// The palette of a picture of up to 8 bits: its own, or the greys that it means without one.
std::vector<PaletteEntry> PaletteOf(const PictureView& picture);

/// Whether every entry is a grey.
bool IsGray(std::span<const PaletteEntry> palette);

/// Puts rows of indices into a picture the way the options ask for: kept with their palette, or
/// looked up as grey or colours.
class IndexRows {
 public:
  /// What the entries of a palette stand for.
  enum class Meaning { kGray, kColor };

  /// `bits` per stored index: 1, 2, 4 or 8. Of `kGray` palettes the blue byte is the level. States
  /// depth and, when kept, palette in `info`.
  IndexRows(const ReadOptions& options, int bits, std::vector<PaletteEntry> palette,
            Meaning meaning, PictureInfo& info);

  /// Stores `count` indices, one byte each, from pixel `x` of `row` on.
  void Put(const uint8_t* indices, int count, uint8_t* row, int x) const;

 private:
  bool kept_;
  int bit_count_;
  std::array<PaletteEntry, 256> colors_{};
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_INDEX_ROWS_H_
