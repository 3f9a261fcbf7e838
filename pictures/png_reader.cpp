#include <fmt/core.h>
#include <png.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>

#include "pictures/codec.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/png_chunks.h"
#include "pictures/png_session.h"

namespace qel::pictures {
namespace {

class PngReadSession : public PngSession {
 public:
  explicit PngReadSession(const Input& input) : input_(input) {
    png = png_create_read_struct(PNG_LIBPNG_VER_STRING, static_cast<PngSession*>(this), &OnError,
                                 &OnWarning);
    if (png != nullptr) info = png_create_info_struct(png);
    if (info == nullptr) {
      png_destroy_read_struct(&png, &info, nullptr);
      throw std::bad_alloc();
    }
    png_set_read_fn(png, this, &OnRead);
  }
  ~PngReadSession() { png_destroy_read_struct(&png, &info, nullptr); }

  template <typename Step>
  void Run(const Step& step) {
    if (PngSession::Run(step)) return;
    if (failure_) std::rethrow_exception(failure_);
    if (truncated_) input_.Truncated();
    input_.Broken("damaged PNG: {}", message);
  }

  bool streams = false;  ///< what was read is not needed again

 private:
  static void OnRead(png_structp png, png_bytep data, size_t count) {
    auto* const session = static_cast<PngReadSession*>(png_get_io_ptr(png));
    const Bytes bytes = session->Load(count);
    if (bytes.size() < count) {
      session->truncated_ = true;
      png_error(png, "truncated");
    }
    std::memcpy(data, bytes.data(), count);
    session->position_ += count;
    if (session->streams) session->input_.source.KeepOnly(session->position_);
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
  int color = 0;
  int passes = 1;
  int entries = 0;
  png_colorp palette = nullptr;
  bool transparent_entries = false;  ///< a colour or entries of the palette stand for transparency

  bool HasPalette() const { return color == PNG_COLOR_TYPE_PALETTE; }
  int Channels() const {
    const int colors = (color & PNG_COLOR_MASK_COLOR) != 0 && !HasPalette() ? 3 : 1;
    return colors + ((color & PNG_COLOR_MASK_ALPHA) != 0 ? 1 : 0);
  }
};

Header ReadHeader(PngReadSession& session) {
  Header header;
  session.Run([&] {
    png_set_user_limits(session.png, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    // Texts and such are not unpacked: a small file can have thousands of large ones.
    static constexpr png_byte kPassedOver[] = "tEXt\0zTXt\0iTXt\0sPLT\0pCAL\0sCAL\0eXIf";
    png_set_keep_unknown_chunks(session.png, PNG_HANDLE_CHUNK_NEVER, kPassedOver,
                                sizeof(kPassedOver) / 5);
    png_read_info(session.png, session.info);
    png_get_IHDR(session.png, session.info, &header.width, &header.height, &header.depth,
                 &header.color, nullptr, nullptr, nullptr);
    png_get_PLTE(session.png, session.info, &header.palette, &header.entries);
    header.transparent_entries = png_get_valid(session.png, session.info, PNG_INFO_tRNS) != 0;
    header.passes = png_set_interlace_handling(session.png);
  });
  return header;
}

/// Checks what the header asks for before anything of its size is made.
void CheckHeader(const Input& input, const Header& header, const PngChunks& chunks) {
  CheckSize(input, header.width, header.height);
  const uint64_t row_bits =
      uint64_t{header.width} * static_cast<unsigned>(header.Channels() * header.depth);
  input.CheckHolds((row_bits + 7) / 8 * header.height, kDeflateRatio, chunks.pixel_bytes);
  input.Plan(row_bits / 8 * 2);  // a row and the one before it
}

void ReadMetadata(const PngReadSession& session, Metadata& metadata) {
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
  return header.color == PNG_COLOR_TYPE_GRAY && header.depth < 8 && !header.transparent_entries;
}

void DescribeKept(const Header& header, PictureInfo& info) {
  info.bit_count = header.depth == 2 ? 4 : header.depth;
  if (!header.HasPalette()) {
    info.palette = GrayRamp(header.depth);
    return;
  }
  for (int i = 0; i < header.entries; ++i) {
    info.palette.push_back(
        {header.palette[i].blue, header.palette[i].green, header.palette[i].red});
  }
  if (header.transparent_entries) info.notes.emplace_back(kPaletteAlphaNote);
}

/// Asks libpng for blue, green, red (, alpha) or plain grey bytes.
void RequestColors(PngReadSession& session, const Header& header, PictureInfo& info) {
  const bool alpha = (header.color & PNG_COLOR_MASK_ALPHA) != 0 || header.transparent_entries;
  const bool gray = (header.color & PNG_COLOR_MASK_COLOR) == 0;
  session.Run([&] {
    png_set_expand(session.png);
    if (header.depth == 16) png_set_scale_16(session.png);
    if (gray && alpha) png_set_gray_to_rgb(session.png);
    png_set_bgr(session.png);
  });
  info.bit_count = alpha ? 32 : gray ? 8 : 24;
  if (header.depth == 16) info.notes.emplace_back(kReducedNote);
}

/// Four-bit indices in the place of two-bit ones.
void WidenRow(uint8_t* row, int width) {
  for (int x = width; x-- > 0;) StoreIndex(row, 4, x, LoadIndex(row, 2, x));
}

class PngDecoder final : public RowDecoder {
 public:
  explicit PngDecoder(const Input& input) : session_(input), header_(ReadHeader(session_)) {
    const PngChunks chunks = FindPngChunks(input);
    CheckHeader(input, header_, chunks);
    if (!input.source.CanReadAgain()) input.PlanFile();
    info.format = Format::kPng;
    info.width = static_cast<int>(header_.width);
    info.height = static_cast<int>(header_.height);
    const Exif exif = ParseExif(chunks.exif).value_or(Exif());
    orientation = exif.Orientation();
    TakeExif(input, exif, info.metadata);
    ReadMetadata(session_, info.metadata);
    TakeXmp(input, BytesOf(chunks.xmp), info.metadata);
    info.metadata.iptc = chunks.iptc;
    if (chunks.has_profile && info.metadata.icc_profile.empty()) {
      info.notes.emplace_back("the colour profile is damaged; it was left out");
    }
    if (chunks.frames > 1) {
      info.notes.push_back(
          fmt::format("an animation of {} frames; only its still picture was read", chunks.frames));
    }
    streams = header_.passes == 1;
    const bool keep = KeepsDepth(input, header_);
    widen_ = keep && header_.depth == 2;
    if (keep) {
      DescribeKept(header_, info);
    } else {
      RequestColors(session_, header_, info);
    }
  }

  void Read(const PixelBuffer& rows, int count) override {
    session_.Run([&] {
      if (!session_.streams) png_read_update_info(session_.png, session_.info);
      session_.streams = true;
      for (int pass = 0; pass < header_.passes; ++pass) {
        for (int y = 0; y < count; ++y) {
          png_read_row(session_.png, rows.bits + y * rows.stride, nullptr);
        }
      }
    });
    for (int y = 0; widen_ && y < count; ++y) WidenRow(rows.bits + y * rows.stride, info.width);
  }

  void Finish() override {
    session_.Run([&] { png_read_end(session_.png, nullptr); });
  }

 private:
  PngReadSession session_;
  Header header_;
  bool widen_ = false;  ///< from two bits to four
};

}  // namespace

bool IsPng(Bytes file) {
  return file.size() >= kPngSignatureBytes && png_sig_cmp(file.data(), 0, kPngSignatureBytes) == 0;
}

std::unique_ptr<RowDecoder> OpenPng(const Input& input) {
  return std::make_unique<PngDecoder>(input);
}

}  // namespace qel::pictures
