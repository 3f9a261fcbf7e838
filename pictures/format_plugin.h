#ifndef QEL_PICTURES_FORMAT_PLUGIN_H_
#define QEL_PICTURES_FORMAT_PLUGIN_H_

#include <cstddef>
#include <cstdint>

/// What a plug-in for picture formats exports, in plain C: it is built and installed apart from the
/// programs that load it. A plug-in keeps nothing between calls but its handles, and lets no
/// exception out.
extern "C" {

inline constexpr uint32_t kQelFormatPluginVersion = 1;

/// A picture as decoding will deliver it. Pointers stay valid as long as the handle.
struct QelPluginPicture {
  uint32_t width;
  uint32_t height;
  uint64_t working_bytes;  ///< that decoding takes besides the file and the rows, about
  int has_alpha;
  int was_reduced;         ///< from more than 8 bits per channel
  uint32_t pictures;       ///< in the file, of which this is the main one; frames count as such
  uint32_t orientation;    ///< that pixels still have, 1 to 8
  const uint8_t* profile;  ///< of colours; null without one, as are the following
  size_t profile_bytes;
  const uint8_t* exif;  ///< without "Exif" prefix
  size_t exif_bytes;
  const uint8_t* xmp;
  size_t xmp_bytes;
};

/// Text of a reason why something failed; always ends with a 0.
struct QelPluginError {
  int is_unsupported;  ///< the variety is not read; otherwise the file is damaged
  char text[200];
};

struct QelFormatPlugin {
  uint32_t version;  ///< `kQelFormatPluginVersion`
  /// Reads the header of a file, which stays where it is until `close`. Null, and `error` filled,
  /// when it fails.
  void* (*open)(const uint8_t* file, size_t file_bytes, int upright, QelPluginPicture* picture,
                QelPluginError* error);
  /// Fills rows of blue, green, red (, alpha). 0, and `error` filled, when it fails.
  int (*decode)(void* handle, uint8_t* bits, ptrdiff_t stride, QelPluginError* error);
  void (*close)(void* handle);
};

/// The one function of a plug-in: `QelFormatPluginEntry`.
using QelFormatPluginEntryFunction = const QelFormatPlugin* (*)();

}  // extern "C"

#endif  // QEL_PICTURES_FORMAT_PLUGIN_H_
