#ifndef QEL_PICTURES_CODEC_VERSIONS_H_
#define QEL_PICTURES_CODEC_VERSIONS_H_

#include <string>
#include <vector>

namespace qel::pictures {

/// The library that reads and writes a format, as "libpng 1.6.39".
struct CodecVersion {
  std::string format;
  std::string library;
};

/// Of every format; those without a library are our own.
std::vector<CodecVersion> CodecVersions();

}  // namespace qel::pictures

#endif  // QEL_PICTURES_CODEC_VERSIONS_H_
