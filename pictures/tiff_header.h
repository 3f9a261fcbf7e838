#ifndef QEL_PICTURES_TIFF_HEADER_H_
#define QEL_PICTURES_TIFF_HEADER_H_

#include <vector>

#include "pictures/codec.h"
#include "pictures/tiff_session.h"

namespace qel::pictures {

enum class TiffAlpha { kNone, kStraight, kAssociated };

/// What the first directory of a file says of its pixels.
struct TiffHeader {
  uint32_t width = 0;
  uint32_t height = 0;
  uint16_t bits = 1;
  uint16_t samples = 1;
  uint16_t photometric = 0xFFFF;
  uint16_t planar = PLANARCONFIG_CONTIG;
  uint16_t orientation = ORIENTATION_TOPLEFT;
  uint16_t sample_format = SAMPLEFORMAT_UINT;
  uint16_t extra_samples = 0;
  uint16_t compression = COMPRESSION_NONE;
  TiffAlpha alpha = TiffAlpha::kNone;  ///< of the first extra sample

  bool IsGray() const {
    return photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
  }
  bool HasPalette() const { return photometric == PHOTOMETRIC_PALETTE; }
  /// Whether pixels stay in the colours that a profile of the file speaks of.
  bool KeepsProfile() const {
    return ColorSamples() == 1 || ColorSamples() == 3 || photometric == PHOTOMETRIC_YCBCR;
  }
  /// Samples of colour in a pixel; 0 for kinds of colour that we leave to the library.
  int ColorSamples() const {
    if (IsGray() || HasPalette()) return 1;
    return photometric == PHOTOMETRIC_RGB ? 3 : photometric == PHOTOMETRIC_SEPARATED ? 4 : 0;
  }
  /// Samples that are read of a pixel: its colour, and alpha.
  int UsedSamples() const { return ColorSamples() + (alpha != TiffAlpha::kNone ? 1 : 0); }
  /// Whether we convert the samples ourselves; what remains goes through the library's own
  /// conversion, which knows rare colours but loses precision where there is alpha.
  bool ConvertsDirectly() const;
  /// Whether samples are inks that we convert.
  bool HasInks() const { return ColorSamples() == 4 && ConvertsDirectly(); }
  bool IsPlanar() const { return planar == PLANARCONFIG_SEPARATE; }
};

TiffHeader ReadTiffHeader(TIFF* tiff);

/// The palette, or the meaning of grey levels up to 8 bits.
std::vector<PaletteEntry> ReadTiffPalette(const Input& input, TIFF* tiff, const TiffHeader& header);

/// Throws unless the strips or tiles of the file can hold its pixels.
void CheckTiffPieces(const Input& input, TIFF* tiff, const TiffHeader& header);

/// What `info` says besides the shape of the picture: metadata, and notes on what will be
/// converted.
void ReadTiffMetadata(const Input& input, TIFF* tiff, const TiffHeader& header, PictureInfo& info);

/// A product that no limit allows when it overflows.
inline uint64_t CheckedProduct(uint64_t a, uint64_t b) {
  uint64_t product;
  return __builtin_mul_overflow(a, b, &product) ? UINT64_MAX : product;
}

}  // namespace qel::pictures

#endif  // QEL_PICTURES_TIFF_HEADER_H_
