#include "pictures/tiff_header.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "pictures/index_rows.h"
#include "pictures/sample_math.h"

namespace qel::pictures {
namespace {

constexpr char kOtherColorsNote[] =
    "colours were converted without their profile, which was left out";
constexpr uint16_t kPointerTags[] = {kXmpTag, kIptcTag, kExifTag, kGpsTag};

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

/// EXIF, XMP and IPTC, which the file has among its directories.
void ReadTexts(const Input& input, TIFF* tiff, const TiffHeader& header, PictureInfo& info) {
  if (TIFFIsBigTIFF(tiff)) {
    info.notes.emplace_back("EXIF, XMP and IPTC of files with 64-bit positions are left out");
    return;
  }
  std::vector<uint16_t> tags(std::begin(kTiffTextTags), std::end(kTiffTextTags));
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

void NoteConversions(const TiffHeader& header, TIFF* tiff, PictureInfo& info) {
  if (header.bits == 16) info.notes.emplace_back(kReducedNote);
  if (header.alpha == TiffAlpha::kAssociated) info.notes.emplace_back(kAssociatedNote);
  if (!header.KeepsProfile() && !header.HasInks()) {
    info.metadata.icc_profile.clear();
    info.notes.emplace_back(kOtherColorsNote);
  }
  if (header.extra_samples > (header.alpha == TiffAlpha::kNone ? 0 : 1)) {
    info.notes.emplace_back("channels besides colour and alpha were left out");
  }
  if (TIFFLastDirectory(tiff) == 0) info.notes.emplace_back("only the first page was read");
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

}  // namespace

bool TiffHeader::ConvertsDirectly() const {
  const bool low = bits == 1 || bits == 2 || bits == 4;
  const bool whole = bits == 8 || (bits == 16 && !HasPalette());
  const bool plain_low = low && ColorSamples() == 1 && UsedSamples() == 1;
  return ColorSamples() > 0 && samples >= UsedSamples() && (whole || plain_low) &&
         !(HasPalette() && alpha != TiffAlpha::kNone) &&
         (sample_format == SAMPLEFORMAT_UINT || sample_format == SAMPLEFORMAT_VOID);
}

TiffHeader ReadTiffHeader(TIFF* tiff) {
  TiffHeader header;
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
    header.alpha = kinds[0] == EXTRASAMPLE_UNASSALPHA   ? TiffAlpha::kStraight
                   : kinds[0] == EXTRASAMPLE_ASSOCALPHA ? TiffAlpha::kAssociated
                                                        : TiffAlpha::kNone;
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

std::vector<PaletteEntry> ReadTiffPalette(const Input& input, TIFF* tiff,
                                          const TiffHeader& header) {
  if (header.IsGray()) {
    std::vector<PaletteEntry> ramp = GrayRamp(header.bits);
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

void CheckTiffPieces(const Input& input, TIFF* tiff, const TiffHeader& header) {
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
      input.Broken("damaged TIFF: tiles of {} x {} pixels are larger than the picture", width,
                   height);
    }
  }
  const uint32_t count = tiled ? TIFFNumberOfTiles(tiff) : TIFFNumberOfStrips(tiff);
  const uint64_t planes = header.IsPlanar() ? header.samples : 1;
  const uint64_t promised = tiled ? CheckedProduct(TIFFTileSize64(tiff), count)
                                  : CheckedProduct(TIFFVStripSize64(tiff, header.height), planes);
  uint64_t held = 0;
  uint64_t largest = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t bytes = std::min<uint64_t>(TIFFGetStrileByteCount(tiff, i), input.source.size());
    held += bytes;
    largest = std::max(largest, bytes);
  }
  const uint64_t row_bytes = tiled ? TIFFTileRowSize64(tiff) : TIFFScanlineSize64(tiff);
  if (promised == 0) input.Broken("damaged TIFF: pieces without pixels");
  input.CheckHolds(promised, BestRatio(header.compression, row_bytes), held);
  input.Plan(largest);
  if (!input.source.CanReadAgain()) input.PlanFile();
}

void ReadTiffMetadata(const Input& input, TIFF* tiff, const TiffHeader& header, PictureInfo& info) {
  info.metadata = ReadMetadata(tiff);
  ReadTexts(input, tiff, header, info);
  NoteConversions(header, tiff, info);
}

}  // namespace qel::pictures
