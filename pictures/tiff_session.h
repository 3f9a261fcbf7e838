#ifndef QEL_PICTURES_TIFF_SESSION_H_
#define QEL_PICTURES_TIFF_SESSION_H_

#include <tiffio.h>

#include <cstdarg>
#include <exception>
#include <memory>
#include <span>
#include <vector>

#include "pictures/codec.h"

namespace qel::pictures {

// Of the main directory these entries are kept; the others describe how the pixels lie in the file.
inline constexpr uint16_t kTiffTextTags[] = {
    TIFFTAG_IMAGEDESCRIPTION, TIFFTAG_MAKE,   TIFFTAG_MODEL,        TIFFTAG_SOFTWARE,
    TIFFTAG_DATETIME,         TIFFTAG_ARTIST, TIFFTAG_HOSTCOMPUTER, TIFFTAG_COPYRIGHT};

/// What the callbacks of libtiff need: the file, and what the library says about it.
struct TiffFile {
  explicit TiffFile(ByteSource& from) : source(&from) {}
  explicit TiffFile(ByteSink& to) : sink(&to) {}

  ByteSource* source = nullptr;  ///< while reading
  ByteSink* sink = nullptr;      ///< while writing
  uint64_t position = 0;
  uint64_t written = 0;       ///< size of the file so far
  uint64_t tail_at = 0;       ///< what is written from here on is also kept, unless 0
  std::vector<uint8_t> tail;  ///< that is kept
  uint32_t directory_at = 0;  ///< the position of the first directory, once it is written
  char message[200] = "";     ///< the first error, and while pixels are decoded also warning
  char note[200] = "";        ///< the first warning that means no loss
  bool decoding = false;      ///< pixels, of which every warning says that they are damaged
  bool palette_lost = false;
  std::exception_ptr failure;

  /// Throws what went wrong in reading.
  [[noreturn]] void Fail(const Input& input) const;
  /// The same in writing.
  [[noreturn]] void Fail(const Output& output) const;
  bool HasFailed() const { return message[0] != '\0' || failure; }

  static tmsize_t OnRead(thandle_t handle, void* data, tmsize_t count) noexcept;
  static tmsize_t OnWrite(thandle_t handle, void* data, tmsize_t count) noexcept;
  static toff_t OnSeek(thandle_t handle, toff_t offset, int whence) noexcept;
  static int OnClose(thandle_t) { return 0; }
  static toff_t OnSize(thandle_t handle) noexcept;
  static int OnError(TIFF*, void* user, const char*, const char* format, va_list arguments);
  static int OnWarning(TIFF*, void* user, const char* module, const char* format,
                       va_list arguments);

 private:
  static TiffFile& Of(thandle_t handle) { return *static_cast<TiffFile*>(handle); }
  size_t Read(std::span<uint8_t> out);
  void Write(Bytes bytes);
  uint64_t Size() const { return source != nullptr ? source->size() : written; }

  /// Keeps the first text.
  static void Keep(char (&kept)[200], const char (&text)[200]);
};

struct TiffDeleter {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, TiffDeleter>;

/// Opens a file; `most_bytes` bounds what the library allocates at once, 0 for anything. Null when
/// that fails. `file` must outlive the result.
Tiff OpenTiffFile(TiffFile& file, const char* mode, int64_t most_bytes);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_TIFF_SESSION_H_
