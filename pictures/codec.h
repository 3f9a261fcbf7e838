#ifndef QEL_PICTURES_CODEC_H_
#define QEL_PICTURES_CODEC_H_

#include <fmt/core.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "pictures/byte_reader.h"
#include "pictures/byte_sink.h"
#include "pictures/byte_source.h"
#include "pictures/exif.h"
#include "pictures/picture_file.h"

namespace qel::pictures {

/// A file that is being read. Outlives its decoder.
struct Input {
  ByteSource& source;
  std::string name;  ///< for messages
  ReadOptions options;
  mutable uint64_t planned_bytes = 0;  ///< that decoding will take, as far as `Plan` was told

  /// Throws unless `count` more bytes of memory are within the limits.
  void Plan(uint64_t count) const;
  /// The same for the whole file, where it will be held at once.
  void PlanFile() const {
    if (!source.IsMemory()) Plan(source.size());
  }
  /// Throws unless `held` bytes of the file can stand for `promised` units of pixels, at the best
  /// ratio that the format has.
  void CheckHolds(uint64_t promised, uint64_t best_ratio, uint64_t held) const;
  void CheckHolds(uint64_t promised, uint64_t best_ratio) const {
    CheckHolds(promised, best_ratio, source.size());
  }

  // What was wrong and what would be right: `arguments` take the places of the {} in `what`.
  template <typename... Arguments>
  [[noreturn]] void Fail(PictureError::Kind kind, fmt::format_string<Arguments...> what,
                         Arguments&&... arguments) const {
    throw PictureError(kind, name, fmt::format(what, std::forward<Arguments>(arguments)...));
  }
  template <typename... Arguments>
  [[noreturn]] void Broken(fmt::format_string<Arguments...> what, Arguments&&... arguments) const {
    Fail(PictureError::Kind::kBroken, what, std::forward<Arguments>(arguments)...);
  }
  [[noreturn]] void Truncated() const {
    throw TruncatedPicture(name, "truncated: the file ends before its pixels do");
  }
  template <typename... Arguments>
  [[noreturn]] void Unsupported(fmt::format_string<Arguments...> what,
                                Arguments&&... arguments) const {
    Fail(PictureError::Kind::kUnsupported, what, std::forward<Arguments>(arguments)...);
  }
};

/// A picture in a file whose header has been read and checked. Its rows come from the top down, as
/// they are stored: not turned.
class RowDecoder {
 public:
  RowDecoder() = default;
  virtual ~RowDecoder() = default;
  RowDecoder(const RowDecoder&) = delete;
  RowDecoder& operator=(const RowDecoder&) = delete;

  /// Decodes the next `count` rows. Unused bits of the last byte of a row may be anything.
  virtual void Read(const PixelBuffer& rows, int count) = 0;
  /// Looks at what follows the last row, and adds the last notes.
  virtual void Finish() {}

  PictureInfo info;     ///< of the stored picture
  int orientation = 1;  ///< that the file states, 1 to 8
  bool streams = true;  ///< false: `Read` is to be called once, for all rows
};

/// The shape of a picture that is to be written.
struct OutputShape {
  const std::string& path;  ///< for messages
  std::string extension;    ///< that asks for a variety
  int width;
  int height;
  int bit_count;

  template <typename... Arguments>
  [[noreturn]] void DoesNotFit(fmt::format_string<Arguments...> what,
                               Arguments&&... arguments) const {
    throw PictureError(PictureError::Kind::kDoesNotFit, path,
                       fmt::format(what, std::forward<Arguments>(arguments)...));
  }
  /// Throws when a side is longer than the format can say.
  void CheckSides(const char* format, int longest) const;
};

/// A picture that is being encoded. Its shape has been checked, its metadata are as they are to be
/// written. Outlives its encoder.
struct Output {
  ByteSink& sink;
  std::string path;   ///< for messages, and for the variety that its extension asks for
  PictureView shape;  ///< without pixels
  Metadata metadata;
  WriteOptions options;
  mutable std::vector<std::string> notes = {};

  [[noreturn]] void DoesNotFit(const std::string& what) const {
    throw PictureError(PictureError::Kind::kDoesNotFit, path, what);
  }
  [[noreturn]] void EncoderFailed(const std::string& what) const {
    throw PictureError(PictureError::Kind::kNotWritable, path, "encoding failed: " + what);
  }
  /// Adds what a user should know of the file.
  template <typename... Arguments>
  void Note(fmt::format_string<Arguments...> what, Arguments&&... arguments) const {
    notes.push_back(fmt::format(what, std::forward<Arguments>(arguments)...));
  }
  /// The colour profile if it is one for such pixels, else nothing and a note.
  Bytes Profile(bool gray) const;
  /// Notes what the format has no place for.
  void NoteLostProfile(const char* format) const;
  void NoteLostResolution(const char* format) const;
  void NoteLostTexts(const char* format) const;
  bool HasResolution() const { return metadata.dpi_x > 0 && metadata.dpi_y > 0; }
};

/// Puts a picture into a file, row by row from the top down.
class RowEncoder {
 public:
  explicit RowEncoder(const Output& output) : output_(output) {}
  virtual ~RowEncoder() = default;
  RowEncoder(const RowEncoder&) = delete;
  RowEncoder& operator=(const RowEncoder&) = delete;

  /// Encodes the next `rows.height` rows.
  virtual void Write(const PictureView& rows) = 0;
  /// Completes the file after the last row.
  virtual void Finish() {}

  bool streams = true;                  ///< false: `Write` is to be called once, with all rows
  uint64_t held_bytes = 0;              ///< besides a few rows and what every library takes
  const char* alpha_lost_by = nullptr;  ///< the name of a format that holds none

 protected:
  const Output& output_;
};

/// What a byte of a deflate stream stands for at most: matches of 258 bytes in two bits.
inline constexpr uint64_t kDeflateRatio = 1032;

inline constexpr char kReducedNote[] = "16 bits per channel were reduced to 8";
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

// The formats. `Open...` is called only when `Is...` has recognised the file; it reads the header
// and decodes nothing. `Check...Shape` throws for shapes that the format cannot hold; formats
// without one hold all. `Start...` may write the header.
bool IsPng(Bytes file);
std::unique_ptr<RowDecoder> OpenPng(const Input& input);
std::unique_ptr<RowEncoder> StartPng(const Output& output);

bool IsJpeg(Bytes file);
std::unique_ptr<RowDecoder> OpenJpeg(const Input& input);
void CheckJpegShape(const OutputShape& shape);
std::unique_ptr<RowEncoder> StartJpeg(const Output& output);

bool IsTiff(Bytes file);
std::unique_ptr<RowDecoder> OpenTiff(const Input& input);
std::unique_ptr<RowEncoder> StartTiff(const Output& output);

bool IsWebp(Bytes file);
std::unique_ptr<RowDecoder> OpenWebp(const Input& input);
void CheckWebpShape(const OutputShape& shape);
std::unique_ptr<RowEncoder> StartWebp(const Output& output);

bool IsGif(Bytes file);
std::unique_ptr<RowDecoder> OpenGif(const Input& input);

// HEIC and AVIF, and JPEG XL, each through a plug-in.
bool IsHeif(Bytes file);
std::unique_ptr<RowDecoder> OpenHeif(const Input& input);
bool IsJxl(Bytes file);
std::unique_ptr<RowDecoder> OpenJxl(const Input& input);

bool IsBmp(Bytes file);
std::unique_ptr<RowDecoder> OpenBmp(const Input& input);
void CheckBmpShape(const OutputShape& shape);
std::unique_ptr<RowEncoder> StartBmp(const Output& output);

bool IsPnm(Bytes file);
std::unique_ptr<RowDecoder> OpenPnm(const Input& input);
void CheckPnmShape(const OutputShape& shape);
std::unique_ptr<RowEncoder> StartPnm(const Output& output);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_CODEC_H_
