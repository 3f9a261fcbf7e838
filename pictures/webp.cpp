#include <webp/decode.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "pictures/codec.h"
#include "pictures/colour_rows.h"
#include "pictures/exif.h"
#include "pictures/pixel_target.h"

namespace qel::pictures {
namespace {

struct MuxDeleter {
  void operator()(WebPMux* mux) const { WebPMuxDelete(mux); }
};
using Mux = std::unique_ptr<WebPMux, MuxDeleter>;

WebPData DataOf(Bytes bytes) { return {bytes.data(), bytes.size()}; }

/// The content of a chunk; nothing when there is none, or no intact container.
Bytes ChunkOf(const Mux& mux, const char* name) {
  WebPData chunk{};
  if (mux == nullptr || WebPMuxGetChunk(mux.get(), name, &chunk) != WEBP_MUX_OK) return {};
  return {chunk.bytes, chunk.size};
}

[[noreturn]] void FailDecoding(const Input& input, VP8StatusCode status) {
  switch (status) {
    case VP8_STATUS_NOT_ENOUGH_DATA:
    case VP8_STATUS_SUSPENDED:
      input.Truncated();
    case VP8_STATUS_OUT_OF_MEMORY:
      throw std::bad_alloc();
    default:
      input.Broken("damaged WebP: error " + std::to_string(status));
  }
}

void DecodeInto(const Input& input, const PixelTarget& target, const PictureInfo& stored) {
  WebPDecoderConfig config;
  if (!WebPInitDecoderConfig(&config)) input.Unsupported("the WebP library does not fit");
  // The decoder wants rows that go down in memory; others it fills from the last one on.
  const bool upward = target.stride() < 0;
  const auto rows = static_cast<size_t>(stored.height);
  const auto step = static_cast<size_t>(std::abs(target.stride()));
  if (step > INT_MAX) throw std::invalid_argument("rows are too far apart for the WebP library");
  config.options.flip = upward;
  config.options.use_threads = 0;
  config.output.colorspace = stored.HasAlpha() ? MODE_BGRA : MODE_BGR;
  config.output.is_external_memory = 1;
  config.output.u.RGBA.rgba = target.Row(upward ? stored.height - 1 : 0);
  config.output.u.RGBA.stride = static_cast<int>(step);
  config.output.u.RGBA.size = step * (rows - 1) + RowBytes(stored.width, stored.bit_count);
  const VP8StatusCode status = WebPDecode(input.file.data(), input.file.size(), &config);
  if (status != VP8_STATUS_OK) FailDecoding(input, status);
}

/// A picture being encoded, with all that the library allocates for it.
class Encoder {
 public:
  explicit Encoder(const Output& output) : output_(output) {
    if (!WebPConfigInit(&config_) || !WebPPictureInit(&picture_)) {
      output.EncoderFailed("the WebP library does not fit");
    }
    WebPMemoryWriterInit(&writer_);
  }
  ~Encoder() {
    WebPPictureFree(&picture_);
    WebPMemoryWriterClear(&writer_);
  }
  Encoder(const Encoder&) = delete;
  Encoder& operator=(const Encoder&) = delete;

  /// The encoded picture without metadata, valid as long as this object.
  Bytes Encode() {
    Configure();
    FillPixels();
    picture_.writer = &WebPMemoryWrite;
    picture_.custom_ptr = &writer_;
    if (!WebPEncode(&config_, &picture_)) {
      output_.EncoderFailed("WebP error " + std::to_string(picture_.error_code));
    }
    return {writer_.mem, writer_.size};
  }

 private:
  void Configure() {
    constexpr int kLosslessEffort = 3;  // of 9; higher ones are slow and gain little
    const int quality = std::clamp(output_.options.webp_quality, 0, 100);
    if (quality == 100) {
      WebPConfigLosslessPreset(&config_, kLosslessEffort);
    } else {
      config_.quality = static_cast<float>(quality);
    }
    config_.exact = 1;  // colours of transparent pixels are kept
  }

  void FillPixels() {
    picture_.use_argb = 1;
    picture_.width = output_.picture.width;
    picture_.height = output_.picture.height;
    if (!WebPPictureAlloc(&picture_)) output_.EncoderFailed("no memory");
    ColourRows rows(output_.picture, ColourRows::Alpha::kKeep, ColourRows::Grey::kSpread);
    for (int y = 0; y < picture_.height; ++y) {
      const uint8_t* pixel = rows.Row(y);
      uint32_t* const out = picture_.argb + ptrdiff_t{y} * picture_.argb_stride;
      for (int x = 0; x < picture_.width; ++x, pixel += rows.bit_count() / 8) {
        const uint32_t alpha = rows.bit_count() == 32 ? pixel[3] : 255;
        out[x] = alpha << 24 | uint32_t{pixel[2]} << 16 | uint32_t{pixel[1]} << 8 | pixel[0];
      }
    }
  }

  const Output& output_;
  WebPConfig config_;
  WebPPicture picture_;
  WebPMemoryWriter writer_;
};

std::vector<uint8_t> AddChunks(const Output& output, Bytes encoded, Bytes profile, Bytes exif) {
  const WebPData data = DataOf(encoded);
  const Mux mux(WebPMuxCreate(&data, 0));
  WebPMuxError error = mux == nullptr ? WEBP_MUX_MEMORY_ERROR : WEBP_MUX_OK;
  const auto add = [&](const char* name, Bytes content) {
    if (error != WEBP_MUX_OK || content.empty()) return;
    const WebPData chunk = DataOf(content);
    error = WebPMuxSetChunk(mux.get(), name, &chunk, 0);
  };
  add("ICCP", profile);
  add("EXIF", exif);
  WebPData whole{};
  if (error == WEBP_MUX_OK) error = WebPMuxAssemble(mux.get(), &whole);
  const std::unique_ptr<WebPData, void (*)(WebPData*)> owner(&whole, &WebPDataClear);
  if (error != WEBP_MUX_OK) output.EncoderFailed("the metadata of WebP");
  return {whole.bytes, whole.bytes + whole.size};
}

}  // namespace

bool IsWebp(Bytes file) {
  return file.size() >= 12 && StartsWith(file, "RIFF") && StartsWith(file.subspan(8), "WEBP");
}

PictureInfo ReadWebp(const Input& input) {
  WebPBitstreamFeatures features;
  const VP8StatusCode status = WebPGetFeatures(input.file.data(), input.file.size(), &features);
  if (status != VP8_STATUS_OK) FailDecoding(input, status);
  if (features.has_animation) {
    input.Unsupported("an animated WebP is not read; give a file of one picture");
  }
  const WebPData data = DataOf(input.file);
  const Mux mux(WebPMuxCreate(&data, 0));
  const Bytes profile = ChunkOf(mux, "ICCP");
  const Exif exif = ParseExif(ChunkOf(mux, "EXIF"));
  PictureInfo info;
  info.format = Format::kWebp;
  info.width = features.width;
  info.height = features.height;
  info.bit_count = features.has_alpha ? 32 : 24;
  info.metadata = {{profile.begin(), profile.end()}, exif.dpi_x, exif.dpi_y};
  PictureInfo upright = info;
  PixelTarget target(input, upright, exif.orientation);
  if (!target.WantsPixels()) return upright;
  DecodeInto(input, target, info);
  target.Finish();
  return upright;
}

std::vector<uint8_t> EncodeWebp(const Output& output) {
  output.CheckSides("WebP", WEBP_MAX_DIMENSION);
  Encoder encoder(output);
  const Bytes encoded = encoder.Encode();
  const Bytes profile = output.Profile(false);
  std::vector<uint8_t> exif;
  if (output.HasResolution()) exif = MakeExif(output.metadata.dpi_x, output.metadata.dpi_y);
  if (profile.empty() && exif.empty()) return {encoded.begin(), encoded.end()};
  return AddChunks(output, encoded, profile, exif);
}

}  // namespace qel::pictures
