#include <png.h>

#include <cmath>
#include <csetjmp>
#include <cstring>

#include "pictures/codec.h"

namespace qel::pictures {
namespace {

constexpr double kMetresPerInch = 0.0254;

/// What libpng's callbacks need. libpng leaves by longjmp: every call into it runs inside `Guard`,
/// whose functions hold nothing that would have to be destroyed.
struct Session {
  png_structp png = nullptr;
  png_infop info = nullptr;
  Bytes file;
  size_t position = 0;
  std::vector<uint8_t>* output = nullptr;
  char message[200] = "";
};

void OnError(png_structp png, png_const_charp message) {
  auto* const session = static_cast<Session*>(png_get_error_ptr(png));
  std::strncpy(session->message, message, sizeof(session->message) - 1);
  std::longjmp(png_jmpbuf(png), 1);
}

void OnWarning(png_structp, png_const_charp) {}

void OnRead(png_structp png, png_bytep data, size_t length) {
  auto* const session = static_cast<Session*>(png_get_io_ptr(png));
  if (session->file.size() - session->position < length) png_error(png, "truncated");
  std::memcpy(data, session->file.data() + session->position, length);
  session->position += length;
}

void OnWrite(png_structp png, png_bytep data, size_t length) {
  auto* const session = static_cast<Session*>(png_get_io_ptr(png));
  // An exception must not pass through the library's frames.
  try {
    session->output->insert(session->output->end(), data, data + length);
  } catch (const std::bad_alloc&) {
    png_error(png, "no memory");
  }
}

void OnFlush(png_structp) {}

/// Runs `work`; false when libpng left it with an error.
template <typename Work>
[[gnu::noinline]] bool Guard(Session& session, Work&& work) {
  if (setjmp(png_jmpbuf(session.png)) != 0) return false;
  work();
  return true;
}

struct ReadSession : Session {
  explicit ReadSession(Bytes content) {
    file = content;
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, this, &OnError, &OnWarning);
    if (png != nullptr) info = png_create_info_struct(png);
    if (info == nullptr) throw std::bad_alloc();
    png_set_read_fn(png, static_cast<Session*>(this), &OnRead);
  }
  ~ReadSession() { png_destroy_read_struct(&png, &info, nullptr); }
};

struct WriteSession : Session {
  explicit WriteSession(std::vector<uint8_t>& bytes) {
    output = &bytes;
    png = png_create_write_struct(PNG_LIBPNG_VER_STRING, this, &OnError, &OnWarning);
    if (png != nullptr) info = png_create_info_struct(png);
    if (info == nullptr) throw std::bad_alloc();
    png_set_write_fn(png, static_cast<Session*>(this), &OnWrite, &OnFlush);
  }
  ~WriteSession() { png_destroy_write_struct(&png, &info); }
};

struct Header {
  png_uint_32 width, height;
  int depth, colour;
};

Metadata ReadMetadata(Session& session) {
  Metadata metadata;
  png_charp name;
  png_bytep profile;
  png_uint_32 length;
  int compression;
  if (png_get_iCCP(session.png, session.info, &name, &compression, &profile, &length) != 0) {
    metadata.icc_profile.assign(profile, profile + length);
  }
  metadata.dpi_x = png_get_x_pixels_per_meter(session.png, session.info) * kMetresPerInch;
  metadata.dpi_y = png_get_y_pixels_per_meter(session.png, session.info) * kMetresPerInch;
  return metadata;
}

int ReadOrientation(Session& session) {
  png_bytep exif;
  png_uint_32 length;
  if (png_get_eXIf_1(session.png, session.info, &length, &exif) == 0) return 1;
  return ExifOrientation({exif, length});
}

std::vector<PaletteEntry> ReadPalette(Session& session, const Header& header) {
  if (header.colour == PNG_COLOR_TYPE_GRAY) return GreyPalette(1 << header.depth);
  std::vector<PaletteEntry> palette;
  png_colorp entries;
  int count = 0;
  if (png_get_PLTE(session.png, session.info, &entries, &count) != 0) {
    for (int i = 0; i < count; ++i) {
      palette.push_back({entries[i].blue, entries[i].green, entries[i].red, 255});
    }
  }
  png_bytep alpha;
  int alpha_count = 0;
  if (png_get_tRNS(session.png, session.info, &alpha, &alpha_count, nullptr) != 0) {
    for (int i = 0; i < alpha_count && i < count; ++i) {
      palette[static_cast<size_t>(i)].reserved = alpha[i];
    }
  }
  return palette;
}

/// Depth below 8 bits, or a palette, that the caller wants to keep.
bool KeepsDepth(const Input& input, const Header& header) {
  if (!input.options.keep_palette_depth) return false;
  return header.colour == PNG_COLOR_TYPE_PALETTE ||
         (header.colour == PNG_COLOR_TYPE_GRAY && header.depth < 8);
}

/// Asks libpng for blue, green, red (, alpha) or plain grey bytes.
void RequestColours(png_structp png, png_infop info, const Header& header) {
  png_set_expand(png);
  if (header.depth == 16) png_set_scale_16(png);
  const bool alpha =
      (header.colour & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  if ((header.colour & PNG_COLOR_MASK_COLOR) == 0 && alpha) png_set_gray_to_rgb(png);
  png_set_bgr(png);
}

}  // namespace

bool IsPng(Bytes file) { return file.size() >= 8 && png_sig_cmp(file.data(), 0, 8) == 0; }

PictureInfo ReadPng(const Input& input) {
  ReadSession session(input.file);
  Header header{};
  const auto fail = [&] { input.Broken(std::string("damaged PNG: ") + session.message); };
  const bool kept_limits = Guard(session, [&] {
    png_set_user_limits(session.png, 0x7FFFFFFF, 0x7FFFFFFF);
    png_set_chunk_malloc_max(session.png, size_t{64} << 20);
    png_read_info(session.png, session.info);
    png_get_IHDR(session.png, session.info, &header.width, &header.height, &header.depth,
                 &header.colour, nullptr, nullptr, nullptr);
  });
  if (!kept_limits) fail();

  PictureInfo info;
  info.format = Format::kPng;
  info.metadata = ReadMetadata(session);
  const bool keep = KeepsDepth(input, header);
  const int passes =
      png_get_interlace_type(session.png, session.info) == PNG_INTERLACE_ADAM7 ? 7 : 1;
  int channels_depth = header.depth;
  if (!Guard(session, [&] {
        if (!keep) RequestColours(session.png, session.info, header);
        if (keep && passes > 1) png_set_packing(session.png);
        png_set_interlace_handling(session.png);
        png_read_update_info(session.png, session.info);
        channels_depth = png_get_channels(session.png, session.info) *
                         png_get_bit_depth(session.png, session.info);
      })) {
    fail();
  }
  if (header.depth == 16) info.notes.emplace_back(kReducedNote);
  info.width = static_cast<int>(header.width);
  info.height = static_cast<int>(header.height);
  info.bit_count = keep ? (header.depth == 2 ? 4 : header.depth) : channels_depth;
  if (keep) info.palette = ReadPalette(session, header);

  PixelTarget target(input, info, ReadOrientation(session));
  // Kept indices may come in another packing than images have: as bytes when interlaced.
  const bool repacked = keep && (channels_depth != info.bit_count);
  std::vector<uint8_t> buffer;
  const size_t packed_bytes = RowBytes(static_cast<int>(header.width), channels_depth);
  if (repacked) buffer.resize(packed_bytes * (passes > 1 ? header.height : 1));
  const auto row_of = [&](int y) -> uint8_t* {
    if (!repacked) return target.Row(y);
    return buffer.data() + (passes > 1 ? packed_bytes * static_cast<size_t>(y) : 0);
  };
  const auto repack = [&](int y) {
    const int width = static_cast<int>(header.width);
    if (channels_depth == 2) {
      WidenToFourBits(row_of(y), target.Row(y), width);
      return;
    }
    uint8_t* const row = target.Row(y);
    const int per_byte = 8 / info.bit_count;
    for (int x = 0; x < width; ++x) {
      if (x % per_byte == 0) row[x / per_byte] = 0;
      row[x / per_byte] = static_cast<uint8_t>(
          row[x / per_byte] | row_of(y)[x] << (8 - info.bit_count * (x % per_byte + 1)));
    }
  };
  const int rows = static_cast<int>(header.height);
  for (int pass = 0; pass < passes; ++pass) {
    for (int y = 0; y < rows; ++y) {
      uint8_t* const row = row_of(y);
      if (!Guard(session, [&] { png_read_row(session.png, row, nullptr); })) fail();
      if (repacked && pass == passes - 1) repack(y);
    }
  }
  if (!Guard(session, [&] { png_read_end(session.png, nullptr); })) fail();
  target.Finish();
  return info;
}

std::vector<uint8_t> EncodePng(const Output& output) {
  const PictureView& picture = output.picture;
  std::vector<uint8_t> bytes;
  WriteSession session(bytes);
  png_color palette[256];
  png_byte alpha[256];
  const int entries = static_cast<int>(std::min<size_t>(picture.palette.size(), 256));
  bool has_alpha = false;
  for (int i = 0; i < entries; ++i) {
    const PaletteEntry& entry = picture.palette[static_cast<size_t>(i)];
    palette[i] = {entry.red, entry.green, entry.blue};
    alpha[i] = entry.reserved;
    has_alpha |= entry.reserved != 255;
  }
  const int colour = picture.bit_count == 32   ? PNG_COLOR_TYPE_RGB_ALPHA
                     : picture.bit_count == 24 ? PNG_COLOR_TYPE_RGB
                     : entries > 0             ? PNG_COLOR_TYPE_PALETTE
                                               : PNG_COLOR_TYPE_GRAY;
  const Metadata& metadata = output.metadata;
  const bool done = Guard(session, [&] {
    png_set_user_limits(session.png, 0x7FFFFFFF, 0x7FFFFFFF);
    png_set_compression_level(session.png, 4);
    png_set_IHDR(session.png, session.info, static_cast<png_uint_32>(picture.width),
                 static_cast<png_uint_32>(picture.height), std::min(picture.bit_count, 8), colour,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (colour == PNG_COLOR_TYPE_PALETTE) {
      png_set_PLTE(session.png, session.info, palette, entries);
      if (has_alpha) png_set_tRNS(session.png, session.info, alpha, entries, nullptr);
    }
    if (!metadata.icc_profile.empty()) {
      png_set_iCCP(session.png, session.info, "icc", PNG_COMPRESSION_TYPE_BASE,
                   metadata.icc_profile.data(),
                   static_cast<png_uint_32>(metadata.icc_profile.size()));
    }
    if (metadata.dpi_x > 0 && metadata.dpi_y > 0) {
      png_set_pHYs(session.png, session.info,
                   static_cast<png_uint_32>(std::lround(metadata.dpi_x / kMetresPerInch)),
                   static_cast<png_uint_32>(std::lround(metadata.dpi_y / kMetresPerInch)),
                   PNG_RESOLUTION_METER);
    }
    png_write_info(session.png, session.info);
    png_set_bgr(session.png);
    for (int y = 0; y < picture.height; ++y) png_write_row(session.png, picture.Row(y));
    png_write_end(session.png, nullptr);
  });
  if (!done) output.Fail(std::string("encoding as PNG failed: ") + session.message);
  return bytes;
}

}  // namespace qel::pictures
