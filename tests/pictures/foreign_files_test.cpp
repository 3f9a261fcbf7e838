// Files that our own writers never make: varieties of other programs.

#include <gif_lib.h>
#include <png.h>

#include "tests/pictures/foreign_writers.h"
#include "tests/pictures/picture_support.h"

namespace qel::test {
namespace {

using pictures::PaletteEntry;

int Scaled(int value, int largest) { return (value * 255 * 2 + largest) / (2 * largest); }

// PNG.

struct PngKind {
  int depth, color;
  bool interlaced = false;
  bool transparent = false;  ///< sample 1, or palette entry 1 with alpha 40
};

Bytes MakePng(const PngKind& kind, int width, int height, const Bytes& rows) {
  Bytes file;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_set_write_fn(
      png, &file,
      [](png_structp session, png_bytep data, size_t count) {
        auto* const out = static_cast<Bytes*>(png_get_io_ptr(session));
        out->insert(out->end(), data, data + count);
      },
      [](png_structp) {});
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height),
               kind.depth, kind.color, kind.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_color palette[256];
  for (int i = 0; i < 256; ++i) palette[i] = {png_byte(i), png_byte(255 - i), png_byte(i * 3)};
  if (kind.color == PNG_COLOR_TYPE_PALETTE) png_set_PLTE(png, info, palette, 1 << kind.depth);
  const png_byte alpha[] = {255, 40};
  const png_color_16 key{1, 1, 1, 1, 1};
  if (kind.transparent) png_set_tRNS(png, info, alpha, 2, &key);
  png_write_info(png, info);
  const size_t row_bytes = png_get_rowbytes(png, info);
  std::vector<png_bytep> pointers;
  Bytes copy = rows;
  for (int y = 0; y < height; ++y) pointers.push_back(copy.data() + row_bytes * size_t(y));
  png_write_image(png, pointers.data());
  png_write_end(png, info);
  png_destroy_write_struct(&png, &info);
  return file;
}

TEST(ForeignPng, EveryDepthAndColorTypeReadsAlikeInterlacedOrNot) {
  constexpr int kWidth = 19, kHeight = 11;
  constexpr PngKind kKinds[] = {
      {1, 0}, {2, 0}, {4, 0}, {8, 0}, {16, 0}, {8, 2}, {16, 2}, {1, 3},
      {2, 3}, {4, 3}, {8, 3}, {8, 4}, {16, 4}, {8, 6}, {16, 6},
  };
  Rng rng(5);
  for (const PngKind& plain : kKinds) {
    const int channels = plain.color == 2 ? 3 : plain.color == 4 ? 2 : plain.color == 6 ? 4 : 1;
    const size_t row_bytes = static_cast<size_t>(kWidth * channels * plain.depth + 7) / 8;
    Bytes rows(row_bytes * kHeight);
    for (uint8_t& byte : rows) byte = static_cast<uint8_t>(rng.Next());
    const int largest = (1 << std::min(plain.depth, 8)) - 1;
    const auto stored = [&](int x, int y, int channel) -> int {
      const int index = x * channels + channel;
      const uint8_t* const row = rows.data() + row_bytes * size_t(y);
      if (plain.depth == 16) return row[2 * index] << 8 | row[2 * index + 1];
      return row[index * plain.depth / 8] >> (8 - plain.depth - index * plain.depth % 8) & largest;
    };
    for (int variant = 0; variant < 4; ++variant) {
      PngKind kind = plain;
      kind.interlaced = variant & 1;
      kind.transparent = (variant & 2) && plain.color < 4;
      SCOPED_TRACE(testing::Message()
                   << kind.depth << " bits, type " << kind.color << " variant " << variant);
      const Bytes file = MakePng(kind, kWidth, kHeight, rows);
      const auto expected = [&](int x, int y) -> Color {
        const int first = stored(x, y, 0);
        if (kind.color == 3)
          return {first * 3 & 255, 255 - first, first, kind.transparent && first == 1 ? 40 : 255};
        const int full = (1 << kind.depth) - 1;
        const auto level = [&](int channel) { return Scaled(stored(x, y, channel), full); };
        if (kind.color == 0) {
          return {level(0), level(0), level(0), kind.transparent && first == 1 ? 0 : 255};
        }
        if (kind.color == 4) return {level(0), level(0), level(0), level(1)};
        const bool keyed =
            kind.transparent && first == 1 && stored(x, y, 1) == 1 && stored(x, y, 2) == 1;
        return {level(2), level(1), level(0), kind.color == 6 ? level(3) : keyed ? 0 : 255};
      };
      const Decoded decoded = Decode(file);
      EXPECT_EQ(decoded.HasNote("16 bits"), kind.depth == 16);
      const bool alpha = kind.transparent || kind.color >= 4;
      EXPECT_EQ(decoded.info.bit_count, alpha ? 32 : kind.color == 0 ? 8 : 24);
      const Decoded kept = Decode(file, kKeepDepth);
      const bool keeps = kind.color == 3 || (kind.color == 0 && kind.depth < 8 && !alpha);
      EXPECT_EQ(kept.info.bit_count, !keeps            ? decoded.info.bit_count
                                     : kind.depth == 2 ? 4
                                                       : kind.depth);
      EXPECT_EQ(kept.HasNote("alpha"), kind.color == 3 && kind.transparent);
      for (int y = 0; y < kHeight; ++y) {
        for (int x = 0; x < kWidth; ++x) {
          Color color = expected(x, y);
          ASSERT_EQ(color, decoded.pixels.At(x, y)) << x << ", " << y;
          if (kind.color == 3) color.a = 255;
          ASSERT_EQ(color, kept.pixels.At(x, y)) << x << ", " << y;
        }
      }
    }
  }
}

TEST(ForeignPng, FramesAndProfilesThatAreLostAreNoted) {
  Bytes file = Encode(Slope(5, 4, 24), "png");
  const auto insert = [&](const Bytes& chunk) {
    constexpr ptrdiff_t kBehindHeader = 33;
    file.insert(file.begin() + kBehindHeader, chunk.begin(), chunk.end());
  };
  EXPECT_TRUE(Decode(file).info.notes.empty());
  insert(PngChunk("acTL", {0, 0, 0, 3, 0, 0, 0, 0}));
  EXPECT_TRUE(Decode(file).HasNote("3 frames"));
  insert(PngChunk("iCCP", {'x', 0, 0, 1, 2, 3}));
  EXPECT_TRUE(Decode(file).HasNote("profile is damaged"));
}

// GIF.

/// A GIF file of frames with palettes of their own, a square whose pixel (x, y) is 16 x + y.
Bytes MakeGif(int canvas, int left, int side, bool interlaced, int transparent, int frames) {
  Bytes file;
  const auto append = [](GifFileType* gif, const GifByteType* data, int size) {
    auto& bytes = *static_cast<Bytes*>(gif->UserData);
    bytes.insert(bytes.end(), data, data + size);
    return size;
  };
  GifFileType* const gif = EGifOpen(&file, append, nullptr);
  GifColorType colors[256];
  for (int i = 0; i < 256; ++i) colors[i] = {GifByteType(i), GifByteType(255 - i), 7};
  ColorMapObject* const palette = GifMakeMapObject(256, colors);
  EGifPutScreenDesc(gif, canvas, canvas, 8, 0, nullptr);
  for (int frame = 0; frame < frames; ++frame) {
    const GraphicsControlBlock control{0, false, 0, transparent};
    GifByteType block[4];
    EGifPutExtension(gif, GRAPHICS_EXT_FUNC_CODE,
                     static_cast<int>(EGifGCBToExtension(&control, block)), block);
    EGifPutImageDesc(gif, left, left, side, side, interlaced, palette);
    const std::vector<std::pair<int, int>> passes = {{0, 8}, {4, 8}, {2, 4}, {1, 2}},
                                           once = {{0, 1}};
    for (const auto& [first, step] : interlaced ? passes : once) {
      for (int y = first; y < side; y += step) {
        Bytes row;
        for (int x = 0; x < side; ++x) row.push_back(static_cast<uint8_t>(x * 16 + y));
        EGifPutLine(gif, row.data(), side);
      }
    }
  }
  EGifCloseFile(gif, nullptr);
  GifFreeMapObject(palette);
  return file;
}

TEST(ForeignGif, FirstFramesReadInTheirPlace) {
  for (const bool interlaced : {false, true}) {
    for (const int transparent : {-1, 35}) {
      for (const int left : {0, 3}) {
        const Bytes file = MakeGif(13 + left, left, 13, interlaced, transparent, 1);
        const Decoded decoded = Decode(file);
        EXPECT_TRUE(decoded.info.notes.empty());
        EXPECT_EQ(decoded.info.bit_count, transparent >= 0 || left > 0 ? 32 : 24);
        ASSERT_EQ(decoded.info.width, 13 + left);
        for (int y = 0; y < 13; ++y) {
          for (int x = 0; x < 13; ++x) {
            const int index = x * 16 + y;
            const Color color{7, 255 - index, index, index == transparent ? 0 : 255};
            ASSERT_EQ(decoded.pixels.At(left + x, left + y), color) << x << ", " << y;
          }
        }
        if (left > 0) {
          EXPECT_EQ(decoded.pixels.At(0, 0).a, 0);
        }
        EXPECT_EQ(Decode(file, kKeepDepth).info.bit_count, left > 0 ? 32 : 8);
      }
    }
  }
  EXPECT_TRUE(Decode(MakeGif(9, 0, 9, false, -1, 3)).HasNote("first frame"));
  Bytes half = MakeGif(9, 0, 9, false, -1, 1);
  half.erase(half.end() - 60, half.end());
  EXPECT_EQ(KindOf([&] { Decode(half); }), Kind::kBroken);
  EXPECT_EQ(KindOf([] { Encode(Slope(4, 4, 24), "gif"); }), Kind::kUnknownFormat);
}

// TIFF.

struct TiffKind {
  int photometric, bits, samples;
  int extra = -1;
  bool planar = false, tiled = false;
  int compression = COMPRESSION_NONE;
};

constexpr int kTiffWidth = 37, kTiffHeight = 21;

int TiffSample(const TiffKind& kind, int x, int y, int sample) {
  const int level = (x * 7 + y * 11 + sample * 50) & 255;
  return kind.bits == 16 ? level * 257 ^ (x & 3) : level & ((1 << kind.bits) - 1);
}

/// Writes `samples` samples per pixel from plane `plane` on, cut into strips of 5 rows or tiles.
void WriteTiffPlane(TIFF* tiff, const TiffKind& kind, int plane, int samples) {
  const int piece_width = kind.tiled ? 16 : kTiffWidth;
  const int piece_height = kind.tiled ? 16 : 5;
  const auto row_bytes = static_cast<size_t>((piece_width * samples * kind.bits + 7) / 8);
  for (int top = 0; top < kTiffHeight; top += piece_height) {
    for (int left = 0; left < kTiffWidth; left += piece_width) {
      const int rows = kind.tiled ? piece_height : std::min(piece_height, kTiffHeight - top);
      Bytes piece(row_bytes * size_t(rows));
      for (int y = 0; y < rows; ++y) {
        for (int i = 0; i < piece_width * samples; ++i) {
          const int value = TiffSample(kind, left + i / samples, top + y, plane + i % samples);
          uint8_t* const row = piece.data() + row_bytes * size_t(y);
          if (kind.bits == 16) {
            reinterpret_cast<uint16_t*>(row)[i] = static_cast<uint16_t>(value);
          } else {
            row[i * kind.bits / 8] = static_cast<uint8_t>(
                row[i * kind.bits / 8] | value << (8 - kind.bits - i * kind.bits % 8));
          }
        }
      }
      const auto sample = static_cast<uint16_t>(plane);
      const auto x = static_cast<uint32_t>(left), y = static_cast<uint32_t>(top);
      const auto size = static_cast<tmsize_t>(piece.size());
      if (kind.tiled) {
        TIFFWriteEncodedTile(tiff, TIFFComputeTile(tiff, x, y, 0, sample), piece.data(), size);
      } else {
        TIFFWriteEncodedStrip(tiff, TIFFComputeStrip(tiff, y, sample), piece.data(), size);
      }
    }
  }
}

Bytes MakeTiff(const TiffKind& kind) {
  return TiffFileOf([&](TIFF* tiff) {
    DescribeTiff(tiff, kTiffWidth, kTiffHeight, kind.samples, kind.bits, kind.photometric,
                 kind.compression);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG,
                 kind.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    const auto extra = static_cast<uint16_t>(kind.extra);
    if (kind.extra >= 0) TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &extra);
    if (kind.tiled) {
      TIFFSetField(tiff, TIFFTAG_TILEWIDTH, 16);
      TIFFSetField(tiff, TIFFTAG_TILELENGTH, 16);
    } else {
      TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, 5);
    }
    std::vector<uint16_t> map(256);
    for (int i = 0; i < 256; ++i) map[size_t(i)] = static_cast<uint16_t>((255 - i) * 257);
    if (kind.photometric == PHOTOMETRIC_PALETTE) {
      TIFFSetField(tiff, TIFFTAG_COLORMAP, map.data(), map.data(), map.data());
    }
    for (int plane = 0; plane < (kind.planar ? kind.samples : 1); ++plane) {
      WriteTiffPlane(tiff, kind, plane, kind.planar ? 1 : kind.samples);
    }
  });
}

Color TiffColor(const TiffKind& kind, int x, int y) {
  const int largest = (1 << kind.bits) - 1;
  const auto level = [&](int sample) { return Scaled(TiffSample(kind, x, y, sample), largest); };
  Color color;
  int colors = 1;
  if (kind.photometric == PHOTOMETRIC_RGB) {
    colors = 3;
    color = {level(2), level(1), level(0)};
  } else if (kind.photometric == PHOTOMETRIC_SEPARATED) {
    colors = 4;
    const auto light = [&](int ink) {
      return Scaled((255 - level(ink)) * (255 - level(3)), 255 * 255);
    };
    color = {light(2), light(1), light(0)};
  } else {
    int gray = kind.photometric == PHOTOMETRIC_PALETTE ? 255 - TiffSample(kind, x, y, 0) : level(0);
    if (kind.photometric == PHOTOMETRIC_MINISWHITE) gray = 255 - gray;
    color = {gray, gray, gray};
  }
  if (kind.extra == EXTRASAMPLE_UNASSALPHA) color.a = level(colors);
  if (kind.extra == EXTRASAMPLE_ASSOCALPHA) {
    color.a = level(colors);
    for (int* c : {&color.b, &color.g, &color.r}) {
      *c = color.a == 0 ? 0 : std::min(255, Scaled(*c, color.a));
    }
  }
  return color;
}

TEST(ForeignTiff, EveryArrangementOfSamplesReadsAlike) {
  constexpr TiffKind kKinds[] = {{PHOTOMETRIC_MINISBLACK, 1, 1},
                                 {PHOTOMETRIC_MINISWHITE, 1, 1},
                                 {PHOTOMETRIC_MINISBLACK, 2, 1},
                                 {PHOTOMETRIC_MINISWHITE, 4, 1},
                                 {PHOTOMETRIC_MINISWHITE, 8, 1},
                                 {PHOTOMETRIC_MINISBLACK, 16, 1},
                                 {PHOTOMETRIC_MINISBLACK, 8, 2, EXTRASAMPLE_UNASSALPHA},
                                 {PHOTOMETRIC_MINISWHITE, 16, 2, EXTRASAMPLE_UNASSALPHA},
                                 {PHOTOMETRIC_RGB, 8, 3},
                                 {PHOTOMETRIC_RGB, 16, 3},
                                 {PHOTOMETRIC_RGB, 8, 4, EXTRASAMPLE_UNASSALPHA},
                                 {PHOTOMETRIC_RGB, 8, 4, EXTRASAMPLE_ASSOCALPHA},
                                 {PHOTOMETRIC_RGB, 16, 4, EXTRASAMPLE_UNASSALPHA},
                                 {PHOTOMETRIC_RGB, 8, 4, EXTRASAMPLE_UNSPECIFIED},
                                 {PHOTOMETRIC_PALETTE, 2, 1},
                                 {PHOTOMETRIC_PALETTE, 4, 1},
                                 {PHOTOMETRIC_PALETTE, 8, 1},
                                 {PHOTOMETRIC_SEPARATED, 8, 4}};
  for (const TiffKind& plain : kKinds) {
    for (int variant = 0; variant < 8; ++variant) {
      TiffKind kind = plain;
      kind.planar = variant & 1;
      kind.tiled = variant & 2;
      kind.compression = variant & 4 ? COMPRESSION_ADOBE_DEFLATE : COMPRESSION_NONE;
      SCOPED_TRACE(testing::Message()
                   << "photometric " << kind.photometric << ", " << kind.bits << " bits, "
                   << kind.samples << " samples, extra " << kind.extra << ", variant " << variant);
      const Bytes file = MakeTiff(kind);
      const Decoded decoded = Decode(file);
      const Decoded kept = Decode(file, kKeepDepth, true);
      EXPECT_EQ(decoded.HasNote("16 bits"), kind.bits == 16);
      EXPECT_EQ(decoded.HasNote("divided"), kind.extra == EXTRASAMPLE_ASSOCALPHA);
      EXPECT_EQ(decoded.HasNote("left out"),
                kind.extra == EXTRASAMPLE_UNSPECIFIED || kind.photometric == PHOTOMETRIC_SEPARATED);
      EXPECT_EQ(decoded.info.HasAlpha(), kind.extra > 0);
      if (kind.bits < 8) {
        EXPECT_EQ(kept.info.bit_count, kind.bits == 2 ? 4 : kind.bits);
      }
      for (int y = 0; y < kTiffHeight; ++y) {
        for (int x = 0; x < kTiffWidth; ++x) {
          ASSERT_EQ(TiffColor(kind, x, y), decoded.pixels.At(x, y)) << x << ", " << y;
          ASSERT_EQ(TiffColor(kind, x, y), kept.pixels.At(x, y)) << x << ", " << y;
        }
      }
    }
  }
}

TEST(ForeignTiff, JpegInsideAndRareColorsGoThroughTheLibrary) {
  const auto flat = [](int photometric, int compression, const Bytes& pixel) {
    return FlatTiff(photometric, compression, pixel, [](TIFF* tiff) {
      TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 100.0);
      TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 50.0);
      TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_CENTIMETER);
    });
  };
  const Decoded jpeg = Decode(flat(PHOTOMETRIC_YCBCR, COMPRESSION_JPEG, {200, 100, 50}));
  EXPECT_TRUE(Near(jpeg.pixels.At(7, 7), {50, 100, 200}, 4)) << jpeg.pixels.At(7, 7);
  EXPECT_NEAR(jpeg.info.metadata.dpi_x, 254, 0.01);
  EXPECT_NEAR(jpeg.info.metadata.dpi_y, 127, 0.01);
  const Decoded lab = Decode(flat(PHOTOMETRIC_CIELAB, COMPRESSION_NONE, {128, 0, 0}));
  EXPECT_TRUE(Near(lab.pixels.At(7, 7), {119, 119, 119}, 16)) << lab.pixels.At(7, 7);
  EXPECT_TRUE(lab.HasNote("converted"));
}

// JPEG.

TEST(ForeignJpeg, InksAreConvertedWithOrWithoutTheAdobeMarker) {
  for (const bool adobe : {false, true}) {
    // Red light 0, green 155, blue 255, paper 80 %.
    const Decoded decoded = Decode(InkJpeg({255, 100, 0, 51}, adobe));
    EXPECT_TRUE(Near(decoded.pixels.At(3, 3), {204, 124, 0}, 3)) << decoded.pixels.At(3, 3);
    EXPECT_TRUE(decoded.HasNote("CMYK"));
  }
}

TEST(ForeignJpeg, IsDecodedSmallerAsFarAsThatIsAllowed) {
  const Pixels slope = Slope(50, 19, 24);
  const Bytes file = Encode(slope, "jpg", {}, {.jpeg_quality = 100});
  for (const auto& [most, shrunk] : {std::pair{0, 1}, {1, 1}, {3, 2}, {4, 4}, {50, 8}}) {
    const Decoded decoded = Decode(file, {.most_shrunk = most});
    ASSERT_EQ(decoded.info.width, (50 + shrunk - 1) / shrunk);
    ASSERT_EQ(decoded.info.height, (19 + shrunk - 1) / shrunk);
    // A slope's mean is what stands in the middle.
    const int x = 16 / shrunk, y = 8 / shrunk, middle = (shrunk - 1) / 2;
    EXPECT_TRUE(Near(decoded.pixels.At(x, y), slope.At(16 + middle, 8 + middle), 12))
        << most << ": " << decoded.pixels.At(x, y);
  }
  EXPECT_EQ(Decode(Encode(slope, "png"), {.most_shrunk = 8}).info.width, 50);
}

// BMP.

struct BmpCase {
  const char* name;
  BmpKind kind;
  Bytes pixels;
  std::vector<Color> expected;  ///< row by row from the top
};

TEST(ForeignBmp, VarietiesReadAsStated) {
  const Color blue{255, 0, 0}, green{0, 255, 0}, red{0, 0, 255}, black{};
  const std::vector<uint32_t> palette{0x000000, 0xFF0000, 0x00FF00, 0x0000FF};
  const BmpCase cases[] = {
      {"OS/2 core header", {2, 1, 8, 0, {}, palette, 12}, {1, 3, 0, 0}, {red, blue}},
      {"two bits", {5, 1, 2, 0, {}, palette}, {0x1B, 0x40, 0, 0}, {black, red, green, blue, red}},
      {"index past the palette", {2, 1, 4, 0, {}, palette}, {0x2F, 0, 0, 0}, {green, black}},
      {"top row first", {1, -2, 24}, {1, 2, 3, 0, 4, 5, 6, 0}, {{1, 2, 3}, {4, 5, 6}}},
      {"last padding missing", {1, 2, 24}, {1, 2, 3, 0, 4, 5, 6}, {{4, 5, 6}, {1, 2, 3}}},
      {"15 bits", {2, 1, 16}, {0x1F, 0x00, 0x10, 0x7E}, {blue, {132, 132, 255}}},
      {"5-6-5", {2, 1, 16, 3, {0xF800, 0x7E0, 0x1F}}, {0xE0, 0x07, 0, 0x80}, {green, {0, 0, 132}}},
      {"32 bits without alpha", {1, 1, 32}, {1, 2, 3, 0}, {{1, 2, 3}}},
      {"32 bits with alpha", {2, 1, 32}, {1, 2, 3, 9, 4, 5, 6, 0}, {{1, 2, 3, 9}, {4, 5, 6, 0}}},
      {"masks in another order",
       {1, 1, 32, 6, {0xFF, 0xFF00, 0xFF0000, 0xF0000000}},
       {1, 2, 3, 0x80},
       {{3, 2, 1, 136}}},
      {"ten bits", {1, 1, 32, 3, {0x3FF00000, 0xFFC00, 0x3FF}}, {0xFF, 3, 0, 0}, {{255, 0, 0}}},
      {"a run longer than its row", {4, 4, 8, 1, {}, palette}, {5, 1, 0, 1}, {}},
      {"RLE8",
       {4, 3, 8, 1, {}, palette},
       {3, 1, 1, 2, 0, 0, 0, 3, 3, 2, 1, 0, 0, 2, 0, 1, 0, 1},
       {black, black, black, black, blue, green, red, black, red, red, red, green}},
      {"RLE8 move over rows",
       {3, 4, 8, 1, {}, palette},
       {1, 1, 0, 2, 1, 2, 1, 3, 0, 0, 1, 2, 0, 1},
       {green, black, black, black, black, blue, black, black, black, red, black, black}},
      {"RLE4",
       {5, 2, 4, 2, {}, palette},
       {5, 0x12, 0, 0, 0, 5, 0x12, 0x31, 0x20, 0, 0, 1},
       {red, green, blue, red, green, red, green, red, green, red}},
  };
  for (const BmpCase& each : cases) {
    SCOPED_TRACE(each.name);
    const Bytes file = MakeBmp(each.kind, each.pixels);
    if (each.expected.empty()) {
      EXPECT_EQ(KindOf([&] { Decode(file); }), Kind::kBroken);
      continue;
    }
    for (const bool keep : {false, true}) {
      const Decoded decoded = Decode(file, keep ? kKeepDepth : pictures::ReadOptions{});
      for (size_t i = 0; i < each.expected.size(); ++i) {
        const int x = static_cast<int>(i) % each.kind.width,
                  y = static_cast<int>(i) / each.kind.width;
        EXPECT_EQ(each.expected[i], decoded.pixels.At(x, y)) << x << ", " << y;
      }
    }
  }
  EXPECT_EQ(KindOf([] { Decode(MakeBmp({8, 8, 24, 4}, Bytes(9000))); }), Kind::kUnsupported);
  EXPECT_EQ(KindOf([] { Decode(MakeBmp({8, 8, 7}, Bytes(9000))); }), Kind::kUnsupported);
}

// PNM.

TEST(ForeignPnm, TextBinaryAndEveryMaximum) {
  struct {
    std::string text;
    int bits;
    std::vector<Color> expected;
  } const cases[] = {
      {"P1 # comment\n2 2\n01\n1 0", 8, {{255, 255, 255}, {}, {}, {255, 255, 255}}},
      {"P2\n#\n3 1\n15\n0 7\n15", 8, {{}, {119, 119, 119}, {255, 255, 255}}},
      {"P3 1 2 255 1 2 3 4 5 6 ", 24, {{3, 2, 1}, {6, 5, 4}}},
      {"P2 2 1 65535 128 65535", 8, {{}, {255, 255, 255}}},
      {"P2 2 1 65535 129 65406", 8, {{1, 1, 1}, {254, 254, 254}}},
      {std::string("P5 2 1 1000\n\0\x64\x03\xE8", 16), 8, {{26, 26, 26}, {255, 255, 255}}},
      {"P6 1 1 255\nabc", 24, {{'c', 'b', 'a'}}},
      {"P7\nWIDTH 1\nHEIGHT 1\nDEPTH 2\nMAXVAL 255\nTUPLTYPE GRAYSCALE_ALPHA\nENDHDR\nab",
       32,
       {{'a', 'a', 'a', 'b'}}},
      {"P7\nWIDTH 1\nHEIGHT 1\nDEPTH 4\nMAXVAL 127\nENDHDR\n\x7F@\x01\x02", 32, {{2, 129, 255, 4}}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.text);
    const Decoded decoded = Decode(Joined(each.text));
    EXPECT_EQ(decoded.info.bit_count, each.bits);
    for (size_t i = 0; i < each.expected.size(); ++i) {
      const auto at = static_cast<int>(i);
      EXPECT_EQ(each.expected[i],
                decoded.pixels.At(at % decoded.info.width, at / decoded.info.width));
    }
  }
  for (const char* const broken : {"P2 2 1 255 1", "P2 1 1 255 256", "P2 1 1 255 x", "P1 1 1 2",
                                   "P5 1 1 0 a", "P5 1 1 65536 aa", "P7\nSIZE 1\nENDHDR\n"}) {
    EXPECT_EQ(KindOf([&] { Decode(Joined(broken)); }), Kind::kBroken) << broken;
  }
}

}  // namespace
}  // namespace qel::test
