#include <fmt/core.h>
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>

#include "pictures/block_deflate.h"
#include "pictures/codec.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/png_filter.h"
#include "pictures/png_session.h"
#include "pictures/text_blocks.h"

namespace qel::pictures {
namespace {

struct Colors {
  int type = PNG_COLOR_TYPE_GRAY;
  int entries = 0;
  png_color palette[256];
};

Colors ColorsOf(const PictureView& shape) {
  Colors colors;
  if (shape.bit_count >= 24) {
    colors.type = shape.bit_count == 32 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
  } else if (!shape.palette.empty()) {
    colors.type = PNG_COLOR_TYPE_PALETTE;
    for (const PaletteEntry& entry : PaletteOf(shape)) {
      colors.palette[colors.entries++] = {entry.red, entry.green, entry.blue};
    }
  }
  return colors;
}

class PngWriteSession : public PngSession {
 public:
  explicit PngWriteSession(const Output& output) : output_(output) {
    png = png_create_write_struct(PNG_LIBPNG_VER_STRING, static_cast<PngSession*>(this), &OnError,
                                  &OnWarning);
    if (png != nullptr) info = png_create_info_struct(png);
    if (info == nullptr) {
      png_destroy_write_struct(&png, &info);
      throw std::bad_alloc();
    }
    png_set_write_fn(png, this, &OnWrite, &OnFlush);
  }
  ~PngWriteSession() { png_destroy_write_struct(&png, &info); }

  template <typename Step>
  void Run(const Step& step) {
    if (PngSession::Run(step)) return;
    if (failure_) std::rethrow_exception(failure_);
    output_.EncoderFailed(message);
  }

 private:
  static void OnWrite(png_structp png, png_bytep data, size_t count) {
    auto* const session = static_cast<PngWriteSession*>(png_get_io_ptr(png));
    if (!session->Append(data, count)) png_error(png, "not written");
  }
  static void OnFlush(png_structp) {}

  /// No exception may pass through the frames of the library.
  bool Append(const uint8_t* data, size_t count) noexcept try {
    output_.sink.Write({data, count});
    return true;
  } catch (...) {
    failure_ = std::current_exception();
    return false;
  }

  const Output& output_;
  std::exception_ptr failure_;
};

/// Bytes as text, as others write and read them.
std::string HexOfBytes(Bytes bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  constexpr size_t kBytesInLine = 36;
  std::string text = fmt::format("\niptc\n{}\n", bytes.size());
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0 && i % kBytesInLine == 0) text += '\n';
    text += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
  }
  return text + '\n';
}

void WriteTexts(PngWriteSession& session, const Metadata& metadata) {
  std::string xmp_name(kPngXmpName);
  std::string iptc_name(kPngIptcName);
  std::string xmp = metadata.xmp;
  std::string iptc = metadata.iptc.empty() ? "" : HexOfBytes(ResourcesOfIptc(metadata.iptc));
  char none[] = "";
  session.Run([&] {
    png_text texts[2]{};
    int count = 0;
    if (!xmp.empty()) {
      texts[count].compression = PNG_ITXT_COMPRESSION_NONE;
      texts[count].key = xmp_name.data();
      texts[count].text = xmp.data();
      texts[count].itxt_length = xmp.size();
      texts[count].lang = none;
      texts[count++].lang_key = none;
    }
    if (!iptc.empty()) {
      texts[count].compression = PNG_TEXT_COMPRESSION_zTXt;
      texts[count].key = iptc_name.data();
      texts[count].text = iptc.data();
      texts[count++].text_length = iptc.size();
    }
    if (count > 0) png_set_text(session.png, session.info, texts, count);
    if (!metadata.exif.empty()) {
      png_set_eXIf_1(session.png, session.info, static_cast<png_uint_32>(metadata.exif.size()),
                     const_cast<png_bytep>(metadata.exif.data()));  // the library copies it
    }
  });
}

void WriteMetadata(PngWriteSession& session, const Output& output, bool gray) {
  const Bytes profile = output.Profile(gray);
  bool accepted = profile.empty();
  session.Run([&] {
    // A profile that the library finds fault with is left out; the picture is written.
    png_set_benign_errors(session.png, 1);
    if (!profile.empty()) {
      png_set_iCCP(session.png, session.info, "ICC profile", PNG_COMPRESSION_TYPE_BASE,
                   profile.data(), static_cast<png_uint_32>(profile.size()));
      accepted = png_get_valid(session.png, session.info, PNG_INFO_iCCP) != 0;
    }
    if (output.HasResolution()) {
      png_set_pHYs(session.png, session.info, DotsPerMetre(output.metadata.dpi_x),
                   DotsPerMetre(output.metadata.dpi_y), PNG_RESOLUTION_METER);
    }
  });
  WriteTexts(session, output.metadata);
  if (!accepted) output.Note("PNG takes no colour profile with such faults; it was left out");
}

/// A row as PNG stores it: red before blue.
void PutRow(const uint8_t* from, int width, int bit_count, uint8_t* to) {
  if (bit_count <= 8) {
    std::memcpy(to, from, RowBytes(width, bit_count));
    return;
  }
  const int channels = bit_count / 8;
  for (int x = 0; x < width; ++x, from += channels, to += channels) {
    to[0] = from[2];
    to[1] = from[1];
    to[2] = from[0];
    if (channels == 4) to[3] = from[3];
  }
}

/// Pixels go past the library, which filters and packs on one thread.
class PngEncoder final : public RowEncoder {
 public:
  explicit PngEncoder(const Output& output)
      : RowEncoder(output),
        session_(output),
        filter_(RowBytes(output.shape.width, output.shape.bit_count),
                static_cast<size_t>(std::max(output.shape.bit_count / 8, 1)),
                ColorsGoByDifferences(output)),
        deflate_(EffortOf(output), output.options.threads, [this](Bytes part) {
          session_.Run([&] { png_write_chunk(session_.png, kPixels, part.data(), part.size()); });
        }) {
    const PictureView& shape = output.shape;
    const Colors colors = ColorsOf(shape);
    session_.Run([&] {
      png_set_user_limits(session_.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
      png_set_IHDR(session_.png, session_.info, static_cast<png_uint_32>(shape.width),
                   static_cast<png_uint_32>(shape.height), std::min(shape.bit_count, 8),
                   colors.type, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                   PNG_FILTER_TYPE_DEFAULT);
      if (colors.entries > 0) {
        png_set_PLTE(session_.png, session_.info, colors.palette, colors.entries);
      }
    });
    WriteMetadata(session_, output, colors.type == PNG_COLOR_TYPE_GRAY);
    session_.Run([&] { png_write_info(session_.png, session_.info); });
    const uint64_t row_bytes = RowBytes(shape.width, shape.bit_count) + 1;
    held_bytes =
        4 * row_bytes + BlockDeflate::HeldBytes(row_bytes * static_cast<uint64_t>(shape.height),
                                                output.options.threads);
  }

  void Write(const PictureView& rows) override {
    for (int y = 0; y < rows.height; ++y) {
      PutRow(rows.Row(y), output_.shape.width, output_.shape.bit_count, filter_.row());
      deflate_.Append(filter_.Run());
    }
  }

  void Finish() override {
    deflate_.Finish();
    // `png_write_end` looks for pixels that it has packed itself; nothing else stands at the end.
    session_.Run([&] { png_write_chunk(session_.png, kEnd, nullptr, 0); });
  }

 private:
  static constexpr png_byte kPixels[] = "IDAT";
  static constexpr png_byte kEnd[] = "IEND";

  static int LevelOf(const Output& output) { return std::clamp(output.options.png_level, 0, 9); }
  /// Indices are no amounts.
  static bool ColorsGoByDifferences(const Output& output) {
    return output.shape.bit_count >= 8 && output.shape.palette.empty() && LevelOf(output) > 0;
  }
  static DeflateEffort EffortOf(const Output& output) {
    return {LevelOf(output), ColorsGoByDifferences(output) ? Z_FILTERED : Z_DEFAULT_STRATEGY};
  }

  PngWriteSession session_;
  PngFilter filter_;
  BlockDeflate deflate_;
};

}  // namespace

std::unique_ptr<RowEncoder> StartPng(const Output& output) {
  return std::make_unique<PngEncoder>(output);
}

}  // namespace qel::pictures
