#ifndef QEL_PICTURES_PICTURE_FILE_H_
#define QEL_PICTURES_PICTURE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "pictures/byte_source.h"
#include "pictures/limits.h"
#include "pictures/picture_error.h"

namespace qel::pictures {

enum class Format { kPng, kJpeg, kTiff, kWebp, kGif, kHeif, kJxl, kBmp, kPnm };

/// One palette entry in memory order.
struct PaletteEntry {
  uint8_t blue = 0;
  uint8_t green = 0;
  uint8_t red = 0;
  uint8_t reserved = 0;
  bool operator==(const PaletteEntry&) const = default;
};

/// What is kept of a file besides its pixels. Of upright pixels it speaks as of upright ones, and
/// has no small pictures of the picture.
struct Metadata {
  std::vector<uint8_t> icc_profile;
  double dpi_x = 0;  ///< dots per inch, 0 when unknown
  double dpi_y = 0;
  std::vector<uint8_t> exif = {};  ///< a block without its "Exif" prefix
  std::string xmp = {};            ///< a packet
  std::vector<uint8_t> iptc = {};  ///< datasets
};

/// A picture as its header describes it, upright unless the options say otherwise: the orientation
/// of the file is already applied.
struct PictureInfo {
  Format format = Format::kPng;
  int width = 0;
  int height = 0;
  /// 8 grey, 24 blue green red, 32 with straight alpha; 1, 4 or 8 bits of index with `palette`.
  int bit_count = 0;
  int orientation =
      1;  ///< in the file, 1 to 8 as EXIF counts them; already applied, if it was to be
  /// Filled only when the palette depth is kept. May have less than 2^bit_count entries; indices
  /// past its end are black.
  std::vector<PaletteEntry> palette;
  Metadata metadata;
  std::vector<std::string> notes;  ///< what was changed on the way, a sentence each

  bool HasAlpha() const { return bit_count == 32; }
};

/// Where the rows of a picture go: row y at bits + y * stride, which may be negative.
struct PixelBuffer {
  uint8_t* bits = nullptr;
  ptrdiff_t stride = 0;
};

/// Provides the memory for a picture. Called once, after the header has passed the limits. What it
/// throws passes through.
using Allocate = std::function<PixelBuffer(const PictureInfo& info)>;

struct ReadOptions {
  Limits limits = {};
  /// Keeps indices of palette pictures, and grey levels below 8 bits, with their palette instead
  /// of expanding them. Two-bit indices become four-bit ones. Transparency of a palette is lost.
  bool keep_palette_depth = false;
  /// Turns and mirrors pixels as the file's orientation says; otherwise they stay as they are
  /// stored and the metadata keep the orientation.
  bool upright = true;
  /// Brings colours from the file's profile to sRGB.
  bool to_srgb = false;
  /// How many times shorter the sides may be: JPEG pictures are decoded at 1/2, 1/4 or 1/8 of their
  /// size, rounded up, as far as this allows. Others stay as they are.
  int most_shrunk = 1;
};

/// Reads a picture straight into the memory that `allocate` provides. Bytes between rows are not
/// touched; unused bits of the last byte of a row become 0. The format is told by the content.
/// Sixteen bits per channel are reduced to 8, CMYK is converted simply, both with a note.
/// Throws `PictureError`. Any thread; several pictures may be read at once.
PictureInfo ReadPicture(const std::string& path, const ReadOptions& options,
                        const Allocate& allocate);
/// The same from a file that is open; `name` stands for it in messages.
PictureInfo ReadPicture(ByteSource& source, const std::string& name, const ReadOptions& options,
                        const Allocate& allocate);
/// The same from memory.
PictureInfo ReadPictureFromMemory(std::span<const uint8_t> file, const std::string& name,
                                  const ReadOptions& options, const Allocate& allocate);

/// The bytes of a file, regular or a pipe, up to the limit. Throws `PictureError`.
std::vector<uint8_t> ReadFile(const std::string& path, const Limits& limits = {});

/// Reads on in a file only after its first bytes are those of a known format and, of a pipe, its
/// header is within the limits. Throws `PictureError`.
void Recognise(ByteSource& source, const std::string& name, const ReadOptions& options = {});

/// What `ReadPicture` would hand to its allocator, without decoding pixels. Of a regular file only
/// the parts that the header is in get read.
PictureInfo ReadPictureHeader(const std::string& path, const ReadOptions& options = {});
PictureInfo ReadPictureHeader(ByteSource& source, const std::string& name,
                              const ReadOptions& options = {});
PictureInfo ReadPictureHeaderFromMemory(std::span<const uint8_t> file, const std::string& name,
                                        const ReadOptions& options = {});

/// A picture to be written. 1, 4 and 8 bits hold indices, the leftmost in the high bits, or
/// without a palette grey levels from black to white.
struct PictureView {
  const uint8_t* bits = nullptr;
  ptrdiff_t stride = 0;
  int width = 0;
  int height = 0;
  int bit_count = 0;
  std::span<const PaletteEntry> palette = {};

  const uint8_t* Row(int y) const { return bits + ptrdiff_t{y} * stride; }
};

/// What is left out of the metadata. Profile and resolution stay: pixels need them.
enum class Strip { kNothing, kPlaces, kAll };

struct WriteOptions {
  std::string extension = {};  ///< that stands for the one of the path; may be empty
  int jpeg_quality = 92;       ///< 1 to 100; colour is kept at full resolution from 90 up
  int webp_quality = 80;       ///< 0 to 100
  bool webp_lossless = false;
  int png_level = 6;  ///< of compression, 0 to 9
  int threads = 1;    ///< that may pack at a time; the bytes are the same for any number
  Strip strip = Strip::kNothing;
};

/// Throws `PictureError` (kDoesNotFit) when the format that the extension of `path` names, or
/// `extension` in its place, holds no picture of this shape, whatever its pixels are.
void CheckFits(const std::string& path, int width, int height, int bit_count,
               const std::string& extension = {});

struct EncodedPicture {
  std::vector<uint8_t> file;
  std::vector<std::string> notes;  ///< on what the format could not hold
};

/// Encodes a picture in memory; `name` stands for the file in messages, and its extension names
/// the format as that of a path does. Throws `PictureError`.
EncodedPicture EncodePicture(const std::string& name, const PictureView& picture,
                             const Metadata& metadata, const WriteOptions& options = {});

/// What a format is called.
std::string_view NameOf(Format format);

/// Where the plug-ins for further formats are, an absolute path; none are loaded without it.
/// Threads: before pictures are read.
void SetPluginFolder(const std::string& folder);

/// The format that the extension of `path` names for writing. Throws `PictureError`, which lists
/// the known extensions.
Format FormatOfPath(const std::string& path);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_PICTURE_FILE_H_
