#include <webp/decode.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <cstring>
#include <memory>

#include "pictures/codec.h"

namespace qel::pictures {
namespace {

struct MuxDeleter {
  void operator()(WebPMux* mux) const { WebPMuxDelete(mux); }
};
using Mux = std::unique_ptr<WebPMux, MuxDeleter>;

/// The content of a chunk, or nothing.
Bytes ReadChunk(const Mux& mux, const char* fourcc) {
  WebPData chunk{};
  if (mux == nullptr || WebPMuxGetChunk(mux.get(), fourcc, &chunk) != WEBP_MUX_OK) return {};
  return {chunk.bytes, chunk.size};
}

}  // namespace

bool IsWebp(Bytes file) {
  return file.size() >= 12 && std::memcmp(file.data(), "RIFF", 4) == 0 &&
         std::memcmp(file.data() + 8, "WEBP", 4) == 0;
}

PictureInfo ReadWebp(const Input& input) {
  WebPBitstreamFeatures features;
  if (WebPGetFeatures(input.file.data(), input.file.size(), &features) != VP8_STATUS_OK) {
    input.Broken("damaged WebP: the header is not complete");
  }
  if (features.has_animation) input.Unsupported("animated WebP; give a file with one picture");
  PictureInfo info;
  info.format = Format::kWebp;
  info.width = features.width;
  info.height = features.height;
  info.bit_count = features.has_alpha ? 32 : 24;
  const WebPData data{input.file.data(), input.file.size()};
  const Mux mux(WebPMuxCreate(&data, 0));
  const Bytes profile = ReadChunk(mux, "ICCP");
  info.metadata.icc_profile.assign(profile.begin(), profile.end());

  PixelTarget target(input, info, ExifOrientation(ReadChunk(mux, "EXIF")));
  // The decoder knows positive strides only; pictures stored bottom-up take a copy.
  const size_t row_bytes = RowBytes(features.width, features.has_alpha ? 32 : 24);
  const auto rows = static_cast<size_t>(features.height);
  std::vector<uint8_t> copy(target.stride() < 0 ? row_bytes * rows : 0);
  const bool direct = copy.empty();
  uint8_t* const bits = direct ? target.Row(0) : copy.data();
  const size_t stride = direct ? static_cast<size_t>(target.stride()) : row_bytes;
  WebPDecoderConfig config;
  if (!WebPInitDecoderConfig(&config)) input.Unsupported("this version of the WebP library");
  config.output.colorspace = features.has_alpha ? MODE_BGRA : MODE_BGR;
  config.output.is_external_memory = 1;
  config.output.u.RGBA = {bits, static_cast<int>(stride), stride * (rows - 1) + row_bytes};
  if (WebPDecode(input.file.data(), input.file.size(), &config) != VP8_STATUS_OK) {
    input.Broken("damaged WebP: the picture data are not complete");
  }
  if (!direct) {
    for (size_t y = 0; y < rows; ++y) {
      std::memcpy(target.Row(static_cast<int>(y)), copy.data() + y * row_bytes, row_bytes);
    }
  }
  target.Finish();
  return info;
}

std::vector<uint8_t> EncodeWebp(const Output& output) {
  if (output.picture.width > WEBP_MAX_DIMENSION || output.picture.height > WEBP_MAX_DIMENSION) {
    output.Fail("WebP holds at most 16383 pixels a side; choose PNG or TIFF");
  }
  // One block of blue, green, red (, alpha) rows, grey spread to three channels.
  ColourRows rows(output.picture, true);
  const int bytes = rows.bit_count() == 32 ? 4 : 3;
  const size_t row_bytes = static_cast<size_t>(output.picture.width) * static_cast<size_t>(bytes);
  std::vector<uint8_t> block(row_bytes * static_cast<size_t>(output.picture.height));
  const std::vector<PaletteEntry> greys = GreyPalette(256);
  for (int y = 0; y < output.picture.height; ++y) {
    uint8_t* const row = block.data() + row_bytes * static_cast<size_t>(y);
    if (rows.bit_count() == 8) {
      ExpandIndices(rows.Row(y), 8, greys, false, row, output.picture.width);
    } else {
      std::memcpy(row, rows.Row(y), row_bytes);
    }
  }
  WebPConfig config;
  WebPPicture picture;
  WebPMemoryWriter writer;
  if (!WebPConfigInit(&config) || !WebPPictureInit(&picture)) {
    output.Fail("this version of the WebP library does not fit");
  }
  const std::unique_ptr<WebPPicture, void (*)(WebPPicture*)> free_picture(&picture,
                                                                          &WebPPictureFree);
  WebPMemoryWriterInit(&writer);
  const std::unique_ptr<WebPMemoryWriter, void (*)(WebPMemoryWriter*)> free_writer(
      &writer, &WebPMemoryWriterClear);
  config.lossless = output.options.webp_quality >= 100 ? 1 : 0;
  config.exact = 1;
  config.quality = config.lossless ? 70.0f : static_cast<float>(output.options.webp_quality);
  picture.use_argb = 1;
  picture.width = output.picture.width;
  picture.height = output.picture.height;
  picture.writer = &WebPMemoryWrite;
  picture.custom_ptr = &writer;
  const auto import = bytes == 4 ? &WebPPictureImportBGRA : &WebPPictureImportBGR;
  if (!import(&picture, block.data(), static_cast<int>(row_bytes)) ||
      !WebPEncode(&config, &picture)) {
    output.Fail("encoding as WebP failed, error " + std::to_string(picture.error_code));
  }
  const WebPData encoded{writer.mem, writer.size};
  if (output.metadata.icc_profile.empty()) {
    return {encoded.bytes, encoded.bytes + encoded.size};
  }
  const Mux mux(WebPMuxCreate(&encoded, 0));
  const WebPData profile{output.metadata.icc_profile.data(), output.metadata.icc_profile.size()};
  WebPData assembled{};
  if (mux == nullptr || WebPMuxSetChunk(mux.get(), "ICCP", &profile, 0) != WEBP_MUX_OK ||
      WebPMuxAssemble(mux.get(), &assembled) != WEBP_MUX_OK) {
    output.Fail("adding the colour profile failed");
  }
  std::vector<uint8_t> file(assembled.bytes, assembled.bytes + assembled.size);
  WebPDataClear(&assembled);
  return file;
}

}  // namespace qel::pictures
