#include <tiffio.h>

#include <cstdarg>
#include <cstring>
#include <memory>

#include "pictures/codec.h"

namespace qel::pictures {
namespace {

/// A TIFF file in memory, with the errors of its handle.
struct MemoryFile {
  std::vector<uint8_t> written;  ///< only while writing
  Bytes content;                 ///< only while reading
  uint64_t position = 0;
  std::string message;

  uint64_t size() const { return content.data() != nullptr ? content.size() : written.size(); }
};

MemoryFile& FileOf(thandle_t handle) { return *static_cast<MemoryFile*>(handle); }

tmsize_t OnRead(thandle_t handle, void* data, tmsize_t length) {
  MemoryFile& file = FileOf(handle);
  const uint64_t left = file.position < file.size() ? file.size() - file.position : 0;
  const uint64_t count = std::min<uint64_t>(left, static_cast<uint64_t>(length));
  const uint8_t* const bytes =
      file.content.data() != nullptr ? file.content.data() : file.written.data();
  if (count > 0) std::memcpy(data, bytes + file.position, count);
  file.position += count;
  return static_cast<tmsize_t>(count);
}

tmsize_t OnWrite(thandle_t handle, void* data, tmsize_t length) {
  MemoryFile& file = FileOf(handle);
  const uint64_t end = file.position + static_cast<uint64_t>(length);
  try {
    if (end > file.written.size()) file.written.resize(end);
  } catch (const std::bad_alloc&) {
    return 0;
  }
  std::memcpy(file.written.data() + file.position, data, static_cast<size_t>(length));
  file.position = end;
  return length;
}

toff_t OnSeek(thandle_t handle, toff_t offset, int whence) {
  MemoryFile& file = FileOf(handle);
  const uint64_t origin = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? file.position : file.size();
  return file.position = origin + offset;
}

int OnClose(thandle_t) { return 0; }
toff_t OnSize(thandle_t handle) { return FileOf(handle).size(); }

int OnError(TIFF*, void* user, const char*, const char* format, va_list arguments) {
  char text[200];
  std::vsnprintf(text, sizeof(text), format, arguments);
  auto& message = static_cast<MemoryFile*>(user)->message;
  if (message.empty()) message = text;
  return 1;
}
int OnWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct TiffDeleter {
  void operator()(TIFF* tiff) const { TIFFClose(tiff); }
};
using Tiff = std::unique_ptr<TIFF, TiffDeleter>;

/// Opens a file in memory; errors go to the file, not to the process.
Tiff Open(MemoryFile& file, const char* mode) {
  TIFFOpenOptions* const options = TIFFOpenOptionsAlloc();
  if (options == nullptr) throw std::bad_alloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options, &OnError, &file);
  TIFFOpenOptionsSetWarningHandlerExtR(options, &OnWarning, &file);
  TIFF* const tiff = TIFFClientOpenExt("picture", mode, &file, &OnRead, &OnWrite, &OnSeek, &OnClose,
                                       &OnSize, nullptr, nullptr, options);
  TIFFOpenOptionsFree(options);
  return Tiff(tiff);
}

struct Header {
  uint32_t width = 0, height = 0;
  uint16_t depth = 1, samples = 1, photometric = 0, planar = 1, orientation = 1, format = 1;
  uint16_t extra_kind = 0;  ///< meaning of the first extra sample
  bool has_extra = false;
};

Header ReadHeader(TIFF* tiff) {
  Header header;
  TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &header.width);
  TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &header.height);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &header.depth);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &header.samples);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &header.planar);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLEFORMAT, &header.format);
  TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &header.photometric);
  TIFFGetField(tiff, TIFFTAG_ORIENTATION, &header.orientation);
  if (header.orientation < 1 || header.orientation > 8) header.orientation = 1;
  uint16_t extra_count = 0;
  uint16_t* extra = nullptr;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_EXTRASAMPLES, &extra_count, &extra);
  header.has_extra = extra_count > 0;
  if (header.has_extra) header.extra_kind = extra[0];
  return header;
}

Metadata ReadMetadata(TIFF* tiff) {
  Metadata metadata;
  uint32_t length = 0;
  void* profile = nullptr;
  if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &length, &profile) == 1) {
    const auto* const bytes = static_cast<const uint8_t*>(profile);
    metadata.icc_profile.assign(bytes, bytes + length);
  }
  float x = 0, y = 0;
  uint16_t unit = RESUNIT_INCH;
  TIFFGetFieldDefaulted(tiff, TIFFTAG_RESOLUTIONUNIT, &unit);
  if (TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &x) == 1 &&
      TIFFGetField(tiff, TIFFTAG_YRESOLUTION, &y) == 1 && unit != RESUNIT_NONE) {
    const double scale = unit == RESUNIT_CENTIMETER ? 2.54 : 1;
    metadata.dpi_x = x * scale;
    metadata.dpi_y = y * scale;
  }
  return metadata;
}

bool IsGrey(const Header& header) {
  return header.photometric == PHOTOMETRIC_MINISBLACK ||
         header.photometric == PHOTOMETRIC_MINISWHITE;
}

/// Rows that we convert ourselves; everything else goes through the library's own conversion.
bool ReadsDirectly(TIFF* tiff, const Header& header) {
  if (TIFFIsTiled(tiff) || header.format != SAMPLEFORMAT_UINT) return false;
  if (header.planar != PLANARCONFIG_CONTIG) return false;
  if (header.depth != 8 && header.depth != 16) return false;
  const int colours = IsGrey(header) ? 1 : header.photometric == PHOTOMETRIC_RGB ? 3 : 0;
  return colours > 0 && header.samples >= colours && header.samples <= 8;
}

/// One decoded row of samples as pixels.
void ConvertRow(const uint8_t* samples, const Header& header, bool with_alpha, uint8_t* row) {
  const int colours = IsGrey(header) ? 1 : 3;
  const bool inverted = header.photometric == PHOTOMETRIC_MINISWHITE;
  const auto sample = [&](int64_t x, int channel) -> unsigned {
    const int64_t index = x * header.samples + channel;
    if (header.depth == 8) return samples[index];
    uint16_t value;
    std::memcpy(&value, samples + 2 * index, sizeof(value));
    return Reduce16(value);
  };
  for (int64_t x = 0; x < header.width; ++x) {
    if (colours == 1 && !with_alpha) {
      row[x] = static_cast<uint8_t>(inverted ? 255 - sample(x, 0) : sample(x, 0));
      continue;
    }
    uint8_t* const pixel = row + x * (with_alpha ? 4 : 3);
    const unsigned alpha = with_alpha ? sample(x, colours) : 255;
    for (int c = 0; c < 3; ++c) {
      unsigned value = sample(x, colours == 1 ? 0 : 2 - c);
      if (inverted) value = 255 - value;
      if (with_alpha && header.extra_kind == EXTRASAMPLE_ASSOCALPHA) {
        value = alpha == 0 ? 0 : std::min(255u, (value * 255 + alpha / 2) / alpha);
      }
      pixel[c] = static_cast<uint8_t>(value);
    }
    if (with_alpha) pixel[3] = static_cast<uint8_t>(alpha);
  }
}

/// Indices, and grey levels below 8 bits, with their palette.
bool KeepsDepth(const Input& input, const Header& header, TIFF* tiff) {
  if (!input.options.keep_palette_depth || TIFFIsTiled(tiff) || header.samples != 1) return false;
  const bool low = header.depth == 1 || header.depth == 2 || header.depth == 4;
  return (header.photometric == PHOTOMETRIC_PALETTE && (low || header.depth == 8)) ||
         (IsGrey(header) && low);
}

std::vector<PaletteEntry> ReadPalette(TIFF* tiff, const Header& header) {
  const int count = 1 << header.depth;
  if (IsGrey(header)) return GreyPalette(count, header.photometric == PHOTOMETRIC_MINISWHITE);
  uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
  std::vector<PaletteEntry> palette;
  if (TIFFGetField(tiff, TIFFTAG_COLORMAP, &red, &green, &blue) != 1) return palette;
  for (int i = 0; i < count; ++i) {
    palette.push_back({Reduce16(blue[i]), Reduce16(green[i]), Reduce16(red[i]), 255});
  }
  return palette;
}

}  // namespace

bool IsTiff(Bytes file) {
  if (file.size() < 8) return false;
  const bool little = file[0] == 'I' && file[1] == 'I' && (file[2] == 42 || file[2] == 43);
  const bool big = file[0] == 'M' && file[1] == 'M' && (file[3] == 42 || file[3] == 43);
  return little || big;
}

PictureInfo ReadTiff(const Input& input) {
  MemoryFile file;
  file.content = input.file;
  const auto fail = [&] {
    input.Broken("damaged TIFF: " + (file.message.empty() ? "no picture" : file.message));
  };
  const Tiff tiff = Open(file, "rm");
  if (tiff == nullptr) fail();
  const Header header = ReadHeader(tiff.get());
  CheckLimits(input, header.width, header.height, 32);
  PictureInfo info;
  info.format = Format::kTiff;
  info.metadata = ReadMetadata(tiff.get());
  info.width = static_cast<int>(header.width);
  info.height = static_cast<int>(header.height);

  const bool keep = KeepsDepth(input, header, tiff.get());
  const bool direct = ReadsDirectly(tiff.get(), header);
  const int colours = IsGrey(header) ? 1 : 3;
  const bool with_alpha =
      header.has_extra && header.samples > colours && header.extra_kind != EXTRASAMPLE_UNSPECIFIED;
  if (header.depth == 16) info.notes.emplace_back(kReducedNote);
  if (with_alpha && header.extra_kind == EXTRASAMPLE_ASSOCALPHA) {
    info.notes.emplace_back("premultiplied alpha was converted to straight alpha");
  }
  if (keep) {
    info.bit_count = header.depth == 2 ? 4 : header.depth;
    info.palette = ReadPalette(tiff.get(), header);
  } else {
    info.bit_count = with_alpha ? 32 : direct && colours == 1 ? 8 : 24;
  }
  PixelTarget target(input, info, header.orientation);

  if (keep || direct) {
    const tmsize_t line = TIFFScanlineSize(tiff.get());
    const size_t needed = RowBytes(static_cast<int>(header.width), header.depth * header.samples);
    if (line <= 0 || static_cast<uint64_t>(line) < needed) fail();
    std::vector<uint8_t> samples(static_cast<size_t>(line));
    for (uint32_t y = 0; y < header.height; ++y) {
      if (TIFFReadScanline(tiff.get(), samples.data(), y) != 1) fail();
      uint8_t* const row = target.Row(static_cast<int>(y));
      if (!keep) {
        ConvertRow(samples.data(), header, with_alpha, row);
      } else if (header.depth == 2) {
        WidenToFourBits(samples.data(), row, static_cast<int>(header.width));
      } else {
        std::memcpy(row, samples.data(), needed);
      }
    }
  } else {
    if (!IsGrey(header) && header.photometric != PHOTOMETRIC_RGB &&
        header.photometric != PHOTOMETRIC_PALETTE && header.photometric != PHOTOMETRIC_YCBCR) {
      info.notes.emplace_back("colours were converted without a profile");
      info.metadata.icc_profile.clear();
    }
    std::vector<uint32_t> pixels(size_t{header.width} * header.height);
    // Rows come as stored: the orientation is applied once, by the target.
    TIFFSetField(tiff.get(), TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
    if (TIFFReadRGBAImageOriented(tiff.get(), header.width, header.height, pixels.data(),
                                  ORIENTATION_TOPLEFT, 1) != 1) {
      fail();
    }
    for (uint32_t y = 0; y < header.height; ++y) {
      const uint32_t* const from = pixels.data() + size_t{y} * header.width;
      uint8_t* const row = target.Row(static_cast<int>(y));
      for (uint32_t x = 0; x < header.width; ++x) {
        const unsigned alpha = TIFFGetA(from[x]);
        // The library multiplies colours by alpha.
        const auto straight = [&](unsigned value) {
          if (!with_alpha || alpha == 0) return value;
          return std::min(255u, (value * 255 + alpha / 2) / alpha);
        };
        uint8_t* const pixel = row + size_t{x} * (with_alpha ? 4 : 3);
        pixel[0] = static_cast<uint8_t>(straight(TIFFGetB(from[x])));
        pixel[1] = static_cast<uint8_t>(straight(TIFFGetG(from[x])));
        pixel[2] = static_cast<uint8_t>(straight(TIFFGetR(from[x])));
        if (with_alpha) pixel[3] = static_cast<uint8_t>(alpha);
      }
    }
  }
  target.Finish();
  return info;
}

std::vector<uint8_t> EncodeTiff(const Output& output) {
  const PictureView& picture = output.picture;
  MemoryFile file;
  Tiff tiff = Open(file, "w");
  if (tiff == nullptr) output.Fail("encoding as TIFF failed: " + file.message);
  TIFF* const t = tiff.get();
  const bool colour = picture.bit_count >= 24;
  const uint16_t samples = static_cast<uint16_t>(colour ? picture.bit_count / 8 : 1);
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(picture.width));
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(picture.height));
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, static_cast<uint16_t>(std::min(picture.bit_count, 8)));
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, samples);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_LZW);
  TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  const uint16_t photometric = colour                     ? PHOTOMETRIC_RGB
                               : !picture.palette.empty() ? PHOTOMETRIC_PALETTE
                                                          : PHOTOMETRIC_MINISBLACK;
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, photometric);
  if (samples == 4) {
    const uint16_t kind = EXTRASAMPLE_UNASSALPHA;
    TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &kind);
  }
  uint16_t map[3][256] = {};
  for (size_t i = 0; i < std::min<size_t>(picture.palette.size(), 256); ++i) {
    map[0][i] = static_cast<uint16_t>(picture.palette[i].red * 257);
    map[1][i] = static_cast<uint16_t>(picture.palette[i].green * 257);
    map[2][i] = static_cast<uint16_t>(picture.palette[i].blue * 257);
  }
  if (photometric == PHOTOMETRIC_PALETTE) {
    TIFFSetField(t, TIFFTAG_COLORMAP, map[0], map[1], map[2]);
  }
  const Metadata& metadata = output.metadata;
  if (!metadata.icc_profile.empty()) {
    TIFFSetField(t, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(metadata.icc_profile.size()),
                 metadata.icc_profile.data());
  }
  if (metadata.dpi_x > 0 && metadata.dpi_y > 0) {
    TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    TIFFSetField(t, TIFFTAG_XRESOLUTION, metadata.dpi_x);
    TIFFSetField(t, TIFFTAG_YRESOLUTION, metadata.dpi_y);
  }
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
  std::vector<uint8_t> row(RowBytes(picture.width, picture.bit_count));
  for (int y = 0; y < picture.height; ++y) {
    std::memcpy(row.data(), picture.Row(y), row.size());
    for (size_t i = 0; colour && i + 2 < row.size(); i += samples) std::swap(row[i], row[i + 2]);
    if (TIFFWriteScanline(t, row.data(), static_cast<uint32_t>(y)) != 1) {
      output.Fail("encoding as TIFF failed: " + file.message);
    }
  }
  if (TIFFFlush(t) != 1) output.Fail("encoding as TIFF failed: " + file.message);
  tiff.reset();
  return std::move(file.written);
}

}  // namespace qel::pictures
