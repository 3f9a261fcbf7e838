#ifndef QEL_PICTURES_PICTURE_FILE_H_
#define QEL_PICTURES_PICTURE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pictures/picture_error.h"

namespace qel::pictures {

enum class Format { kPng, kJpeg, kTiff, kWebp, kBmp, kPnm };

/// One palette entry in memory order.
struct PaletteEntry {
  uint8_t blue;
  uint8_t green;
  uint8_t red;
  uint8_t reserved;
};

/// What is kept of a file besides its pixels.
struct Metadata {
  std::vector<uint8_t> icc_profile;
  double dpi_x = 0;  ///< dots per inch, 0 when unknown
  double dpi_y = 0;
};

/// A picture as its header describes it, after its orientation has been applied.
struct PictureInfo {
  Format format = Format::kPng;
  int width = 0;
  int height = 0;
  int bit_count = 0;  ///< 8 grey, 24 blue green red, 32 with straight alpha; 1, 4, 8 with `palette`
  std::vector<PaletteEntry> palette;  ///< only when the palette depth is kept
  Metadata metadata;
  std::vector<std::string> notes;  ///< what was changed on the way, a sentence each
};

/// Where the rows of a picture go: row y at bits + y * stride, which may be negative.
struct PixelBuffer {
  uint8_t* bits;
  ptrdiff_t stride;
};

/// Provides the memory for a picture. Called once, after the header has passed the limits.
using Allocate = std::function<PixelBuffer(const PictureInfo& info)>;

/// The largest picture that is read; checked from the header, before anything is allocated.
struct Limits {
  int64_t max_pixels = int64_t{1} << 29;
  int64_t max_bytes = int64_t{1} << 31;       ///< of decoded rows
  int64_t max_file_bytes = int64_t{1} << 31;  ///< of the file itself
};

struct ReadOptions {
  Limits limits;
  /// Keep indices of palette pictures, and grey levels below 8 bits, with their palette instead of
  /// expanding them to colours.
  bool keep_palette_depth = false;
};

/// Reads a picture into memory that `allocate` provides: rows of blue, green, red (, alpha) bytes,
/// or one grey byte per pixel. Bytes between rows are not touched. The format is told by content.
/// Palettes are expanded, 16 bits per channel reduced to 8 with a note, EXIF orientation applied.
/// Throws `PictureError`.
PictureInfo ReadPicture(const std::string& path, const ReadOptions& options,
                        const Allocate& allocate);
/// The same from memory; `name` stands for the file in messages.
PictureInfo ReadPictureFromMemory(std::span<const uint8_t> file, const std::string& name,
                                  const ReadOptions& options, const Allocate& allocate);

/// A picture to be written. 1 and 4 bits hold indices, the leftmost in the high bits, as 8 bits do
/// with a palette; without a palette they are grey levels.
struct PictureView {
  const uint8_t* bits;
  ptrdiff_t stride;
  int width;
  int height;
  int bit_count;
  std::span<const PaletteEntry> palette = {};

  const uint8_t* Row(int y) const { return bits + ptrdiff_t{y} * stride; }
};

struct WriteOptions {
  int jpeg_quality = 92;
  int webp_quality = 100;  ///< 100 is lossless
};

/// Encodes a picture in the format that the extension of `path` names and writes it whole or not at
/// all. Returns notes on what the format cannot hold. Throws `PictureError`.
std::vector<std::string> WritePicture(const std::string& path, const PictureView& picture,
                                      const Metadata& metadata, const WriteOptions& options = {});

/// The format that an extension names. Throws `PictureError` that lists the known ones.
Format FormatOfPath(const std::string& path);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_PICTURE_FILE_H_
