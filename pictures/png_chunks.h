#ifndef QEL_PICTURES_PNG_CHUNKS_H_
#define QEL_PICTURES_PNG_CHUNKS_H_

#include <string>
#include <vector>

#include "pictures/codec.h"

namespace qel::pictures {

/// What is to be known of the chunks before the pixels are read, wherever they stand.
struct PngChunks {
  uint64_t pixel_bytes = 0;  ///< compressed
  std::vector<uint8_t> exif;
  std::string xmp;
  std::vector<uint8_t> iptc;
  uint32_t frames = 1;
  bool has_profile = false;
};

/// Goes through the chunks of a file ourselves: the one with EXIF may follow the pixels. What its
/// checksum does not confirm counts as absent. Throws `PictureError`.
PngChunks FindPngChunks(const Input& input);

}  // namespace qel::pictures

#endif  // QEL_PICTURES_PNG_CHUNKS_H_
