#ifndef QEL_TESTS_PICTURES_FOREIGN_WRITERS_H_
#define QEL_TESTS_PICTURES_FOREIGN_WRITERS_H_

#include <cstdio>
// After <cstdio>, whose types these headers use.
#include <jpeglib.h>
#include <tiffio.h>

#include <array>
#include <functional>
#include <string>

#include "tests/pictures/picture_support.h"

namespace qel::test {

// Files that our own writers never make.

/// A JPEG file whose rows are all the same; `describe` may change what the library assumes.
inline Bytes MakeJpeg(J_COLOR_SPACE space, int samples, Bytes row, int height,
                      const std::function<void(jpeg_compress_struct&)>& describe,
                      const Bytes& profile = {}) {
  jpeg_compress_struct jpeg;
  jpeg_error_mgr errors;
  jpeg.err = jpeg_std_error(&errors);
  jpeg_create_compress(&jpeg);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&jpeg, &bytes, &size);
  jpeg.image_width = static_cast<JDIMENSION>(row.size() / static_cast<size_t>(samples));
  jpeg.image_height = static_cast<JDIMENSION>(height);
  jpeg.input_components = samples;
  jpeg.in_color_space = space;
  jpeg_set_defaults(&jpeg);
  describe(jpeg);
  jpeg_start_compress(&jpeg, TRUE);
  if (!profile.empty()) {
    jpeg_write_icc_profile(&jpeg, profile.data(), static_cast<unsigned>(profile.size()));
  }
  JSAMPROW pointer = row.data();
  for (int y = 0; y < height; ++y) jpeg_write_scanlines(&jpeg, &pointer, 1);
  jpeg_finish_compress(&jpeg);
  jpeg_destroy_compress(&jpeg);
  Bytes file(bytes, bytes + size);
  free(bytes);
  return file;
}

/// 8 x 8 pixels of cyan, magenta, yellow and black ink, which files with an Adobe marker store
/// inverted.
inline Bytes InkJpeg(const std::array<uint8_t, 4>& inks, bool adobe, const Bytes& profile = {}) {
  Bytes row;
  for (size_t i = 0; i < 32; ++i) {
    row.push_back(static_cast<uint8_t>(adobe ? 255 - inks[i % 4] : inks[i % 4]));
  }
  return MakeJpeg(
      JCS_CMYK, 4, row, 8,
      [&](jpeg_compress_struct& jpeg) {
        jpeg_set_quality(&jpeg, 100, TRUE);
        jpeg.write_Adobe_marker = adobe;
      },
      profile);
}

inline Bytes TiffFileOf(const std::function<void(TIFF*)>& fill) {
  const TemporaryFolder folder;
  const std::string path = folder / "picture";
  TIFF* const tiff = TIFFOpen(path.c_str(), "w");
  fill(tiff);
  TIFFClose(tiff);
  return Joined(ReadFile(path));
}

inline void DescribeTiff(TIFF* tiff, uint32_t width, uint32_t height, int samples, int bits,
                         int photometric, int compression) {
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, photometric);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, compression);
}

/// 16 x 16 equal pixels in one strip; `describe` may say more.
inline Bytes FlatTiff(int photometric, int compression, const Bytes& pixel,
                      const std::function<void(TIFF*)>& describe) {
  return TiffFileOf([&](TIFF* tiff) {
    DescribeTiff(tiff, 16, 16, static_cast<int>(pixel.size()), 8, photometric, compression);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 16);
    if (compression == COMPRESSION_JPEG) {
      TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    }
    describe(tiff);
    Bytes row;
    for (int x = 0; x < 16; ++x) row.insert(row.end(), pixel.begin(), pixel.end());
    for (uint32_t y = 0; y < 16; ++y) TIFFWriteScanline(tiff, row.data(), y);
  });
}

struct BmpKind {
  int width, height, bits;
  uint32_t compression = 0;
  std::vector<uint32_t> masks = {};
  std::vector<uint32_t> palette = {};
  uint32_t header = 40;
};

inline Bytes MakeBmp(const BmpKind& kind, const Bytes& pixels) {
  Bytes file{'B', 'M'};
  const bool core = kind.header == 12;
  const size_t extra =
      core ? 3 * kind.palette.size() : 4 * (kind.masks.size() + kind.palette.size());
  Put(file, 0, 4);
  Put(file, 0, 4);
  Put(file, static_cast<uint32_t>(14 + kind.header + extra), 4);
  Put(file, kind.header, 4);
  Put(file, static_cast<uint32_t>(kind.width), core ? 2 : 4);
  Put(file, static_cast<uint32_t>(kind.height), core ? 2 : 4);
  Put(file, 1, 2);
  Put(file, static_cast<uint32_t>(kind.bits), 2);
  if (!core) {
    for (const uint32_t value : {kind.compression, 0u, 0u, 0u, uint32_t(kind.palette.size()), 0u}) {
      Put(file, value, 4);
    }
  }
  for (const uint32_t mask : kind.masks) Put(file, mask, 4);
  for (const uint32_t entry : kind.palette) Put(file, entry, core ? 3 : 4);
  return Joined({file.begin(), file.end()}, pixels);
}

}  // namespace qel::test

#endif  // QEL_TESTS_PICTURES_FOREIGN_WRITERS_H_
