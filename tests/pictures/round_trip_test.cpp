#include <sys/stat.h>

#include <thread>

#include "pictures/png_filter.h"
#include "tests/pictures/picture_support.h"

namespace qel::test {
namespace {

using pictures::Metadata;
using pictures::PaletteEntry;

struct Trip {
  const char* extension;
  int bits;
  int colors;  ///< of the palette, 0 for none
  int read_bits;
  int kept_bits;  ///< with the option that keeps the depth
};

std::ostream& operator<<(std::ostream& out, const Trip& trip) {
  return out << trip.extension << " " << trip.bits << "/" << trip.colors;
}

constexpr Trip kTrips[] = {
    {"png", 1, 0, 8, 1},     {"png", 1, 2, 24, 1},    {"png", 4, 0, 8, 4},
    {"png", 4, 11, 24, 4},   {"png", 8, 0, 8, 8},     {"png", 8, 200, 24, 8},
    {"png", 24, 0, 24, 24},  {"png", 32, 0, 32, 32},  {"tif", 1, 0, 8, 1},
    {"tif", 1, 2, 24, 1},    {"tif", 4, 0, 8, 4},     {"tif", 4, 16, 24, 4},
    {"tiff", 8, 0, 8, 8},    {"tif", 8, 256, 24, 8},  {"tif", 24, 0, 24, 24},
    {"tif", 32, 0, 32, 32},  {"webp", 1, 2, 24, 24},  {"webp", 4, 0, 24, 24},
    {"webp", 8, 0, 24, 24},  {"webp", 8, 99, 24, 24}, {"webp", 24, 0, 24, 24},
    {"webp", 32, 0, 32, 32}, {"bmp", 1, 0, 8, 1},     {"bmp", 1, 2, 24, 1},
    {"bmp", 4, 0, 8, 4},     {"bmp", 4, 9, 24, 4},    {"dib", 8, 0, 8, 8},
    {"bmp", 8, 256, 24, 8},  {"bmp", 24, 0, 24, 24},  {"bmp", 32, 0, 32, 32},
    {"pbm", 1, 0, 8, 1},     {"pnm", 1, 0, 8, 1},     {"pnm", 8, 0, 8, 8},
    {"pgm", 4, 0, 8, 8},     {"pgm", 8, 0, 8, 8},     {"ppm", 8, 0, 24, 24},
    {"ppm", 4, 16, 24, 24},  {"ppm", 24, 0, 24, 24},  {"pnm", 24, 0, 24, 24},
    {"pam", 1, 0, 8, 8},     {"pam", 24, 0, 24, 24},  {"pam", 32, 0, 32, 32},
};

class RoundTrip : public testing::TestWithParam<Trip> {};
INSTANTIATE_TEST_SUITE_P(Formats, RoundTrip, testing::ValuesIn(kTrips));

TEST_P(RoundTrip, KeepsEveryPixelInEitherRowDirection) {
  const Trip& trip = GetParam();
  constexpr int kSizes[][2] = {{13, 7}, {1, 1}, {33, 2}, {8, 3}};
  Rng rng(static_cast<uint64_t>(trip.bits + 100 * trip.colors));
  for (const auto& [width, height] : kSizes) {
    for (const bool upward : {false, true}) {
      Pixels pixels(width, height, trip.bits, upward);
      pixels.FillRandom(rng);
      if (trip.bits == 32) pixels.Row(0)[3] = 254;  // transparency that every format sees
      for (int i = 0; i < trip.colors; ++i) {
        pixels.palette.push_back({static_cast<uint8_t>(rng.Next()), static_cast<uint8_t>(i),
                                  static_cast<uint8_t>(rng.Next()), 7});
      }
      if (trip.bits == 8 && trip.colors > 0) {
        for (int x = 0; x < width; ++x) pixels.Row(0)[x] %= static_cast<uint8_t>(trip.colors - 1);
      }
      const Bytes file = Encode(pixels, trip.extension, {}, {.webp_lossless = true});
      for (const bool keep : {false, true}) {
        const Decoded decoded = Decode(file, keep ? kKeepDepth : pictures::ReadOptions{}, !upward);
        EXPECT_EQ(decoded.info.bit_count, keep ? trip.kept_bits : trip.read_bits);
        EXPECT_TRUE(decoded.info.notes.empty());
        ExpectSame(pixels, decoded.pixels);
      }
    }
  }
}

TEST(RoundTrip, JpegStaysNearAndKeepsGray) {
  for (const int bits : {8, 24}) {
    const Pixels slope = Slope(21, 18, bits);
    const Decoded decoded = Decode(Encode(slope, "jpg", {}, {.jpeg_quality = 100}));
    EXPECT_EQ(decoded.info.bit_count, bits);
    ExpectSame(slope, decoded.pixels, 3);
  }
  // At 90 and above colour has full resolution, where neighbours may differ in hue.
  Pixels stripes(32, 8, 24);
  for (int y = 0; y < 8; ++y) {
    for (int x = 0; x < 96; ++x) stripes.Row(y)[x] = (x / 3 % 2 == 0) == (x % 3 == 0) ? 255 : 0;
  }
  ExpectSame(stripes, Decode(Encode(stripes, "jpeg", {}, {.jpeg_quality = 92})).pixels, 40);
  const Pixels slope = Slope(20, 12, 24);
  const Bytes lossy = Encode(slope, "webp");
  EXPECT_EQ(lossy[15], ' ');  // the chunk "VP8 ", not "VP8L"
  ExpectSame(slope, Decode(lossy).pixels, 30);
}

/// A profile that all libraries take, larger than one segment of a JPEG file.
Bytes Profile(const std::string& space) {
  Bytes profile(150000);
  Rng rng(3);
  for (size_t i = 132; i < profile.size(); ++i) profile[i] = static_cast<uint8_t>(rng.Next());
  const auto put = [&](size_t at, const std::string& text) {
    std::copy(text.begin(), text.end(), profile.begin() + static_cast<ptrdiff_t>(at));
  };
  put(0, {'\0', '\x02', '\x49', '\xF0'});
  put(8, "\x02");
  put(12, "mntr" + space + "XYZ ");
  put(36, "acsp");
  return profile;
}

struct MetadataTrip {
  const char* extension;
  bool keeps_profile, keeps_resolution;
};

TEST(RoundTrip, KeepsProfileAndResolutionWhereTheFormatHoldsThem) {
  const Metadata metadata{Profile("RGB "), 300, 150.5};
  const Metadata gray_metadata{Profile("GRAY"), 0, 0};
  for (const MetadataTrip& trip : {MetadataTrip{"png", true, true},
                                   {"jpg", true, true},
                                   {"tif", true, true},
                                   {"webp", true, true},
                                   {"bmp", false, true},
                                   {"ppm", false, false}}) {
    SCOPED_TRACE(trip.extension);
    std::vector<std::string> notes;
    const Decoded decoded = Decode(Encode(Slope(9, 5, 24), trip.extension, metadata, {}, &notes));
    EXPECT_EQ(decoded.info.metadata.icc_profile,
              trip.keeps_profile ? metadata.icc_profile : Bytes());
    EXPECT_NEAR(decoded.info.metadata.dpi_x, trip.keeps_resolution ? 300 : 0, 0.01);
    EXPECT_NEAR(decoded.info.metadata.dpi_y, trip.keeps_resolution ? 150.5 : 0, 0.5);
    EXPECT_EQ(notes.size(), size_t{!trip.keeps_profile} + size_t{!trip.keeps_resolution});
    if (!trip.keeps_profile || trip.extension == std::string("webp")) continue;
    // A profile for colours does not belong to greys, and the reverse.
    const Pixels gray = Slope(9, 5, 8);
    EXPECT_TRUE(Decode(Encode(gray, trip.extension, metadata, {}, &notes))
                    .info.metadata.icc_profile.empty());
    EXPECT_EQ(notes.size(), 1u);
    EXPECT_EQ(Decode(Encode(gray, trip.extension, gray_metadata)).info.metadata.icc_profile,
              gray_metadata.icc_profile);
  }
}

TEST(RoundTrip, ThroughAPipeIsTheSame) {
  const TemporaryFolder folder;
  const std::string path = folder / "pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  for (const char* const format : {"png", "jpg", "tif", "webp", "bmp", "ppm"}) {
    SCOPED_TRACE(format);
    const Bytes file = Encode(Slope(20, 12, 24), format, {Profile("RGB "), 300, 300});
    const Decoded expected = Decode(file);
    for (const bool whole : {true, false}) {
      std::thread writer([&] { WriteFile(path, {file.begin(), file.end()}); });
      Pixels pixels(20, 12, 24);
      pictures::PictureInfo info;
      pictures::ByteSource source(path, {});
      if (whole) {
        info = pictures::ReadPicture(source, "pipe", {},
                                     [&](const pictures::PictureInfo&) { return pixels.Buffer(); });
      } else {
        const auto reader = pictures::OpenRows(source, "pipe", {});
        const int rows = reader->streams() ? 4 : 12;
        const auto [bits, stride] = pixels.Buffer();
        for (int y = 0; y < 12; y += rows) reader->Read({bits + y * stride, stride}, rows);
        info = reader->info();
      }
      source.size();  // what is left of it
      writer.join();
      EXPECT_TRUE(pixels.SameBytes(expected.pixels));
      EXPECT_EQ(info.metadata.icc_profile, expected.info.metadata.icc_profile);
    }
  }
}

/// Every second row is noise; the others are near what one filter of PNG after the other predicts.
Pixels PixelsForPngFilters(int bits) {
  constexpr int kWidth = 4001, kHeight = 81;
  Rng rng(3);
  Pixels pixels(kWidth, kHeight, bits);
  pixels.FillRandom(rng);
  const int step = bits / 8;
  for (int y = 1; y < kHeight; y += 2) {
    for (int i = 0; i < kWidth * step; ++i) {
      const int above = pixels.Row(y - 1)[i];
      const int left = i < step ? 0 : pixels.Row(y)[i - step];
      const int corner = i < step ? 0 : pixels.Row(y - 1)[i - step];
      const int plane = left + above - corner;
      const int from_left = std::abs(plane - left), from_above = std::abs(plane - above),
                from_corner = std::abs(plane - corner);
      const int paeth = from_left <= from_above && from_left <= from_corner ? left
                        : from_above <= from_corner                         ? above
                                                                            : corner;
      const int predicted[] = {0, left, above, (left + above) / 2, paeth};
      pixels.Row(y)[i] = static_cast<uint8_t>(predicted[y / 2 % 5] + rng.Int(-1, 1));
    }
  }
  return pixels;
}

TEST(RoundTrip, PngTakesTheBestFilterAndIsTheSameForAnyThreads) {
  for (const int bits : {8, 24, 32}) {
    const Pixels pixels = PixelsForPngFilters(bits);
    const Bytes file = Encode(pixels, "png");
    EXPECT_TRUE(Decode(file).pixels.SameBytes(pixels));
    for (const int threads : {2, 5}) {
      EXPECT_EQ(EncodePicture("x.png", pixels.View(), {}, {.threads = threads}).file, file)
          << threads << " threads";
    }
    const auto row_bytes = static_cast<size_t>(pixels.width * bits / 8);
    pictures::PngFilter filter(row_bytes, static_cast<size_t>(bits / 8), true);
    for (int y = 0; y < pixels.height; ++y) {
      std::copy_n(pixels.Row(y), row_bytes, filter.row());
      const int taken = filter.Run().front();
      EXPECT_TRUE(y % 2 == 0 || taken == y / 2 % 5) << "row " << y;
    }
  }
}

/// Has room for some bytes.
class SmallSink final : public pictures::ByteSink {
 public:
  explicit SmallSink(size_t room) : room_(room) {}
  void Write(std::span<const uint8_t> bytes) override {
    if (bytes.size() > room_) throw pictures::PictureError(Kind::kNotWritable, "x.png", "full");
    room_ -= bytes.size();
  }
  void WriteAt(uint64_t, std::span<const uint8_t>) override {}

 private:
  size_t room_;
};

TEST(RoundTrip, PngEndsWhereThereIsNoRoomForMore) {
  const Pixels pixels = PixelsForPngFilters(24);
  const size_t size = Encode(pixels, "png").size();
  for (const int threads : {1, 4}) {
    for (const size_t room : {size_t{0}, size_t{100}, size / 2, size - 1}) {
      SmallSink sink(room);
      const auto write = [&] {
        const auto writer =
            pictures::WriteByRows(sink, "x.png", pixels.View(), {}, {.threads = threads});
        writer->Write(pixels.View());
        writer->Finish();
      };
      EXPECT_EQ(KindOf(write), Kind::kNotWritable) << room << " bytes, " << threads << " threads";
    }
  }
}

TEST(RoundTrip, SaysWhenAlphaIsLeftOut) {
  Pixels pixels = Slope(6, 4, 32);
  for (const char* const extension : {"jpg", "ppm", "pnm"}) {
    std::vector<std::string> notes;
    EXPECT_EQ(Decode(Encode(pixels, extension, {}, {}, &notes)).info.bit_count, 24);
    EXPECT_EQ(notes.size(), 1u) << extension;
  }
  for (int i = 3; i < 24; i += 4) {
    for (int y = 0; y < 4; ++y) pixels.Row(y)[i] = 255;
  }
  std::vector<std::string> notes;
  Encode(pixels, "ppm", {}, {}, &notes);
  EXPECT_TRUE(notes.empty());
}

TEST(RoundTrip, RefusesWhatTheFormatCannotHold) {
  EXPECT_EQ(KindOf([] { Encode(Slope(4, 4, 24), "pgm"); }), Kind::kDoesNotFit);
  EXPECT_EQ(KindOf([] { Encode(Slope(4, 4, 8), "pbm"); }), Kind::kDoesNotFit);
  EXPECT_EQ(KindOf([] { Encode(Pixels(4, 4, 16), "png"); }), Kind::kDoesNotFit);
  EXPECT_EQ(KindOf([] { Encode(Pixels(0, 4, 24), "png"); }), Kind::kDoesNotFit);
  EXPECT_EQ(KindOf([] { Encode(Pixels(16384, 1, 24), "webp"); }), Kind::kDoesNotFit);
  EXPECT_EQ(KindOf([] { Encode(Pixels(1, 65501, 8), "jpg"); }), Kind::kDoesNotFit);
  try {
    pictures::FormatOfPath("a.png/picture.xyz");
    FAIL();
  } catch (const pictures::PictureError& error) {
    EXPECT_EQ(error.kind(), Kind::kUnknownFormat);
    EXPECT_NE(std::string(error.what()).find("a.png/picture.xyz: "), std::string::npos);
    EXPECT_NE(std::string(error.what()).find(".webp"), std::string::npos);
  }
  EXPECT_EQ(pictures::FormatOfPath("dir.x/PICTURE.JPG"), pictures::Format::kJpeg);
}

// Orientation.

Bytes ExifBlock(int orientation, bool big) {
  const auto value = static_cast<uint8_t>(orientation);
  return big ? Joined("MM", {0, 42, 0, 0, 0, 8,     0, 1, 1, 0x12, 0, 3,
                             0, 0,  0, 1, 0, value, 0, 0, 0, 0,    0, 0})
             : Joined("II", {42, 0, 8, 0, 0,     0, 1, 0, 0x12, 1, 3, 0,
                             1,  0, 0, 0, value, 0, 0, 0, 0,    0, 0, 0});
}

Bytes PngWith(Bytes file, const Bytes& exif, bool at_end) {
  const Bytes chunk = PngChunk("eXIf", exif);
  const ptrdiff_t end_chunk = 12, header = 33;
  file.insert(at_end ? file.end() - end_chunk : file.begin() + header, chunk.begin(), chunk.end());
  return file;
}

/// Where the stored pixel (x, y) of a width x height picture is seen.
std::pair<int, int> Upright(int orientation, int x, int y, int width, int height) {
  const std::string seen = std::to_string(orientation);
  if (std::string("2378").find(seen) != std::string::npos) x = width - 1 - x;
  if (std::string("3467").find(seen) != std::string::npos) y = height - 1 - y;
  return orientation >= 5 ? std::pair(y, x) : std::pair(x, y);
}

class Orientation : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(All, Orientation, testing::Range(1, 9));

void ExpectTurned(const Pixels& stored, const Bytes& file, int orientation, int tolerance,
                  const pictures::ReadOptions& options = {}) {
  for (const bool upward : {false, true}) {
    const Decoded decoded = Decode(file, options, upward);
    const pictures::PictureInfo header =
        pictures::ReadPictureHeaderFromMemory(file, "picture", options);
    ASSERT_EQ(decoded.info.width, orientation >= 5 ? stored.height : stored.width);
    ASSERT_EQ(decoded.info.height, orientation >= 5 ? stored.width : stored.height);
    EXPECT_EQ(header.width, decoded.info.width);
    EXPECT_EQ(header.bit_count, decoded.info.bit_count);
    for (int y = 0; y < stored.height; ++y) {
      for (int x = 0; x < stored.width; ++x) {
        const auto [ux, uy] = Upright(orientation, x, y, stored.width, stored.height);
        ASSERT_TRUE(Near(stored.At(x, y), decoded.pixels.At(ux, uy), tolerance))
            << "at " << x << ", " << y;
      }
    }
  }
}

TEST_P(Orientation, IsAppliedInEveryFormatAndDepth) {
  const int orientation = GetParam();
  const Bytes exif = ExifBlock(orientation, orientation % 2 == 0);
  for (const int bits : {8, 24, 32}) {
    const Pixels slope = Slope(23, 9, bits);
    const Bytes png = Encode(slope, "png");
    ExpectTurned(slope, PngWith(png, exif, false), orientation, 0);
    ExpectTurned(slope, PngWith(png, exif, true), orientation, 0);
    for (const std::string format : {"tif", "webp", "jpg"}) {
      if (format == "jpg" && bits == 32) continue;
      Metadata metadata;
      metadata.exif = exif;
      const Bytes file =
          Encode(slope, format, metadata, {.jpeg_quality = 100, .webp_lossless = true});
      ExpectTurned(slope, file, orientation, format == "jpg" ? 3 : 0);
    }
  }
  Rng rng(9);
  for (const int bits : {1, 4, 8}) {
    Pixels indices(75, 66, bits);
    indices.FillRandom(rng);
    indices.palette.resize(size_t{1} << bits);
    for (auto& entry : indices.palette) entry.red = static_cast<uint8_t>(rng.Next());
    ExpectTurned(indices, PngWith(Encode(indices, "png"), exif, false), orientation, 0, kKeepDepth);
  }
}

TEST(Orientation, TurnsTheResolutionAlongAndCountsOnlyWhereItsChecksumHolds) {
  const Bytes file = Encode(Slope(4, 2, 24), "png", {{}, 300, 150});
  Bytes turned = PngWith(file, ExifBlock(6, false), false);
  const Decoded decoded = Decode(turned);
  EXPECT_NEAR(decoded.info.metadata.dpi_x, 150, 0.01);
  EXPECT_NEAR(decoded.info.metadata.dpi_y, 300, 0.01);
  turned[33 + 8 + 18] = 8;  // the orientation, without its checksum
  EXPECT_EQ(Decode(turned).info.width, 4);
}

}  // namespace
}  // namespace qel::test
