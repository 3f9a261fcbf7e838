#ifndef QEL_PICTURES_CODEC_H_
#define QEL_PICTURES_CODEC_H_

#include <string>
#include <vector>

#include "pictures/byte_reader.h"
#include "pictures/byte_sink.h"
#include "pictures/byte_source.h"
#include "pictures/exif.h"
#include "pictures/picture_file.h"

namespace qel::pictures {

/// A file that is being read.
struct Input {
  ByteSource& source;
  const std::string& name;  ///< for messages
  const ReadOptions& options;
  const Allocate* allocate;            ///< null when only the header is asked for
  mutable uint64_t planned_bytes = 0;  ///< that decoding will take, as far as `Plan` was told

  /// Throws unless `count` more bytes of memory are within the limits.
  void Plan(uint64_t count) const;
  /// Throws unless `held` bytes of the file can stand for `promised` units of pixels, at the best
  /// ratio that the format has.
  void CheckHolds(uint64_t promised, uint64_t best_ratio, uint64_t held) const;
  void CheckHolds(uint64_t promised, uint64_t best_ratio) const {
    CheckHolds(promised, best_ratio, source.size());
  }

  [[noreturn]] void Fail(PictureError::Kind kind, const std::string& what) const {
    throw PictureError(kind, name, what);
  }
  [[noreturn]] void Broken(const std::string& what) const {
    Fail(PictureError::Kind::kBroken, what);
  }
  [[noreturn]] void Truncated() const {
    throw TruncatedPicture(name, "truncated: the file ends before its pixels do");
  }
  [[noreturn]] void Unsupported(const std::string& what) const {
    Fail(PictureError::Kind::kUnsupported, what);
  }
};

/// A file that is being read by rows.
struct RowInput {
  ByteSource& source;  ///< outlives the reader
  std::string name;    ///< for messages
  ReadOptions options;
};

/// The shape of a picture that is to be written.
struct OutputShape {
  const std::string& path;  ///< for messages
  std::string extension;    ///< that asks for a variety
  int width;
  int height;
  int bit_count;

  [[noreturn]] void DoesNotFit(const std::string& what) const {
    throw PictureError(PictureError::Kind::kDoesNotFit, path, what);
  }
  /// Throws when a side is longer than the format can say.
  void CheckSides(const char* format, int longest) const;
};

/// A picture that is being encoded. Its shape has been checked.
struct Output {
  const std::string& path;  ///< for messages, and for the variety that its extension asks for
  const PictureView& picture;
  const Metadata& metadata;
  const WriteOptions& options;
  std::vector<std::string>& notes;

  [[noreturn]] void DoesNotFit(const std::string& what) const {
    throw PictureError(PictureError::Kind::kDoesNotFit, path, what);
  }
  [[noreturn]] void EncoderFailed(const std::string& what) const {
    throw PictureError(PictureError::Kind::kNotWritable, path, "encoding failed: " + what);
  }
  /// The colour profile if it is one for such pixels, else nothing and a note.
  Bytes Profile(bool grey) const;
  /// Notes what the format has no place for.
  void NoteLostProfile(const char* format) const;
  void NoteLostResolution(const char* format) const;
  void NoteLostAlpha(const char* format) const;
  void NoteLostTexts(const char* format) const;
  bool HasResolution() const { return metadata.dpi_x > 0 && metadata.dpi_y > 0; }
};

/// A picture that is being encoded by rows. Its shape has been checked, its metadata are as they
/// are to be written.
struct RowOutput {
  ByteSink& sink;    ///< outlives the writer
  std::string path;  ///< as in `Output`
  int width;
  int height;
  int bit_count;
  std::vector<PaletteEntry> palette;
  Metadata metadata;
  WriteOptions options;
};

/// What a byte of a deflate stream stands for at most: matches of 258 bytes in two bits.
inline constexpr uint64_t kDeflateRatio = 1032;

inline constexpr char kReducedNote[] = "16 bits per channel were reduced to 8";
inline constexpr char kCmykNote[] =
    "CMYK was converted to colours without its profile, which was left out";
inline constexpr char kPaletteAlphaNote[] = "a palette holds no alpha; it was left out";
inline constexpr char kAssociatedNote[] = "colours were divided by their alpha";

inline constexpr double kCentimetresPerInch = 2.54;

/// Takes the EXIF block of a file with `orientation` into its metadata: as it is to be written, and
/// where the file says nothing else, with its resolution.
void TakeExif(const Input& input, const Exif& exif, Metadata& metadata);
/// The same for XMP.
void TakeXmp(const Input& input, Bytes xmp, Metadata& metadata);

/// A path's extension with its dot, in lower case.
std::string ExtensionOf(const std::string& path);

/// Files that count dots per metre in whole numbers: 300 dpi come back as 300, not as 299.9994.
double DpiFromMetre(double dots_per_metre);
uint32_t DotsPerMetre(double dpi);

// The formats. A reader is called only when its `Is...` has recognised the file. `Check...Shape`
// throws for shapes that the format cannot hold; formats without one hold all.
bool IsPng(Bytes file);
PictureInfo ReadPng(const Input& input);
std::vector<uint8_t> EncodePng(const Output& output);

bool IsJpeg(Bytes file);
PictureInfo ReadJpeg(const Input& input);
void CheckJpegShape(const OutputShape& shape);
std::vector<uint8_t> EncodeJpeg(const Output& output);

bool IsTiff(Bytes file);
PictureInfo ReadTiff(const Input& input);
std::vector<uint8_t> EncodeTiff(const Output& output);

bool IsWebp(Bytes file);
PictureInfo ReadWebp(const Input& input);
void CheckWebpShape(const OutputShape& shape);
std::vector<uint8_t> EncodeWebp(const Output& output);

bool IsGif(Bytes file);
PictureInfo ReadGif(const Input& input);

// HEIC and AVIF, and JPEG XL, each through a plug-in.
bool IsHeif(Bytes file);
PictureInfo ReadHeif(const Input& input);
bool IsJxl(Bytes file);
PictureInfo ReadJxl(const Input& input);

bool IsBmp(Bytes file);
PictureInfo ReadBmp(const Input& input);
void CheckBmpShape(const OutputShape& shape);
std::vector<uint8_t> EncodeBmp(const Output& output);

bool IsPnm(Bytes file);
PictureInfo ReadPnm(const Input& input);
void CheckPnmShape(const OutputShape& shape);
std::vector<uint8_t> EncodePnm(const Output& output);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_CODEC_H_
