#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

#include "pictures/codec.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/sample_math.h"

namespace qel::pictures {
namespace {

/// A TIFF file and what its library says about it.
struct TiffFile {
  ByteSource* source = nullptr;  ///< while reading
  std::vector<uint8_t> written;  ///< while writing
  uint64_t position = 0;
  char message[200] = "";  ///< the first error, and while pixels are decoded also warning
  char note[200] = "";     ///< the first warning that means no loss
  bool decoding = false;   ///< pixels, of which every warning says that they are damaged
  bool palette_lost = false;
  std::exception_ptr failure;

  [[noreturn]] void Fail(const Input& input) const {
    if (failure) std::rethrow_exception(failure);
    std::string reason = message;
    // The library appends what its own libraries say, which may be nothing.
    while (!reason.empty() && std::strchr(": \n", reason.back()) != nullptr) reason.pop_back();
    if (reason.empty()) reason = "pixels are missing";
    throw TruncatedPicture(input.name, "truncated or damaged TIFF: " + reason);
  }
  bool HasFailed() const { return message[0] != '\0' || failure; }

  static TiffFile& Of(thandle_t handle) { return *static_cast<TiffFile*>(handle); }

  /// No exception may pass through the frames of the library.
  static tmsize_t OnRead(thandle_t handle, void* data, tmsize_t count) noexcept {
    TiffFile& file = Of(handle);
    try {
      const Bytes bytes = file.Load(file.position, static_cast<uint64_t>(count));
      std::ranges::copy(bytes, static_cast<uint8_t*>(data));
      file.position += bytes.size();
      return static_cast<tmsize_t>(bytes.size());
    } catch (...) {
      file.failure = std::current_exception();
      return 0;
    }
  }

  static tmsize_t OnWrite(thandle_t handle, void* data, tmsize_t count) noexcept try {
    TiffFile& file = Of(handle);
    const auto* const bytes = static_cast<const uint8_t*>(data);
    const uint64_t end = file.position + static_cast<uint64_t>(count);
    if (end > file.written.size()) file.written.resize(end);
    std::copy_n(bytes, count, file.written.begin() + static_cast<ptrdiff_t>(file.position));
    file.position = end;
    return count;
  } catch (const std::bad_alloc&) {
    return -1;
  }

  static toff_t OnSeek(thandle_t handle, toff_t offset, int whence) {
    TiffFile& file = Of(handle);
    const uint64_t origin = whence == SEEK_CUR   ? file.position
                            : whence == SEEK_END ? file.Size()
                                                 : 0;
    return file.position = origin + offset;
  }
  static int OnClose(thandle_t) { return 0; }
  static toff_t OnSize(thandle_t handle) { return Of(handle).Size(); }

  /// Uncompressed pixels are taken from where they are.
  static int OnMap(thandle_t handle, void** base, toff_t* size) {
    const TiffFile& file = Of(handle);
    if (file.source == nullptr || !file.source->InMemory()) return 0;
    const Bytes all = file.source->All();
    *base = const_cast<uint8_t*>(all.data());  // the library only reads it
    *size = all.size();
    return 1;
  }
  static void OnUnmap(thandle_t, void*, toff_t) {}

  /// Both handlers answer 1, handled: nothing of the process is asked.
  static int OnError(TIFF*, void* user, const char*, const char* format, va_list arguments) {
    char text[sizeof(message)];
    std::vsnprintf(text, sizeof(text), format, arguments);
    Keep(static_cast<TiffFile*>(user)->message, text);
    return 1;
  }
  static int OnWarning(TIFF*, void* user, const char* module, const char* format,
                       va_list arguments) {
    auto* const file = static_cast<TiffFile*>(user);
    char text[sizeof(file->message)];
    std::vsnprintf(text, sizeof(text), format, arguments);
    // Without a readable palette the library takes the indices for greys.
    if (std::strstr(text, "ColorMap") != nullptr) file->palette_lost = true;
    // A run that is longer than what is left to fill.
    const bool harmless = module != nullptr && std::strcmp(module, "PackBitsDecode") == 0 &&
                          std::strncmp(text, "Discarding", 10) == 0;
    if (file->palette_lost || (file->decoding && !harmless)) {
      Keep(file->message, text);
    } else if (harmless) {
      Keep(file->note, text);
    }
    return 1;
  }

 private:
  Bytes Load(uint64_t at, uint64_t count) {
    if (source != nullptr) return source->Load(at, count);
    const Bytes all(written);
    return at < all.size() ? all.subspan(at, std::min<uint64_t>(count, all.size() - at)) : Bytes();
  }
  uint64_t Size() const { return source != nullptr ? source->size() : written.size(); }

  /// Keeps the first text.
  static void Keep(char (&kept)[200], const char (&text)[200]) {
    if (kept[0] == '\0') std::memcpy(kept, text, sizeof(kept));
  }
};

struct TiffDeleter {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, TiffDeleter>;

/// Opens a file in memory; `most_bytes` bounds what the library allocates at once, 0 for anything.
Tiff Open(TiffFile& file, const char* mode, int64_t most_bytes) {
  TIFFOpenOptions* const options = TIFFOpenOptionsAlloc();
  if (options == nullptr) throw std::bad_alloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options, &TiffFile::OnError, &file);
  TIFFOpenOptionsSetWarningHandlerExtR(options, &TiffFile::OnWarning, &file);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options, most_bytes);
  TIFF* const tiff = TIFFClientOpenExt(
      "picture", mode, &file, &TiffFile::OnRead, &TiffFile::OnWrite, &TiffFile::OnSeek,
      &TiffFile::OnClose, &TiffFile::OnSize, &TiffFile::OnMap, &TiffFile::OnUnmap, options);
  TIFFOpenOptionsFree(options);
  return Tiff(tiff);
}

constexpr char kOtherColoursNote[] =
    "colours were converted without their profile, which was left out";

enum class Alpha { kNone, kStraight, kAssociated };

struct Header {
  uint32_t width = 0;
  uint32_t height = 0;
  uint16_t bits = 1;
  uint16_t samples = 1;
  uint16_t photometric = 0xFFFF;
  uint16_t planar = PLANARCONFIG_CONTIG;
  uint16_t orientation = ORIENTATION_TOPLEFT;
  uint16_t sample_format = SAMPLEFORMAT_UINT;
  uint16_t extra_samples = 0;
  uint16_t compression = COMPRESSION_NONE;
  Alpha alpha = Alpha::kNone;  ///< of the first extra sample

  bool IsGrey() const {
    return photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
  }
  bool HasPalette() const { return photometric == PHOTOMETRIC_PALETTE; }
  /// Whether pixels stay in the colours that a profile of the file speaks of.
  bool KeepsProfile() const {
    return ColourSamples() == 1 || ColourSamples() == 3 || photometric == PHOTOMETRIC_YCBCR;
  }
  /// Samples of colour in a pixel; 0 for kinds of colour that we leave to the library.
  int ColourSamples() const {
    if (IsGrey() || HasPalette()) return 1;
    return photometric == PHOTOMETRIC_RGB ? 3 : photometric == PHOTOMETRIC_SEPARATED ? 4 : 0;
  }
  /// Samples that are read of a pixel: its colour, and alpha.
  int UsedSamples() const { return ColourSamples() + (alpha != Alpha::kNone ? 1 : 0); }
  bool IsPlanar() const { return planar == PLANARCONFIG_SEPARATE; }
};

Header ReadHeader(TIFF* tiff) {
  Header header;
  TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &header.width);
  TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &header.height);
  TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &header.photometric);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &header.bits);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &header.samples);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &header.planar);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &header.orientation);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &header.sample_format);
  if (header.orientation < 1 || header.orientation > 8) header.orientation = ORIENTATION_TOPLEFT;
  uint16_t* kinds = nullptr;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &header.extra_samples, &kinds);
  if (header.extra_samples > 0 && kinds != nullptr) {
    header.alpha = kinds[0] == EXTRASAMPLE_UNASSALPHA   ? Alpha::kStraight
                   : kinds[0] == EXTRASAMPLE_ASSOCALPHA ? Alpha::kAssociated
                                                        : Alpha::kNone;
  }
  TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &header.compression);
  if (header.compression == COMPRESSION_JPEG && header.photometric == PHOTOMETRIC_YCBCR &&
      !header.IsPlanar()) {
    // The JPEG decoder inside converts and brings chroma to full resolution.
    TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    header.photometric = PHOTOMETRIC_RGB;
  }
  return header;
}

Metadata ReadMetadata(TIFF* tiff) {
  Metadata metadata;
  uint32_t length = 0;
  void* profile = nullptr;
  if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &length, &profile) == 1 && profile != nullptr) {
    const auto* const bytes = static_cast<const uint8_t*>(profile);
    metadata.icc_profile.assign(bytes, bytes + length);
  }
  float x = 0;
  float y = 0;
  uint16_t unit = RESUNIT_INCH;
  TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &x);
  TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &y);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_RESOLUTIONUNIT, &unit);
  if (std::isfinite(x) && std::isfinite(y) && x > 0 && y > 0 && unit != RESUNIT_NONE) {
    const double scale = unit == RESUNIT_CENTIMETER ? kCentimetresPerInch : 1;
    metadata.dpi_x = double{x} * scale;
    metadata.dpi_y = double{y} * scale;
  }
  return metadata;
}

// Of the main directory these are kept; the others describe how the pixels lie in the file.
constexpr uint16_t kTextTags[] = {TIFFTAG_IMAGEDESCRIPTION, TIFFTAG_MAKE,     TIFFTAG_MODEL,
                                  TIFFTAG_SOFTWARE,         TIFFTAG_DATETIME, TIFFTAG_ARTIST,
                                  TIFFTAG_HOSTCOMPUTER,     TIFFTAG_COPYRIGHT};
constexpr uint16_t kPointerTags[] = {kXmpTag, kIptcTag, kExifTag, kGpsTag};

/// EXIF, XMP and IPTC, which the file has among its directories.
void ReadTexts(const Input& input, TIFF* tiff, const Header& header, PictureInfo& info) {
  if (TIFFIsBigTIFF(tiff)) {
    info.notes.emplace_back("EXIF, XMP and IPTC of files with 64-bit positions are left out");
    return;
  }
  std::vector<uint16_t> tags(std::begin(kTextTags), std::end(kTextTags));
  tags.insert(tags.end(), std::begin(kPointerTags), std::end(kPointerTags));
  std::optional<Exif> exif = ParseExif(input.source, tags);
  if (!exif) return;
  Metadata& metadata = info.metadata;
  TakeXmp(input, TakeEntry(exif->main, kXmpTag).data, metadata);
  metadata.iptc = TakeEntry(exif->main, kIptcTag).data;
  // Some writers declare numbers of four bytes, which lie the other way round in other files.
  constexpr uint8_t kIptcMark = 0x1C;
  for (size_t i = 0; metadata.iptc.size() >= 4 && metadata.iptc[0] != kIptcMark &&
                     metadata.iptc[3] == kIptcMark && i + 4 <= metadata.iptc.size();
       i += 4) {
    std::reverse(&metadata.iptc[i], &metadata.iptc[i] + 4);
  }
  if (!input.options.upright) exif->SetOrientation(header.orientation);
  if (!exif->IsEmpty()) metadata.exif = SerializeExif(*exif);
}

/// Whether we convert the samples ourselves; what remains goes through the library's own
/// conversion, which knows rare colours but loses precision where there is alpha.
bool ConvertsDirectly(const Header& header) {
  const int bits = header.bits;
  const bool low = bits == 1 || bits == 2 || bits == 4;
  const bool whole = bits == 8 || (bits == 16 && !header.HasPalette());
  const bool plain_low = low && header.ColourSamples() == 1 && header.UsedSamples() == 1;
  return header.ColourSamples() > 0 && header.samples >= header.UsedSamples() &&
         (whole || plain_low) && !(header.HasPalette() && header.alpha != Alpha::kNone) &&
         (header.sample_format == SAMPLEFORMAT_UINT || header.sample_format == SAMPLEFORMAT_VOID);
}

/// The palette, or the meaning of grey levels up to 8 bits.
std::vector<PaletteEntry> ReadPalette(const Input& input, TIFF* tiff, const Header& header) {
  if (header.IsGrey()) {
    std::vector<PaletteEntry> ramp = GreyRamp(header.bits);
    if (header.photometric == PHOTOMETRIC_MINISWHITE) std::ranges::reverse(ramp);
    return ramp;
  }
  uint16_t* red = nullptr;
  uint16_t* green = nullptr;
  uint16_t* blue = nullptr;
  if (TIFFGetField(tiff, TIFFTAG_COLORMAP, &red, &green, &blue) != 1) {
    input.Broken("damaged TIFF: the palette is missing");
  }
  const size_t count = size_t{1} << header.bits;
  // Some writers give 8 bits where the format has 16.
  const auto high = [](uint16_t value) { return value > 255; };
  const bool wide = std::any_of(red, red + count, high) ||
                    std::any_of(green, green + count, high) ||
                    std::any_of(blue, blue + count, high);
  const auto level = [wide](uint16_t value) {
    return wide ? ReduceToByte(value) : static_cast<uint8_t>(value);
  };
  std::vector<PaletteEntry> palette;
  for (size_t i = 0; i < count; ++i) {
    palette.push_back({level(blue[i]), level(green[i]), level(red[i]), 0});
  }
  return palette;
}

/// A product that no limit allows when it overflows.
uint64_t CheckedProduct(uint64_t a, uint64_t b) {
  uint64_t product;
  return __builtin_mul_overflow(a, b, &product) ? UINT64_MAX : product;
}

/// Bytes of pixels that a byte of a file stands for at most, where that has a bound.
uint64_t BestRatio(uint16_t compression, uint64_t row_bytes) {
  switch (compression) {
    case COMPRESSION_NONE:
      return 1;
    case COMPRESSION_PACKBITS:
      return 64;
    case COMPRESSION_SGILOG:
    case COMPRESSION_SGILOG24:
      return 128;
    case COMPRESSION_CCITTRLE:
    case COMPRESSION_CCITTRLEW:
    case COMPRESSION_CCITTFAX3:
      return 2560 / 8;  // a make-up code of 12 bits
    case COMPRESSION_CCITTFAX4:
      return 8 * row_bytes;  // a bit says that a row is like the one above
    case COMPRESSION_LZW:
      return 4096;  // the longest entry, in less than two bytes
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE:
      return kDeflateRatio;
    default:
      return UINT64_MAX;
  }
}

/// Throws unless the strips or tiles of the file can hold its pixels.
void CheckPieces(const Input& input, TIFF* tiff, const Header& header) {
  const bool tiled = TIFFIsTiled(tiff);
  if (tiled) {
    // Writers pad to whole tiles, so that a small picture may have a larger tile, but not any.
    constexpr uint32_t kUsualSide = 2048, kUnit = 16;
    uint32_t width = 0;
    uint32_t height = 0;
    TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &width);
    TIFFGetField(tiff, TIFFTAG_TILELENGTH, &height);
    const auto most = [=](uint32_t side) { return std::max(kUsualSide, side + kUnit); };
    if (width > most(header.width) || height > most(header.height)) {
      input.Broken("damaged TIFF: tiles of " + std::to_string(width) + " x " +
                   std::to_string(height) + " pixels are larger than the picture");
    }
  }
  const uint32_t count = tiled ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff);
  const uint64_t planes = header.IsPlanar() ? header.samples : 1;
  const uint64_t promised = tiled ? CheckedProduct(TIFFTileSize64(tiff), count)
                                  : CheckedProduct(TIFFVStripSize64(tiff, header.height), planes);
  uint64_t held = 0;
  for (uint32_t i = 0; i < count; ++i) {
    held += std::min<uint64_t>(TIFFGetStrileByteCount(tiff, i), input.source.size());
  }
  const uint64_t row_bytes = tiled ? TIFFTileRowSize64(tiff) : TIFFScanlineSize64(tiff);
  if (promised == 0) input.Broken("damaged TIFF: pieces without pixels");
  input.CheckHolds(promised, BestRatio(header.compression, row_bytes), held);
}

/// Hands out the picture in rows of interleaved samples of one byte, as the strips or tiles of the
/// file come. Samples below 8 bits keep their values.
class PieceReader {
 public:
  PieceReader(const Input& input, TiffFile& file, TIFF* tiff, const Header& header)
      : input_(input), file_(file), tiff_(tiff), header_(header), width_(header.width) {
    uint32_t height = 1;
    // Strips are decoded row by row, but for those of one channel each.
    if (TIFFIsTiled(tiff)) {
      TIFFGetField(tiff, TIFFTAG_TILEWIDTH, &width_);
      TIFFGetField(tiff, TIFFTAG_TILELENGTH, &height);
    } else if (header.IsPlanar()) {
      TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &height);
      height = std::min(height, header.height);
    }
    if (width_ == 0 || height == 0) input.Broken("damaged TIFF: pieces without pixels");
    height_ = height;
    stored_samples_ = header.IsPlanar() ? 1 : header.samples;
    planes_ = header.IsPlanar() ? header.UsedSamples() : 1;
    row_bytes_ = (width_ * stored_samples_ * header.bits + 7) / 8;
    piece_bytes_ = TIFFIsTiled(tiff)   ? TIFFTileSize64(tiff)
                   : header.IsPlanar() ? TIFFStripSize64(tiff)
                                       : TIFFScanlineSize64(tiff);
    input.Plan(CheckedProduct(piece_bytes_, static_cast<uint64_t>(planes_)));
    if (piece_bytes_ < CheckedProduct(row_bytes_, height_)) {
      input.Broken("damaged TIFF: pieces of the wrong size");
    }
  }

  /// Calls `put(samples, count, x, y)` for each row of each piece.
  template <typename Put>
  void ForEachRow(const Put& put) {
    const FreshPages piece(piece_bytes_ * static_cast<uint64_t>(planes_));
    const FreshPages samples(std::min<uint64_t>(width_, header_.width) *
                             static_cast<uint64_t>(header_.UsedSamples()));
    // Bytes that already lie as they are handed out.
    const bool ready =
        header_.bits == 8 && header_.samples == header_.UsedSamples() && planes_ == 1;
    for (uint64_t top = 0; top < header_.height; top += height_) {
      const uint64_t rows = std::min(height_, header_.height - top);
      for (uint64_t left = 0; left < header_.width; left += width_) {
        const uint64_t count = std::min<uint64_t>(width_, header_.width - left);
        for (int plane = 0; plane < planes_; ++plane) ReadPiece(piece, left, top, rows, plane);
        for (uint64_t row = 0; row < rows; ++row) {
          const uint8_t* from = piece.data() + row * row_bytes_;
          if (!ready) {
            Unpack(from, count, samples.data());
            from = samples.data();
          }
          put(from, static_cast<int>(count), static_cast<int>(left), static_cast<int>(top + row));
        }
      }
    }
  }

 private:
  void ReadPiece(const FreshPages& pieces, uint64_t left, uint64_t top, uint64_t rows, int plane) {
    uint8_t* const piece = pieces.data() + piece_bytes_ * static_cast<uint64_t>(plane);
    const auto x = static_cast<uint32_t>(left);
    const auto y = static_cast<uint32_t>(top);
    const auto sample = static_cast<uint16_t>(plane);
    const auto room = static_cast<tmsize_t>(piece_bytes_);
    tmsize_t got;
    file_.decoding = true;
    if (TIFFIsTiled(tiff_)) {
      got = TIFFReadEncodedTile(tiff_, TIFFComputeTile(tiff_, x, y, 0, sample), piece, room);
    } else if (header_.IsPlanar()) {
      got = TIFFReadEncodedStrip(tiff_, TIFFComputeStrip(tiff_, y, sample), piece, room);
    } else {
      got = TIFFReadScanline(tiff_, piece, y, 0) == 1 ? room : -1;
    }
    file_.decoding = false;
    const bool complete = got >= 0 && static_cast<uint64_t>(got) >= row_bytes_ * rows;
    if (!complete || file_.HasFailed()) file_.Fail(input_);
  }

  /// `row` is the row in the first plane's piece.
  void Unpack(const uint8_t* row, uint64_t count, uint8_t* out) const {
    const auto used = static_cast<uint64_t>(header_.UsedSamples());
    for (uint64_t sample = 0; sample < used; ++sample) {
      const uint64_t plane = planes_ > 1 ? sample : 0;
      const uint64_t first = planes_ > 1 ? 0 : sample;
      for (uint64_t x = 0; x < count; ++x) {
        out[x * used + sample] = Sample(row + plane * piece_bytes_, x * stored_samples_ + first);
      }
    }
  }

  uint8_t Sample(const uint8_t* row, uint64_t index) const {
    if (header_.bits == 8) return row[index];
    if (header_.bits < 8) return LoadIndex(row, header_.bits, static_cast<int64_t>(index));
    uint16_t value;
    std::memcpy(&value, row + 2 * index, sizeof(value));
    return ReduceToByte(value);
  }

  const Input& input_;
  TiffFile& file_;
  TIFF* tiff_;
  const Header& header_;
  uint32_t width_;  ///< of a piece
  uint64_t height_;
  uint64_t stored_samples_;  ///< side by side in a piece
  int planes_;
  uint64_t row_bytes_;
  uint64_t piece_bytes_;
};

/// Colours, or grey with alpha or of 16 bits: samples to pixels.
void ConvertSamples(const Header& header, const uint8_t* samples, int count, uint8_t* pixel) {
  const int used = header.UsedSamples();
  const int colours = header.ColourSamples();
  const uint8_t flip = header.photometric == PHOTOMETRIC_MINISWHITE ? 255 : 0;
  for (int x = 0; x < count; ++x, samples += used) {
    uint8_t* const begin = pixel;
    if (colours == 1) {
      const int repeats = used == 1 ? 1 : 3;
      pixel = std::fill_n(pixel, repeats, static_cast<uint8_t>(samples[0] ^ flip));
    } else if (colours == 3) {
      pixel = std::reverse_copy(samples, samples + 3, pixel);
    } else {
      InkToLight(samples, pixel);
      pixel += 3;
    }
    if (header.alpha == Alpha::kNone) continue;
    const uint8_t alpha = samples[colours];
    if (header.alpha == Alpha::kAssociated) {
      for (uint8_t* c = begin; c < pixel; ++c) *c = DivideByAlpha(*c, alpha);
    }
    *pixel++ = alpha;
  }
}

void NoteConversions(const Header& header, TIFF* tiff, PictureInfo& info) {
  if (header.bits == 16) info.notes.emplace_back(kReducedNote);
  if (header.alpha == Alpha::kAssociated) info.notes.emplace_back(kAssociatedNote);
  if (!header.KeepsProfile()) {
    info.metadata.icc_profile.clear();
    info.notes.emplace_back(header.ColourSamples() == 4 ? kCmykNote : kOtherColoursNote);
  }
  if (header.extra_samples > (header.alpha == Alpha::kNone ? 0 : 1)) {
    info.notes.emplace_back("channels besides colour and alpha were left out");
  }
  if (TIFFLastDirectory(tiff) == 0) info.notes.emplace_back("only the first page was read");
}

void ReadIndices(const Input& input, TiffFile& file, TIFF* tiff, const Header& header,
                 PictureInfo& info) {
  const auto meaning = header.IsGrey() ? IndexRows::Meaning::kGrey : IndexRows::Meaning::kColour;
  const IndexRows indices(input.options, header.bits, ReadPalette(input, tiff, header), meaning,
                          info);
  PieceReader pieces(input, file, tiff, header);
  PixelTarget target(input, info, header.orientation);
  if (!target.WantsPixels()) return;
  pieces.ForEachRow([&](const uint8_t* samples, int count, int x, int y) {
    indices.Put(samples, count, target.Row(y), x);
  });
  target.Finish();
}

void ReadColours(const Input& input, TiffFile& file, TIFF* tiff, const Header& header,
                 PictureInfo& info) {
  info.bit_count = header.alpha != Alpha::kNone ? 32 : header.IsGrey() ? 8 : 24;
  const ptrdiff_t bytes = info.bit_count / 8;
  PieceReader pieces(input, file, tiff, header);
  PixelTarget target(input, info, header.orientation);
  if (!target.WantsPixels()) return;
  pieces.ForEachRow([&](const uint8_t* samples, int count, int x, int y) {
    ConvertSamples(header, samples, count, target.Row(y) + x * bytes);
  });
  target.Finish();
}

/// The library's own conversion, for kinds of colour that we do not know ourselves.
class LibraryConversion {
 public:
  LibraryConversion(const Input& input, TIFF* tiff) {
    char reason[1024] = "";
    if (!TIFFRGBAImageBegin(&image_, tiff, 1, reason)) {
      input.Unsupported(std::string("this kind of TIFF is not read: ") + reason);
    }
    image_.req_orientation = image_.orientation;  // rows as they are stored
  }
  ~LibraryConversion() { TIFFRGBAImageEnd(&image_); }
  LibraryConversion(const LibraryConversion&) = delete;
  LibraryConversion& operator=(const LibraryConversion&) = delete;

  bool HasAlpha() const { return image_.alpha != 0; }
  /// Rows that are best converted together.
  uint32_t BandRows(TIFF* tiff) const {
    constexpr uint32_t kEnough = 64;
    uint32_t rows = 0;
    if (TIFFIsTiled(tiff)) {
      TIFFGetField(tiff, TIFFTAG_TILELENGTH, &rows);
    } else {
      TIFFGetFieldDefaulted(tiff, TIFFTAG_ROWSPERSTRIP, &rows);
    }
    if (rows >= kEnough || rows == 0) return std::min(std::max(rows, 1u), image_.height);
    return std::min(kEnough / rows * rows, image_.height);
  }
  bool Read(uint32_t top, uint32_t rows, uint32_t* pixels) {
    image_.row_offset = static_cast<int>(top);
    return TIFFRGBAImageGet(&image_, pixels, image_.width, rows) != 0;
  }

 private:
  TIFFRGBAImage image_{};
};

void ReadThroughLibrary(const Input& input, TiffFile& file, TIFF* tiff, const Header& header,
                        PictureInfo& info) {
  LibraryConversion conversion(input, tiff);
  const bool alpha = conversion.HasAlpha();
  info.bit_count = alpha ? 32 : 24;
  const uint32_t band_rows = conversion.BandRows(tiff);
  const uint64_t band_bytes = uint64_t{header.width} * band_rows * sizeof(uint32_t);
  input.Plan(2 * band_bytes);  // and about as much inside the library
  PixelTarget target(input, info, header.orientation);
  if (!target.WantsPixels()) return;
  const FreshPages band(band_bytes);
  auto* const pixels = reinterpret_cast<uint32_t*>(band.data());
  for (uint32_t y = 0; y < header.height; ++y) {
    const uint32_t row = y % band_rows;
    if (row == 0) {
      file.decoding = true;
      const bool read = conversion.Read(y, std::min(band_rows, header.height - y), pixels);
      if (!read || file.HasFailed()) file.Fail(input);
      file.decoding = false;
    }
    const uint32_t* from = pixels + uint64_t{row} * header.width;
    uint8_t* pixel = target.Row(static_cast<int>(y));
    for (uint32_t x = 0; x < header.width; ++x, ++from) {
      const unsigned a = TIFFGetA(*from);
      // Colours come multiplied by alpha.
      for (const unsigned level : {TIFFGetB(*from), TIFFGetG(*from), TIFFGetR(*from)}) {
        *pixel++ = alpha ? DivideByAlpha(level, a) : static_cast<uint8_t>(level);
      }
      if (alpha) *pixel++ = static_cast<uint8_t>(a);
    }
  }
  target.Finish();
}

void WriteColours(const Output& output, TIFF* tiff) {
  const PictureView& picture = output.picture;
  const auto set = [tiff](uint32_t tag, unsigned value) { TIFFSetField(tiff, tag, value); };
  set(TIFFTAG_BITSPERSAMPLE, static_cast<unsigned>(std::min(picture.bit_count, 8)));
  if (picture.bit_count >= 24) {
    set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    set(TIFFTAG_SAMPLESPERPIXEL, static_cast<unsigned>(picture.bit_count / 8));
    const uint16_t kind = EXTRASAMPLE_UNASSALPHA;
    if (picture.bit_count == 32) TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &kind);
    return;
  }
  set(TIFFTAG_SAMPLESPERPIXEL, 1);
  if (picture.palette.empty()) {
    set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    return;
  }
  set(TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_PALETTE);
  uint16_t red[256] = {};
  uint16_t green[256] = {};
  uint16_t blue[256] = {};
  size_t i = 0;
  for (const PaletteEntry& entry : PaletteOf(picture)) {
    red[i] = static_cast<uint16_t>(entry.red * 257);
    green[i] = static_cast<uint16_t>(entry.green * 257);
    blue[i++] = static_cast<uint16_t>(entry.blue * 257);
  }
  TIFFSetField(tiff, TIFFTAG_COLORMAP, red, green, blue);
}

void WriteTexts(const Metadata& metadata, const Exif& exif, TIFF* tiff) {
  TIFFSetField(tiff, TIFFTAG_ORIENTATION, exif.Orientation());
  for (const ExifEntry& entry : exif.main) {
    if (std::ranges::find(kTextTags, entry.tag) == std::end(kTextTags)) continue;
    const std::string text(entry.data.begin(), entry.data.end());
    TIFFSetField(tiff, entry.tag, text.c_str());
  }
  if (!metadata.xmp.empty()) {
    TIFFSetField(tiff, TIFFTAG_XMLPACKET, static_cast<uint32_t>(metadata.xmp.size()),
                 metadata.xmp.data());
  }
  if (!metadata.iptc.empty()) {
    TIFFSetField(tiff, TIFFTAG_RICHTIFFIPTC, static_cast<uint32_t>(metadata.iptc.size()),
                 metadata.iptc.data());
  }
  // Positions that are known only when the file is there.
  constexpr uint64_t kLater = 8;
  if (!exif.photo.empty()) TIFFSetField(tiff, TIFFTAG_EXIFIFD, kLater);
  if (!exif.places.empty()) TIFFSetField(tiff, TIFFTAG_GPSIFD, kLater);
}

/// Appends the directories that the library does not write, and points to them.
void AppendDirectories(const Exif& exif, std::vector<uint8_t>& file) {
  if (exif.photo.empty() && exif.places.empty()) return;
  file.resize((file.size() + 1) / 2 * 2);
  const ExifAppendix appendix = SerializeExifForTiff(exif, file.size());
  const ByteReader reader{Bytes(file)};
  const size_t directory = reader.U32(4);
  for (size_t at = directory + 2; at < directory + 2 + size_t{12} * reader.U16(directory);
       at += 12) {
    const uint16_t tag = reader.U16(at);
    const uint32_t position = tag == kExifTag  ? appendix.photo_at
                              : tag == kGpsTag ? appendix.places_at
                                               : 0;
    if (position != 0) std::memcpy(&file[at + 8], &position, sizeof(position));
  }
  file.insert(file.end(), appendix.bytes.begin(), appendix.bytes.end());
}

void WriteHeader(const Output& output, TIFF* tiff) {
  const PictureView& picture = output.picture;
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(picture.width));
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(picture.height));
  TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  WriteColours(output, tiff);
  const bool levels = picture.bit_count >= 8 && picture.palette.empty();
  TIFFSetField(tiff, TIFFTAG_PREDICTOR, levels ? PREDICTOR_HORIZONTAL : PREDICTOR_NONE);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(tiff, 0));
  const Bytes profile = output.Profile(picture.bit_count <= 8 && picture.palette.empty());
  if (!profile.empty()) {
    TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(profile.size()), profile.data());
  }
  if (output.HasResolution()) {
    TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(tiff, TIFFTAG_XRESOLUTION, output.metadata.dpi_x);
    TIFFSetField(tiff, TIFFTAG_YRESOLUTION, output.metadata.dpi_y);
  }
}

}  // namespace

bool IsTiff(Bytes file) {
  if (file.size() < 8) return false;
  const bool little = StartsWith(file, "II");
  if (!little && !StartsWith(file, "MM")) return false;
  constexpr uint16_t kClassic = 42, kBig = 43;
  const uint16_t version = ByteReader(file, little ? ByteOrder::kLittle : ByteOrder::kBig).U16(2);
  return version == kClassic || version == kBig;
}

PictureInfo ReadTiff(const Input& input) {
  TiffFile file;
  file.source = &input.source;
  // All at once where all is wanted: the library takes what is in memory from there.
  if (input.allocate != nullptr) input.source.All();
  input.source.size();
  // Directories need some memory however small the picture must be.
  const int64_t most_bytes = std::max(input.options.limits.max_memory, int64_t{1} << 24);
  const Tiff owner = Open(file, "r", most_bytes);
  TIFF* const tiff = owner.get();
  if (tiff == nullptr || file.palette_lost) {
    file.Fail(input);
  }
  const Header header = ReadHeader(tiff);
  CheckSize(input, header.width, header.height);
  CheckPieces(input, tiff, header);
  PictureInfo info;
  info.format = Format::kTiff;
  info.width = static_cast<int>(header.width);
  info.height = static_cast<int>(header.height);
  info.metadata = ReadMetadata(tiff);
  ReadTexts(input, tiff, header, info);
  NoteConversions(header, tiff, info);
  const bool levels = header.bits <= 8 && header.UsedSamples() == 1;
  if (!ConvertsDirectly(header)) {
    ReadThroughLibrary(input, file, tiff, header, info);
  } else if (levels) {
    ReadIndices(input, file, tiff, header, info);
  } else {
    ReadColours(input, file, tiff, header, info);
  }
  if (file.note[0] != '\0') {
    info.notes.push_back(std::string("the file has faults that cost no pixels: ") + file.note);
  }
  return info;
}

std::vector<uint8_t> EncodeTiff(const Output& output) {
  const PictureView& picture = output.picture;
  TiffFile file;
  Tiff tiff = Open(file, "w", 0);
  if (tiff == nullptr) output.EncoderFailed(file.message);
  const Exif exif = ParseExif(output.metadata.exif).value_or(Exif());
  WriteHeader(output, tiff.get());
  WriteTexts(output.metadata, exif, tiff.get());
  const auto samples = static_cast<size_t>(picture.bit_count / 8);
  std::vector<uint8_t> row(RowBytes(picture.width, picture.bit_count));
  for (int y = 0; y < picture.height; ++y) {
    std::copy_n(picture.Row(y), row.size(), row.begin());
    uint8_t* const end = row.data() + row.size();
    for (uint8_t* out = row.data(); samples >= 3 && out < end; out += samples) {
      std::swap(out[0], out[2]);
    }
    if (TIFFWriteScanline(tiff.get(), row.data(), static_cast<uint32_t>(y)) != 1) {
      output.EncoderFailed(file.message);
    }
  }
  if (TIFFFlush(tiff.get()) != 1) output.EncoderFailed(file.message);
  tiff.reset();
  AppendDirectories(exif, file.written);
  return std::move(file.written);
}

}  // namespace qel::pictures
