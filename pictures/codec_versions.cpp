#include "pictures/codec_versions.h"

#include <fmt/core.h>
#include <gif_lib.h>
#include <jconfig.h>
#include <png.h>
#include <tiffio.h>
#include <webp/encode.h>

namespace qel::pictures {
namespace {

/// Three numbers from the highest bytes on.
std::string Dotted(int version) {
  return fmt::format("{}.{}.{}", version >> 16, version >> 8 & 255, version & 255);
}

#define QEL_TEXT_OF(macro) QEL_TEXT(macro)
#define QEL_TEXT(text) #text

}  // namespace

std::vector<CodecVersion> CodecVersions() {
  const std::string tiff = TIFFGetVersion();
  return {{"PNG", std::string("libpng ") + png_get_libpng_ver(nullptr)},
          {"JPEG", "libjpeg-turbo " QEL_TEXT_OF(LIBJPEG_TURBO_VERSION)},
          {"TIFF", tiff.substr(0, tiff.find('\n'))},
          {"WebP", fmt::format("libwebp {}", Dotted(WebPGetEncoderVersion()))},
          {"GIF", "giflib " QEL_TEXT_OF(GIFLIB_MAJOR) "." QEL_TEXT_OF(GIFLIB_MINOR)},
          {"BMP", "built in"},
          {"PNM", "built in"}};
}

}  // namespace qel::pictures
