#ifndef QEL_PICTURES_EXIF_H_
#define QEL_PICTURES_EXIF_H_

#include <optional>
#include <vector>

#include "pictures/byte_reader.h"
#include "pictures/byte_source.h"

namespace qel::pictures {

// Tags that matter here.
inline constexpr uint16_t kWidthTag = 0x0100, kHeightTag = 0x0101, kOrientationTag = 0x0112,
                          kXResolutionTag = 0x011A, kYResolutionTag = 0x011B, kUnitTag = 0x0128,
                          kXmpTag = 0x02BC, kIptcTag = 0x83BB, kExifTag = 0x8769, kGpsTag = 0x8825,
                          kMakerNoteTag = 0x927C, kPixelWidthTag = 0xA002, kPixelHeightTag = 0xA003,
                          kInteropTag = 0xA005;

/// One field of a directory; its values with their lowest bytes first.
struct ExifEntry {
  uint16_t tag = 0;
  uint16_t type = 0;
  uint32_t count = 0;
  std::vector<uint8_t> data;
};
using ExifDirectory = std::vector<ExifEntry>;

/// The directories of an EXIF block, without the one of the thumbnail. Entries that point to other
/// directories are not among the others.
struct Exif {
  ExifDirectory main, photo, places, interop;
  /// Where the block had the maker's own note, which may state positions in the block; 0 without
  /// one.
  size_t maker_note_at = 0;

  bool IsEmpty() const { return main.empty() && photo.empty() && places.empty(); }
  /// 1 to 8; 1 when it is not stated.
  int Orientation() const;
  double DpiX() const { return Dpi(kXResolutionTag); }  ///< 0 when unknown
  double DpiY() const { return Dpi(kYResolutionTag); }

  bool HasResolution() const;

  void SetOrientation(int orientation);
  void SetResolution(double dpi_x, double dpi_y);
  /// Corrects the sides where they are stated.
  void SetSize(int width, int height);

 private:
  double Dpi(uint16_t tag) const;
};

/// Reads a block with or without its "Exif" prefix. Nothing for a damaged one.
std::optional<Exif> ParseExif(Bytes block);
/// The same from a TIFF file, of whose main directory only entries with these tags, unless there
/// are none.
std::optional<Exif> ParseExif(ByteSource& source, std::span<const uint16_t> main_tags = {});

/// Takes an entry out of a directory; one without data when there is none.
ExifEntry TakeEntry(ExifDirectory& directory, uint16_t tag);

/// The block, without prefix; the maker's note stands where it stood, if there is room.
std::vector<uint8_t> SerializeExif(const Exif& exif);

/// The directories besides `main`, to be appended to a TIFF file at the even position `base`.
struct ExifAppendix {
  std::vector<uint8_t> bytes;
  uint32_t photo_at = 0;  ///< positions in the file; 0 without such a directory
  uint32_t places_at = 0;
};
ExifAppendix SerializeExifForTiff(const Exif& exif, size_t base);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_EXIF_H_
