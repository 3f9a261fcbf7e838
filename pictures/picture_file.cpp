#include "pictures/picture_file.h"

namespace qel::pictures {

std::vector<uint8_t> ReadFile(const std::string& path, const Limits& limits) {
  ByteSource source(path, limits);
  const Bytes content = source.All();
  return {content.begin(), content.end()};
}

}  // namespace qel::pictures
