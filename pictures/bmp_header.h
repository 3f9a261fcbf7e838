#ifndef QEL_PICTURES_BMP_HEADER_H_
#define QEL_PICTURES_BMP_HEADER_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "pictures/codec.h"
#include "pictures/pixel_target.h"

namespace qel::pictures {

inline constexpr size_t kFileHeaderBytes = 14;
/// Bytes of the header after it, by which varieties are told apart.
inline constexpr uint32_t kCoreHeader = 12, kShortOs2Header = 16, kInfoHeader = 40, kOs2Header = 64,
                          kV4Header = 108, kV5Header = 124;

/// Bytes of a row with its padding to whole words.
inline size_t BmpStep(size_t row_bytes) { return (row_bytes + 3) / 4 * 4; }

/// What the headers of a file say of its pixels.
struct BmpHeader {
  enum Compression : uint32_t { kPlain = 0, kRle8 = 1, kRle4 = 2, kMasks = 3, kAlphaMasks = 6 };

  uint32_t bytes = 0;  ///< of the header itself
  size_t pixels_at = 0;
  int64_t width = 0;
  int64_t height = 0;
  bool top_down = false;
  int depth = 0;
  uint32_t compression = kPlain;
  size_t colors = 0;       ///< palette entries, 0 for as many as there are indices
  uint32_t masks[4] = {};  ///< blue, green, red, alpha
  size_t palette_at = 0;

  bool Runs() const { return compression == kRle8 || compression == kRle4; }
  bool Indexed() const { return depth <= 8; }
  size_t PaletteEntryBytes() const { return bytes == kCoreHeader ? 3 : 4; }
  size_t RowBytes() const { return pictures::RowBytes(static_cast<int>(width), depth); }
  size_t Step() const { return BmpStep(RowBytes()); }
  /// Of all rows as they are stored without compression; the last may lack its padding.
  uint64_t PixelBytes() const { return static_cast<uint64_t>(height - 1) * Step() + RowBytes(); }
};

/// Reads the headers, and the resolution into `metadata`. Throws for varieties that are not read.
BmpHeader ReadBmpHeader(const Input& input, Metadata& metadata);

/// The palette of an indexed picture. Throws when the file ends in it.
std::vector<PaletteEntry> ReadBmpPalette(const Input& input, const BmpHeader& header);

/// Throws when the file is too short for its pixels.
void CheckBmpLength(const Input& input, const BmpHeader& header);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_BMP_HEADER_H_
