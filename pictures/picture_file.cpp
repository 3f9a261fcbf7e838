#include "pictures/picture_file.h"

#include "pictures/atomic_file.h"

namespace qel::pictures {

std::vector<uint8_t> ReadFile(const std::string& path, const Limits& limits) {
  ByteSource source(path, limits);
  const Bytes content = source.All();
  return {content.begin(), content.end()};
}

std::vector<std::string> WritePicture(const std::string& path, const PictureView& picture,
                                      const Metadata& metadata, const WriteOptions& options) {
  EncodedPicture encoded = EncodePicture(path, picture, metadata, options);
  WriteFileAtomically(path, encoded.file);
  return std::move(encoded.notes);
}

}  // namespace qel::pictures
