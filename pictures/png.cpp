#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <exception>
#include <sstream>
#include <string_view>

#include "pictures/codec.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/text_blocks.h"

namespace qel::pictures {
namespace {

constexpr size_t kSignatureBytes = 8;
constexpr std::string_view kXmpName = "XML:com.adobe.xmp";
constexpr std::string_view kIptcName = "Raw profile type iptc";

/// What the callbacks of libpng need. It leaves by longjmp when something is wrong: every call
/// that can fail runs inside `Run`, in functions that hold nothing to be destroyed.
class Session {
 public:
  Session() = default;
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Runs `step`; false when libpng has left it, with `message` saying why.
  template <typename Step>
  [[gnu::noinline]] bool Run(const Step& step) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    step();
    return true;
  }

  static void OnError(png_structp png, png_const_charp text) {
    auto* const session = static_cast<Session*>(png_get_error_ptr(png));
    std::strncpy(session->message, text, sizeof(session->message) - 1);
    png_longjmp(png, 1);
  }
  static void OnWarning(png_structp, png_const_charp) {}

  png_structp png = nullptr;
  png_infop info = nullptr;
  char message[200] = "";
};

class ReadSession : public Session {
 public:
  explicit ReadSession(const Input& input) : input_(input) {
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, static_cast<Session*>(this), &OnError,
                                 &OnWarning);
    if (png != nullptr) info = png_create_info_struct(png);
    if (info == nullptr) {
      png_destroy_read_struct(&png, &info, nullptr);
      throw std::bad_alloc();
    }
    png_set_read_fn(png, this, &OnRead);
  }
  ~ReadSession() { png_destroy_read_struct(&png, &info, nullptr); }

  template <typename Step>
  void Run(const Step& step) {
    if (Session::Run(step)) return;
    if (failure_) std::rethrow_exception(failure_);
    if (truncated_) input_.Truncated();
    input_.Broken(std::string("damaged PNG: ") + message);
  }

 private:
  static void OnRead(png_structp png, png_bytep data, size_t count) {
    auto* const session = static_cast<ReadSession*>(png_get_io_ptr(png));
    const Bytes bytes = session->Load(count);
    if (bytes.size() < count) {
      session->truncated_ = true;
      png_error(png, "truncated");
    }
    std::memcpy(data, bytes.data(), count);
    session->position_ += count;
  }

  /// No exception may pass through the frames of the library.
  Bytes Load(size_t count) noexcept try {
    return input_.source.Load(position_, count);
  } catch (...) {
    failure_ = std::current_exception();
    return {};
  }

  const Input& input_;
  size_t position_ = 0;
  bool truncated_ = false;
  std::exception_ptr failure_;
};

struct Header {
  png_uint_32 width = 0;
  png_uint_32 height = 0;
  int depth = 0;
  int colour = 0;
  int passes = 1;
  int entries = 0;
  png_colorp palette = nullptr;
  bool transparent_entries = false;  ///< a colour or entries of the palette stand for transparency

  bool HasPalette() const { return colour == PNG_COLOR_TYPE_PALETTE; }
  int Channels() const {
    const int colours = (colour & PNG_COLOR_MASK_COLOR) != 0 && !HasPalette() ? 3 : 1;
    return colours + ((colour & PNG_COLOR_MASK_ALPHA) != 0 ? 1 : 0);
  }
};

Header ReadHeader(ReadSession& session) {
  Header header;
  session.Run([&] {
    png_set_user_limits(session.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    // Texts and such are not unpacked: a small file can have thousands of large ones.
    static constexpr png_byte kPassedOver[] = "tEXt\0zTXt\0iTXt\0sPLT\0pCAL\0sCAL\0eXIf";
    png_set_keep_unknown_chunks(session.png, PNG_HANDLE_CHUNK_NEVER, kPassedOver,
                                sizeof(kPassedOver) / 5);
    png_read_info(session.png, session.info);
    png_get_IHDR(session.png, session.info, &header.width, &header.height, &header.depth,
                 &header.colour, nullptr, nullptr, nullptr);
    png_get_PLTE(session.png, session.info, &header.palette, &header.entries);
    header.transparent_entries = png_get_valid(session.png, session.info, PNG_INFO_tRNS) != 0;
    header.passes = png_set_interlace_handling(session.png);
  });
  return header;
}

/// What is to be known of the chunks before the pixels are read, wherever they stand.
struct Chunks {
  uint64_t pixel_bytes = 0;  ///< compressed
  Bytes exif;
  std::string xmp;
  std::vector<uint8_t> iptc;
  uint32_t frames = 1;
  bool has_profile = false;
};

/// Unpacks a deflate stream of a text; nothing for a damaged or very long one.
std::string Inflate(Bytes packed) {
  constexpr size_t kMost = size_t{16} << 20;
  std::string text;
  z_stream stream{};
  stream.next_in = const_cast<Bytef*>(packed.data());  // the library only reads it
  stream.avail_in = static_cast<uInt>(packed.size());
  if (inflateInit(&stream) != Z_OK) throw std::bad_alloc();
  int status = Z_OK;
  while (status == Z_OK && text.size() < kMost) {
    Bytef block[4096];
    stream.next_out = block;
    stream.avail_out = sizeof(block);
    status = inflate(&stream, Z_NO_FLUSH);
    text.append(block, block + (sizeof(block) - stream.avail_out));
    if (stream.avail_in == 0 && stream.avail_out == sizeof(block)) break;
  }
  inflateEnd(&stream);
  return status == Z_STREAM_END ? text : std::string();
}

/// The text behind `fields` strings that end with a 0, packed or not.
std::string TextOf(Bytes content, int fields, bool packed) {
  for (; fields > 0; --fields) {
    const auto end = std::ranges::find(content, 0);
    if (end == content.end()) return {};
    content = content.subspan(static_cast<size_t>(end - content.begin()) + 1);
  }
  return packed ? Inflate(content) : std::string(content.begin(), content.end());
}

/// Bytes that a text has as pairs of hexadecimal digits, behind two lines with a name and their
/// number.
std::vector<uint8_t> BytesOfHex(const std::string& text) {
  std::vector<uint8_t> bytes;
  std::istringstream words(text);
  std::string word;
  words >> word >> word;
  int high = -1;
  while (words >> word) {
    for (const char c : word) {
      const int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
      if (digit < 0) return {};
      if (high >= 0) bytes.push_back(static_cast<uint8_t>(high << 4 | digit));
      high = high >= 0 ? -1 : digit;
    }
  }
  return bytes;
}

/// Metadata that stand in texts under names that writers agree on.
void TakeText(Bytes content, std::string_view kind, Chunks& chunks) {
  const std::string_view text(reinterpret_cast<const char*>(content.data()), content.size());
  const auto named = [text](std::string_view name) {
    return text.starts_with(name) && text.size() > name.size() && text[name.size()] == '\0';
  };
  if (kind == "iTXt" && named(kXmpName) && content.size() > kXmpName.size() + 3) {
    const Bytes behind = content.subspan(kXmpName.size() + 1);
    chunks.xmp = TextOf(behind.subspan(2), 2, behind[0] != 0);
  } else if (kind != "iTXt" && named(kIptcName)) {
    const bool packed = kind == "zTXt";
    const size_t skipped = kIptcName.size() + (packed ? 2 : 1);
    if (content.size() <= skipped) return;
    const std::vector<uint8_t> bytes = BytesOfHex(TextOf(content.subspan(skipped), 0, packed));
    const Bytes iptc = StartsWith(bytes, "8BIM") ? IptcOfResources(bytes) : Bytes(bytes);
    chunks.iptc.assign(iptc.begin(), iptc.end());
  }
}

/// Goes through the chunks ourselves: the one with EXIF may follow the pixels. What its checksum
/// does not confirm counts as absent.
Chunks FindChunks(const Input& input) {
  constexpr size_t kChunkHeader = 8, kChecksum = 4;
  Chunks chunks;
  size_t at = kSignatureBytes;
  while (true) {
    const Bytes header = input.source.Load(at, kChunkHeader);
    if (header.size() < kChunkHeader || StartsWith(header.subspan(4), "IEND")) return chunks;
    const auto is = [&](const char* name) { return StartsWith(header.subspan(4), name); };
    const size_t length = ByteReader(header, ByteOrder::kBig).U32(0);
    if (is("IDAT")) chunks.pixel_bytes += length;
    if (is("iCCP")) chunks.has_profile = true;
    const bool text = is("iTXt") || is("zTXt") || is("tEXt");
    if (is("eXIf") || is("acTL") || is("tRNS") || text) {
      const Bytes whole = input.source.Load(at + 4, length + 4 + kChecksum);
      if (whole.size() < length + 4 + kChecksum) input.Truncated();
      const bool intact = ByteReader(whole, ByteOrder::kBig).U32(length + 4) ==
                          crc32(0, whole.data(), static_cast<uInt>(length + 4));
      if (is("tRNS") && !intact) input.Broken("damaged PNG: tRNS: CRC error");
      if (is("eXIf") && intact) chunks.exif = whole.subspan(4, length);
      if (text && intact) {
        const char* const kind = reinterpret_cast<const char*>(whole.data());
        TakeText(whole.subspan(4, length), {kind, 4}, chunks);
      }
      if (is("acTL") && intact) chunks.frames = ByteReader(whole, ByteOrder::kBig).U32(4);
    }
    at += kChunkHeader + length + kChecksum;
  }
}

/// Checks what the header asks for before anything of its size is made.
void CheckHeader(const Input& input, const Header& header, const Chunks& chunks) {
  CheckSize(input, header.width, header.height);
  const uint64_t row_bits =
      uint64_t{header.width} * static_cast<unsigned>(header.Channels() * header.depth);
  input.CheckHolds((row_bits + 7) / 8 * header.height, kDeflateRatio, chunks.pixel_bytes);
}

void ReadMetadata(const ReadSession& session, Metadata& metadata) {
  png_charp name = nullptr;
  png_bytep profile = nullptr;
  png_uint_32 length = 0;
  int compression = 0;
  if (png_get_iCCP(session.png, session.info, &name, &compression, &profile, &length) != 0) {
    metadata.icc_profile.assign(profile, profile + length);
  }
  const png_uint_32 dots_x = png_get_x_pixels_per_meter(session.png, session.info);
  const png_uint_32 dots_y = png_get_y_pixels_per_meter(session.png, session.info);
  if (dots_x == 0 || dots_y == 0) return;
  metadata.dpi_x = DpiFromMetre(dots_x);
  metadata.dpi_y = DpiFromMetre(dots_y);
}

/// Kept are indices, and grey levels below 8 bits that have no transparent one among them.
bool KeepsDepth(const Input& input, const Header& header) {
  if (!input.options.keep_palette_depth) return false;
  if (header.HasPalette()) return true;
  return header.colour == PNG_COLOR_TYPE_GRAY && header.depth < 8 && !header.transparent_entries;
}

void DescribeKept(const Header& header, PictureInfo& info) {
  info.bit_count = header.depth == 2 ? 4 : header.depth;
  if (!header.HasPalette()) {
    info.palette = GreyRamp(header.depth);
    return;
  }
  for (int i = 0; i < header.entries; ++i) {
    info.palette.push_back(
        {header.palette[i].blue, header.palette[i].green, header.palette[i].red});
  }
  if (header.transparent_entries) info.notes.emplace_back(kPaletteAlphaNote);
}

/// Asks libpng for blue, green, red (, alpha) or plain grey bytes.
void RequestColours(ReadSession& session, const Header& header, PictureInfo& info) {
  const bool alpha = (header.colour & PNG_COLOR_MASK_ALPHA) != 0 || header.transparent_entries;
  const bool grey = (header.colour & PNG_COLOR_MASK_COLOR) == 0;
  session.Run([&] {
    png_set_expand(session.png);
    if (header.depth == 16) png_set_scale_16(session.png);
    if (grey && alpha) png_set_gray_to_rgb(session.png);
    png_set_bgr(session.png);
  });
  info.bit_count = alpha ? 32 : grey ? 8 : 24;
  if (header.depth == 16) info.notes.emplace_back(kReducedNote);
}

/// Four-bit indices in the place of two-bit ones.
void WidenRow(uint8_t* row, int width) {
  for (int x = width; x-- > 0;) StoreIndex(row, 4, x, LoadIndex(row, 2, x));
}

struct Colours {
  int type = PNG_COLOR_TYPE_GRAY;
  int entries = 0;
  png_color palette[256];
};

Colours ColoursOf(const PictureView& picture) {
  Colours colours;
  if (picture.bit_count >= 24) {
    colours.type = picture.bit_count == 32 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
  } else if (!picture.palette.empty()) {
    colours.type = PNG_COLOR_TYPE_PALETTE;
    for (const PaletteEntry& entry : PaletteOf(picture)) {
      colours.palette[colours.entries++] = {entry.red, entry.green, entry.blue};
    }
  }
  return colours;
}

class WriteSession : public Session {
 public:
  explicit WriteSession(const Output& output) : output_(output) {
    png = png_create_write_struct(PNG_LIBPNG_VER_STRING, static_cast<Session*>(this), &OnError,
                                  &OnWarning);
    if (png != nullptr) info = png_create_info_struct(png);
    if (info == nullptr) {
      png_destroy_write_struct(&png, &info);
      throw std::bad_alloc();
    }
    png_set_write_fn(png, this, &OnWrite, &OnFlush);
  }
  ~WriteSession() { png_destroy_write_struct(&png, &info); }

  template <typename Step>
  void Run(const Step& step) {
    if (!Session::Run(step)) output_.EncoderFailed(message);
  }

  std::vector<uint8_t> file;

 private:
  static void OnWrite(png_structp png, png_bytep data, size_t count) {
    auto* const session = static_cast<WriteSession*>(png_get_io_ptr(png));
    if (!session->Append(data, count)) png_error(png, "no memory");
  }
  static void OnFlush(png_structp) {}

  /// No exception may pass through the frames of the library.
  bool Append(const uint8_t* data, size_t count) noexcept try {
    file.insert(file.end(), data, data + count);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }

  const Output& output_;
};

/// Bytes as text, as others write and read them.
std::string HexOfBytes(Bytes bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  constexpr size_t kBytesInLine = 36;
  std::string text = "\niptc\n" + std::to_string(bytes.size()) + "\n";
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i > 0 && i % kBytesInLine == 0) text += '\n';
    text += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
  }
  return text + '\n';
}

void WriteTexts(WriteSession& session, const Metadata& metadata) {
  std::string xmp_name(kXmpName);
  std::string iptc_name(kIptcName);
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

void WriteMetadata(WriteSession& session, const Output& output, bool grey) {
  const Bytes profile = output.Profile(grey);
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
  if (!accepted)
    output.notes.emplace_back("PNG takes no colour profile with such faults; it was left out");
}

}  // namespace

bool IsPng(Bytes file) {
  return file.size() >= kSignatureBytes && png_sig_cmp(file.data(), 0, kSignatureBytes) == 0;
}

PictureInfo ReadPng(const Input& input) {
  ReadSession session(input);
  const Header header = ReadHeader(session);
  const Chunks chunks = FindChunks(input);
  CheckHeader(input, header, chunks);
  PictureInfo info;
  info.format = Format::kPng;
  info.width = static_cast<int>(header.width);
  info.height = static_cast<int>(header.height);
  const Exif exif = ParseExif(chunks.exif).value_or(Exif());
  TakeExif(input, exif, info.metadata);
  ReadMetadata(session, info.metadata);
  TakeXmp(input, BytesOf(chunks.xmp), info.metadata);
  info.metadata.iptc = chunks.iptc;
  if (chunks.has_profile && info.metadata.icc_profile.empty()) {
    info.notes.emplace_back("the colour profile is damaged; it was left out");
  }
  if (chunks.frames > 1) {
    info.notes.push_back("an animation of " + std::to_string(chunks.frames) +
                         " frames; only its still picture was read");
  }
  const bool keep = KeepsDepth(input, header);
  if (keep) {
    DescribeKept(header, info);
  } else {
    RequestColours(session, header, info);
  }
  const int rows = info.height;
  PixelTarget target(input, info, exif.Orientation());
  if (!target.WantsPixels()) return info;
  session.Run([&] {
    png_read_update_info(session.png, session.info);
    for (int pass = 0; pass < header.passes; ++pass) {
      for (int y = 0; y < rows; ++y) png_read_row(session.png, target.Row(y), nullptr);
    }
    png_read_end(session.png, nullptr);
  });
  for (int y = 0; keep && header.depth == 2 && y < rows; ++y) {
    WidenRow(target.Row(y), static_cast<int>(header.width));
  }
  target.Finish();
  return info;
}

std::vector<uint8_t> EncodePng(const Output& output) {
  const PictureView& picture = output.picture;
  const Colours colours = ColoursOf(picture);
  WriteSession session(output);
  session.Run([&] {
    png_set_user_limits(session.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_compression_level(session.png, std::clamp(output.options.png_level, 0, 9));
    png_set_IHDR(session.png, session.info, static_cast<png_uint_32>(picture.width),
                 static_cast<png_uint_32>(picture.height), std::min(picture.bit_count, 8),
                 colours.type, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    if (colours.entries > 0) {
      png_set_PLTE(session.png, session.info, colours.palette, colours.entries);
    }
  });
  WriteMetadata(session, output, colours.type == PNG_COLOR_TYPE_GRAY);
  session.Run([&] {
    png_write_info(session.png, session.info);
    png_set_bgr(session.png);
    for (int y = 0; y < picture.height; ++y) png_write_row(session.png, picture.Row(y));
    png_write_end(session.png, nullptr);
  });
  return std::move(session.file);
}

}  // namespace qel::pictures
