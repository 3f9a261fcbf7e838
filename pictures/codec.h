#ifndef QEL_PICTURES_CODEC_H_
#define QEL_PICTURES_CODEC_H_

#include <vector>

#include "pictures/picture_file.h"

namespace qel::pictures {

// What the format readers and writers share.

using Bytes = std::span<const uint8_t>;

/// A file that is being read.
struct Input {
  Bytes file;
  const std::string& name;  ///< for messages
  const ReadOptions& options;
  const Allocate& allocate;

  [[noreturn]] void Broken(const std::string& what) const {
    throw PictureError(PictureError::Kind::kBroken, name, what);
  }
  [[noreturn]] void Unsupported(const std::string& what) const {
    throw PictureError(PictureError::Kind::kUnsupported, name, what);
  }
};

/// The memory that a picture is decoded into, in the order in which the file stores it. When the
/// picture has to be turned, rows go to a buffer first and `Finish` moves them.
class PixelTarget {
 public:
  /// Checks the limits, turns `info` into the oriented picture and asks for its memory.
  /// `info` describes the stored picture; `orientation` is an EXIF orientation, 1 to 8.
  PixelTarget(const Input& input, PictureInfo& info, int orientation = 1);

  uint8_t* Row(int y) { return bits_ + ptrdiff_t{y} * stride_; }
  ptrdiff_t stride() const { return stride_; }
  /// Call once all stored rows are there.
  void Finish();

 private:
  uint8_t* bits_;
  ptrdiff_t stride_;
  int orientation_;
  int stored_width_;
  int stored_height_;
  int bit_count_;
  PixelBuffer oriented_;
  std::vector<uint8_t> stored_;
};

/// Throws unless a picture of this size is within the limits.
void CheckLimits(const Input& input, int64_t width, int64_t height, int bit_count);

/// Bytes of a row without padding.
inline size_t RowBytes(int width, int bit_count) {
  return (static_cast<size_t>(width) * static_cast<size_t>(bit_count) + 7) / 8;
}

/// The orientation in an EXIF block (with or without its "Exif" prefix); 1 when there is none.
int ExifOrientation(Bytes exif);

/// Expands indices of 1, 2, 4 or 8 bits to 24 bits, or to 32 when `with_alpha` (the entries'
/// reserved byte is then alpha). Indices beyond the palette are black.
void ExpandIndices(const uint8_t* packed, int bits, std::span<const PaletteEntry> palette,
                   bool with_alpha, uint8_t* row, int width);

/// Index `x` of a packed row.
inline unsigned PackedIndex(const uint8_t* packed, int bits, int x) {
  const int64_t position = int64_t{x} * bits;
  return static_cast<unsigned>(packed[position >> 3]) >> (8 - bits - (position & 7)) &
         ((1u << bits) - 1);
}

/// Two-bit indices as four-bit ones, which images have.
void WidenToFourBits(const uint8_t* packed, uint8_t* row, int width);

/// A palette of `count` greys from black to white, or the reverse.
std::vector<PaletteEntry> GreyPalette(int count, bool white_is_zero = false);

/// Rounds a 16-bit sample to 8 bits.
inline uint8_t Reduce16(unsigned value) {
  return static_cast<uint8_t>((value * 255u + 32895u) >> 16);
}
inline constexpr char kReducedNote[] = "16 bits per channel were reduced to 8";
inline constexpr char kAlphaDroppedNote[] = "the format has no alpha channel; it was left out";

/// True when a 32-bit picture has a pixel that is not opaque.
bool HasTransparency(const PictureView& picture);

/// A picture as 24 or 32 bits or 8-bit grey, row by row, for writers of formats without palettes.
class ColourRows {
 public:
  explicit ColourRows(const PictureView& picture, bool keep_alpha);
  int bit_count() const { return bit_count_; }
  /// Row `y`, valid until the next call.
  const uint8_t* Row(int y);

 private:
  const PictureView& picture_;
  std::vector<PaletteEntry> palette_;
  int bit_count_;
  std::vector<uint8_t> row_;
};

// The formats. A reader is called only when its `Is...` recognised the file.
bool IsPng(Bytes file);
PictureInfo ReadPng(const Input& input);
bool IsJpeg(Bytes file);
PictureInfo ReadJpeg(const Input& input);
bool IsTiff(Bytes file);
PictureInfo ReadTiff(const Input& input);
bool IsWebp(Bytes file);
PictureInfo ReadWebp(const Input& input);
bool IsBmp(Bytes file);
PictureInfo ReadBmp(const Input& input);
bool IsPnm(Bytes file);
PictureInfo ReadPnm(const Input& input);

/// A picture that is being encoded.
struct Output {
  const std::string& name;  ///< for messages, and for the variety that its extension asks for
  const PictureView& picture;
  const Metadata& metadata;
  const WriteOptions& options;
  std::vector<std::string>& notes;

  [[noreturn]] void Fail(const std::string& what) const {
    throw PictureError(PictureError::Kind::kNotWritable, name, what);
  }
};
std::vector<uint8_t> EncodePng(const Output& output);
std::vector<uint8_t> EncodeJpeg(const Output& output);
std::vector<uint8_t> EncodeTiff(const Output& output);
std::vector<uint8_t> EncodeWebp(const Output& output);
std::vector<uint8_t> EncodeBmp(const Output& output);
std::vector<uint8_t> EncodePnm(const Output& output);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_CODEC_H_
