#include <fmt/core.h>
#include <webp/decode.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "pictures/codec.h"
#include "pictures/color_rows.h"
#include "pictures/pixel_target.h"

namespace qel::pictures {
namespace {

struct MuxDeleter {
  void operator()(WebPMux* mux) const { WebPMuxDelete(mux); }
};
using Mux = std::unique_ptr<WebPMux, MuxDeleter>;

WebPData DataOf(Bytes bytes) { return {bytes.data(), bytes.size()}; }

/// The chunks of a file that matter here.
struct Chunks {
  size_t pixels_at = 0;  ///< where the first with pixels begins
  std::vector<uint8_t> profile;
  std::vector<uint8_t> exif;
  std::vector<uint8_t> xmp;
};

/// Goes from chunk to chunk and reads no others. What follows the end of a damaged file counts as
/// absent.
Chunks FindChunks(const Input& input) {
  constexpr size_t kRiffHeaderBytes = 12, kChunkHeaderBytes = 8;
  Chunks chunks;
  const size_t end = size_t{ByteReader(input.source.Load(0, kRiffHeaderBytes)).U32(4)} + 8;
  size_t at = kRiffHeaderBytes;
  while (true) {
    const Bytes header = input.source.Load(at, kChunkHeaderBytes);
    if (at >= end || header.size() < kChunkHeaderBytes) return chunks;
    const size_t size = ByteReader(header).U32(4);
    const auto content = [&] {
      const Bytes bytes = input.source.Load(at + kChunkHeaderBytes, size);
      if (bytes.size() < size) return std::vector<uint8_t>();
      return std::vector<uint8_t>(bytes.begin(), bytes.end());
    };
    if (StartsWith(header, "ICCP")) chunks.profile = content();
    if (StartsWith(header, "EXIF")) chunks.exif = content();
    if (StartsWith(header, "XMP ")) chunks.xmp = content();
    const bool pixels = StartsWith(header, "VP8 ") || StartsWith(header, "VP8L");
    if (pixels && chunks.pixels_at == 0) chunks.pixels_at = at;
    at += kChunkHeaderBytes + size + size % 2;
  }
}

[[noreturn]] void FailDecoding(const Input& input, VP8StatusCode status) {
  switch (status) {
    case VP8_STATUS_NOT_ENOUGH_DATA:
    case VP8_STATUS_SUSPENDED:
      input.Truncated();
    case VP8_STATUS_OUT_OF_MEMORY:
      throw std::bad_alloc();
    case VP8_STATUS_UNSUPPORTED_FEATURE:
      input.Unsupported("this kind of WebP is not read");
    default:
      input.Broken("damaged WebP: its data contradict themselves");
  }
}

/// What the file says of its pixels, checked against what it can hold.
WebPBitstreamFeatures ReadFeatures(const Input& input, const Chunks& chunks) {
  constexpr size_t kEnoughForHeaders = 64;
  const Bytes beginning = input.source.Load(0, chunks.pixels_at + kEnoughForHeaders);
  WebPBitstreamFeatures features;
  const VP8StatusCode status = WebPGetFeatures(beginning.data(), beginning.size(), &features);
  if (status != VP8_STATUS_OK) FailDecoding(input, status);
  if (features.has_animation) {
    input.Unsupported("an animated WebP is not read; give a file of one picture");
  }
  CheckSize(input, features.width, features.height);
  const uint64_t pixels =
      static_cast<uint64_t>(features.width) * static_cast<uint64_t>(features.height);
  enum Kind { kLossy = 1, kLossless = 2 };
  // A lossy block of 16 x 16 pixels takes three bits at least; lossless data of one colour take
  // none at all, and are decoded into rows of the library's own.
  constexpr uint64_t kBestRatio = 1024;
  if (features.format == kLossy) input.CheckHolds(pixels, kBestRatio);
  if (features.format == kLossless) input.Plan(4 * pixels);
  if (features.format == kLossy && features.has_alpha) input.Plan(pixels);
  input.PlanFile();
  return features;
}

/// The library decodes whole pictures.
class WebpDecoder final : public RowDecoder {
 public:
  explicit WebpDecoder(const Input& input) : input_(input) {
    const Chunks chunks = FindChunks(input);
    const WebPBitstreamFeatures features = ReadFeatures(input, chunks);
    info.format = Format::kWebp;
    info.width = features.width;
    info.height = features.height;
    info.bit_count = features.has_alpha ? 32 : 24;
    const Exif exif = ParseExif(chunks.exif).value_or(Exif());
    orientation = exif.Orientation();
    info.metadata.icc_profile = chunks.profile;
    TakeExif(input, exif, info.metadata);
    TakeXmp(input, chunks.xmp, info.metadata);
    streams = false;
  }

  void Read(const PixelBuffer& rows, int count) override {
    WebPDecoderConfig config;
    if (!WebPInitDecoderConfig(&config)) input_.Unsupported("the WebP library does not fit");
    // The decoder wants rows that go down in memory; others it fills from the last one on.
    const bool upward = rows.stride < 0;
    const auto step = static_cast<size_t>(std::abs(rows.stride));
    if (step > INT_MAX) throw std::invalid_argument("rows are too far apart for the WebP library");
    config.options.flip = upward;
    config.options.use_threads = 0;
    config.output.colorspace = info.HasAlpha() ? MODE_BGRA : MODE_BGR;
    config.output.is_external_memory = 1;
    config.output.u.RGBA.rgba = rows.bits + (upward ? (count - 1) * rows.stride : 0);
    config.output.u.RGBA.stride = static_cast<int>(step);
    config.output.u.RGBA.size =
        step * static_cast<size_t>(count - 1) + RowBytes(info.width, info.bit_count);
    const Bytes file = input_.source.All();
    const VP8StatusCode status = WebPDecode(file.data(), file.size(), &config);
    if (status != VP8_STATUS_OK) FailDecoding(input_, status);
  }

 private:
  const Input& input_;
};

void WriteChunks(const Output& output, Bytes encoded, Bytes profile, Bytes exif, Bytes xmp) {
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
  add("XMP ", xmp);
  WebPData whole{};
  if (error == WEBP_MUX_OK) error = WebPMuxAssemble(mux.get(), &whole);
  const std::unique_ptr<WebPData, void (*)(WebPData*)> owner(&whole, &WebPDataClear);
  if (error != WEBP_MUX_OK) output.EncoderFailed("the metadata of WebP");
  output.sink.Write({whole.bytes, whole.size});
}

/// The library encodes whole pictures.
class WebpEncoder final : public RowEncoder {
 public:
  explicit WebpEncoder(const Output& output) : RowEncoder(output) {
    if (!WebPConfigInit(&config_) || !WebPPictureInit(&picture_)) {
      output.EncoderFailed("the WebP library does not fit");
    }
    WebPMemoryWriterInit(&writer_);
    streams = false;
    // By the byte of a picture with as much detail as there can be.
    constexpr uint64_t kShare = 8;
    held_bytes = kShare * RowBytes(output.shape.width, output.shape.bit_count) *
                 static_cast<uint64_t>(output.shape.height);
  }
  ~WebpEncoder() override {
    WebPPictureFree(&picture_);
    WebPMemoryWriterClear(&writer_);
  }

  void Write(const PictureView& rows) override {
    Configure();
    FillPixels(rows);
    picture_.writer = &WebPMemoryWrite;
    picture_.custom_ptr = &writer_;
    if (!WebPEncode(&config_, &picture_)) {
      output_.EncoderFailed(fmt::format("WebP error {}", static_cast<int>(picture_.error_code)));
    }
    AddMetadata({writer_.mem, writer_.size});
  }

 private:
  void Configure() {
    constexpr int kLosslessEffort = 3;  // of 9; higher ones are slow and gain little
    const int quality = std::clamp(output_.options.webp_quality, 0, 100);
    if (output_.options.webp_lossless) {
      WebPConfigLosslessPreset(&config_, kLosslessEffort);
    } else {
      config_.quality = static_cast<float>(quality);
    }
    config_.exact = 1;  // colours of transparent pixels are kept
  }

  void FillPixels(const PictureView& source) {
    picture_.use_argb = 1;
    picture_.width = source.width;
    picture_.height = source.height;
    if (!WebPPictureAlloc(&picture_)) output_.EncoderFailed("no memory");
    ColorRows rows(output_.shape, ColorRows::Alpha::kKeep, ColorRows::Gray::kSpread);
    for (int y = 0; y < picture_.height; ++y) {
      const uint8_t* pixel = rows.Convert(source.Row(y));
      uint32_t* const out = picture_.argb + ptrdiff_t{y} * picture_.argb_stride;
      for (int x = 0; x < picture_.width; ++x, pixel += rows.bit_count() / 8) {
        const uint32_t alpha = rows.bit_count() == 32 ? pixel[3] : 255;
        out[x] = alpha << 24 | uint32_t{pixel[2]} << 16 | uint32_t{pixel[1]} << 8 | pixel[0];
      }
    }
  }

  /// Writes the file with what goes along.
  void AddMetadata(Bytes encoded) {
    const Bytes profile = output_.Profile(false);
    const Metadata& metadata = output_.metadata;
    std::vector<uint8_t> block = metadata.exif;
    if (output_.HasResolution()) {
      // The format has no other place for it.
      Exif exif = ParseExif(block).value_or(Exif());
      exif.SetResolution(metadata.dpi_x, metadata.dpi_y);
      block = SerializeExif(exif);
    }
    if (!metadata.iptc.empty()) output_.Note("WebP holds no IPTC; left out");
    if (profile.empty() && block.empty() && metadata.xmp.empty()) {
      output_.sink.Write(encoded);
    } else {
      WriteChunks(output_, encoded, profile, block, BytesOf(metadata.xmp));
    }
  }

  WebPConfig config_;
  WebPPicture picture_;
  WebPMemoryWriter writer_;
};

}  // namespace

bool IsWebp(Bytes file) {
  return file.size() >= 12 && StartsWith(file, "RIFF") && StartsWith(file.subspan(8), "WEBP");
}

std::unique_ptr<RowDecoder> OpenWebp(const Input& input) {
  return std::make_unique<WebpDecoder>(input);
}

void CheckWebpShape(const OutputShape& shape) { shape.CheckSides("WebP", WEBP_MAX_DIMENSION); }

std::unique_ptr<RowEncoder> StartWebp(const Output& output) {
  return std::make_unique<WebpEncoder>(output);
}

}  // namespace qel::pictures
