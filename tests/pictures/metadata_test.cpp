// EXIF, XMP, IPTC and colour profiles, from file to file.

#include <lcms2.h>

#include <array>
#include <cstring>

#include "pictures/exif.h"
#include "tests/pictures/foreign_writers.h"
#include "tests/pictures/picture_support.h"

namespace qel::test {
namespace {

using pictures::Exif;
using pictures::ExifDirectory;
using pictures::Metadata;

constexpr uint16_t kAscii = 2, kShort = 3, kLong = 4, kRational = 5, kUndefined = 7;
constexpr uint16_t kMake = 0x010F, kLatitude = 0x0002, kLens = 0xA434;
constexpr char kThumbnail[] = "a small picture";
constexpr char kNote[] = "a note that knows where it stands";

/// An EXIF block as a camera writes it: orientation 6, sides 9 x 5, a maker's note, a place, and a
/// thumbnail in a second directory.
Bytes CameraBlock(bool big) {
  Bytes block = Joined(big ? "MM" : "II");
  const auto put = [&](uint32_t value, int count) {
    big ? PutBig(block, value, count) : Put(block, value, count);
  };
  const auto entry = [&](uint32_t tag, uint32_t type, uint32_t count, uint32_t value) {
    put(tag, 2);
    put(type, 2);
    put(count, 4);
    if (type == kShort && count == 1) {
      put(value, 2);
      put(0, 2);
    } else {
      put(value, 4);
    }
  };
  const auto text = [&](const std::string& characters) {
    for (const char c : characters) block.push_back(static_cast<uint8_t>(c));
  };
  const uint32_t note_size = sizeof(kNote), thumbnail_size = sizeof(kThumbnail);
  constexpr uint32_t kMainAt = 8, kPhotoAt = kMainAt + 2 + 12 * 4 + 4,
                     kPlacesAt = kPhotoAt + 2 + 12 * 4 + 4, kSmallAt = kPlacesAt + 2 + 12 + 4,
                     kValuesAt = kSmallAt + 2 + 24 + 4;
  const uint32_t make_at = kValuesAt, lens_at = make_at + 8, place_at = lens_at + 8,
                 note_at = place_at + 24, thumbnail_at = note_at + note_size;
  put(42, 2);
  put(kMainAt, 4);
  put(4, 2);
  entry(kMake, kAscii, 8, make_at);
  entry(pictures::kOrientationTag, kShort, 1, 6);
  entry(pictures::kExifTag, kLong, 1, kPhotoAt);
  entry(pictures::kGpsTag, kLong, 1, kPlacesAt);
  put(kSmallAt, 4);
  put(4, 2);
  entry(pictures::kMakerNoteTag, kUndefined, note_size, note_at);
  entry(pictures::kPixelWidthTag, kShort, 1, 9);
  entry(pictures::kPixelHeightTag, kLong, 1, 5);
  entry(kLens, kAscii, 8, lens_at);
  put(0, 4);
  put(1, 2);
  entry(kLatitude, kRational, 3, place_at);
  put(0, 4);
  put(2, 2);
  entry(0x0201, kLong, 1, thumbnail_at);
  entry(0x0202, kLong, 1, thumbnail_size);
  put(0, 4);
  text(std::string("Maker X\0Lens 50\0", 16));
  for (const uint32_t number : {52u, 1u, 31u, 1u, 12u, 1u}) put(number, 4);
  text({kNote, note_size});
  text({kThumbnail, thumbnail_size});
  return block;
}

constexpr char kXmp[] =
    "<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:Description tiff:Orientation=\"6\" "
    "exif:GPSLatitude='52,31.2N' dc:creator=\"Somebody\" exif:PixelXDimension=\"9\">"
    "<xmp:Thumbnails><rdf:Alt>AAAA</rdf:Alt></xmp:Thumbnails>"
    "<photoshop:City>Berlin</photoshop:City><tiff:ImageLength>5</tiff:ImageLength>"
    "</rdf:Description></x:xmpmeta>";

Bytes Iptc() {
  return Joined(
      std::string("\x1C\x02\x5A\0\x06"
                  "Berlin"
                  "\x1C\x02\x78\0\x05"
                  "Words",
                  21));
}

Metadata Camera(bool big) {
  Metadata camera;
  camera.exif = CameraBlock(big);
  camera.xmp = kXmp;
  camera.iptc = Iptc();
  return camera;
}

uint32_t NumberIn(const ExifDirectory& directory, uint16_t tag) {
  for (const auto& entry : directory) {
    if (entry.tag != tag) continue;
    uint32_t value = 0;
    std::memcpy(&value, entry.data.data(), std::min<size_t>(4, entry.data.size()));
    return value;
  }
  return 0;
}

std::string TextIn(const ExifDirectory& directory, uint16_t tag) {
  for (const auto& entry : directory) {
    if (entry.tag == tag) return {entry.data.begin(), entry.data.end()};
  }
  return {};
}

bool Contains(const Bytes& bytes, const std::string& text) {
  return std::search(bytes.begin(), bytes.end(), text.begin(), text.end()) != bytes.end();
}
bool Contains(const std::string& whole, const std::string& text) {
  return whole.find(text) != std::string::npos;
}

class Metadatas : public testing::TestWithParam<const char*> {};
INSTANTIATE_TEST_SUITE_P(Formats, Metadatas, testing::Values("jpg", "png", "tif", "webp"));

TEST_P(Metadatas, AreKeptAndSpeakOfTheUprightPicture) {
  const std::string format = GetParam();
  for (const bool big : {false, true}) {
    const Metadata camera = Camera(big);
    const Bytes stored = Encode(Slope(9, 5, 24), format, camera);
    const Decoded first = Decode(stored);
    ASSERT_EQ(first.info.width, 5);
    const Bytes file = Encode(first.pixels, format, first.info.metadata);
    const Decoded second = Decode(file);
    EXPECT_EQ(second.info.width, 5);
    const Metadata& kept = second.info.metadata;
    const Exif exif = pictures::ParseExif(kept.exif).value_or(Exif());
    EXPECT_EQ(exif.Orientation(), 1);
    EXPECT_EQ(TextIn(exif.main, kMake), std::string("Maker X\0", 8));
    EXPECT_EQ(TextIn(exif.photo, kLens), std::string("Lens 50\0", 8));
    EXPECT_EQ(NumberIn(exif.photo, pictures::kPixelWidthTag), 5u);
    EXPECT_EQ(NumberIn(exif.photo, pictures::kPixelHeightTag), 9u);
    EXPECT_EQ(NumberIn(exif.places, kLatitude), 52u);
    EXPECT_EQ(TextIn(exif.photo, pictures::kMakerNoteTag), std::string(kNote, sizeof(kNote)));
    if (format != "tif") {
      const Exif before = *pictures::ParseExif(camera.exif);
      EXPECT_EQ(exif.maker_note_at, before.maker_note_at);
    }
    EXPECT_FALSE(Contains(file, kThumbnail));
    for (const char* const part : {"tiff:Orientation=\"1\"", "Somebody", "52,31.2N",
                                   "exif:PixelXDimension=\"5\"", "ImageLength>9<"}) {
      EXPECT_TRUE(Contains(kept.xmp, part)) << part << " in " << kept.xmp;
    }
    EXPECT_FALSE(Contains(kept.xmp, "AAAA"));
    EXPECT_EQ(kept.iptc, format != "webp" ? Iptc() : Bytes());
  }
}

TEST_P(Metadatas, CanStayAsStoredOrBeLeftOut) {
  const std::string format = GetParam();
  const Metadata camera = Camera(false);
  const Bytes stored = Encode(Slope(9, 5, 24), format, camera);
  const Decoded lying = Decode(stored, {.upright = false});
  EXPECT_EQ(lying.info.width, 9);
  const Bytes copy = Encode(lying.pixels, format, lying.info.metadata);
  EXPECT_EQ(Decode(copy).info.width, 5);  // the orientation went along
  EXPECT_TRUE(Contains(Decode(copy, {.upright = false}).info.metadata.xmp, "Orientation=\"6\""));

  const Bytes bare = Encode(Slope(9, 5, 24), format, camera, {.strip = pictures::Strip::kAll});
  for (const char* const part : {"Maker X", "Somebody", "Words"}) {
    EXPECT_FALSE(Contains(bare, part)) << part;
  }
  const Bytes anywhere =
      Encode(Slope(9, 5, 24), format, camera, {.strip = pictures::Strip::kPlaces});
  const Metadata kept = Decode(anywhere).info.metadata;
  const Exif exif = *pictures::ParseExif(kept.exif);
  EXPECT_TRUE(exif.places.empty());
  EXPECT_EQ(TextIn(exif.photo, kLens), std::string("Lens 50\0", 8));
  EXPECT_FALSE(Contains(kept.xmp, "GPS") || Contains(kept.xmp, "Berlin")) << kept.xmp;
  EXPECT_TRUE(Contains(kept.xmp, "Somebody"));
  EXPECT_FALSE(Contains(kept.iptc, "Berlin"));
  if (format != "webp") {
    EXPECT_TRUE(Contains(kept.iptc, "Words"));
  }
}

TEST(Metadata, ThatAFormatDoesNotHoldIsNoted) {
  Metadata camera;
  camera.exif = CameraBlock(false);
  camera.iptc = Iptc();
  for (const char* const format : {"bmp", "ppm", "webp"}) {
    std::vector<std::string> notes;
    Encode(Slope(9, 5, 24), format, camera, {}, &notes);
    ASSERT_EQ(notes.size(), 1u) << format;
    EXPECT_TRUE(Contains(notes[0], "IPTC"));
  }
  camera.iptc.clear();
  camera.xmp.assign(70'000, 'x');
  std::vector<std::string> notes;
  Encode(Slope(9, 5, 24), "jpg", camera, {}, &notes);
  EXPECT_EQ(notes.size(), 1u);
}

TEST(Metadata, DamagedBlocksCountAsAbsent) {
  const Bytes block = CameraBlock(true);
  for (size_t size = 0; size < block.size(); ++size) {
    Bytes part(block.begin(), block.begin() + static_cast<ptrdiff_t>(size));
    if (const auto exif = pictures::ParseExif(part)) pictures::SerializeExif(*exif);
  }
  Rng rng(4);
  for (int i = 0; i < 3000; ++i) {
    Bytes damaged = block;
    for (int n = 0; n < 3; ++n) {
      damaged[static_cast<size_t>(rng.Int(0, static_cast<int>(block.size()) - 1))] =
          static_cast<uint8_t>(rng.OneIn(2) ? 255 : rng.Int(0, 255));
    }
    const auto exif = pictures::ParseExif(damaged);
    if (!exif) continue;
    const Bytes written = pictures::SerializeExif(*exif);
    EXPECT_LT(written.size(), 4 * block.size());
    const auto again = pictures::ParseExif(written);
    ASSERT_TRUE(again.has_value());
    EXPECT_EQ(pictures::SerializeExif(*again), written);
  }
}

// Profiles.

/// The bytes of a profile, which is given up.
Bytes Saved(cmsHPROFILE profile) {
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(profile, nullptr, &size);
  Bytes bytes(size);
  cmsSaveProfileToMem(profile, bytes.data(), &size);
  cmsCloseProfile(profile);
  return bytes;
}

/// Colours with the primaries of a wide display and a plain gamma.
Bytes WideProfile() {
  const cmsCIExyY white{0.3127, 0.3290, 1};
  const cmsCIExyYTRIPLE primaries{{0.64, 0.33, 1}, {0.21, 0.71, 1}, {0.15, 0.06, 1}};
  cmsToneCurve* const gamma = cmsBuildGamma(nullptr, 2.2);
  cmsToneCurve* const curves[] = {gamma, gamma, gamma};
  const cmsHPROFILE profile = cmsCreateRGBProfile(&white, &primaries, curves);
  cmsFreeToneCurve(gamma);
  return Saved(profile);
}

TEST(Profile, OtherThanStandardIsNotedOrCarriedOut) {
  Metadata wide;
  wide.icc_profile = WideProfile();
  for (const int bits : {24, 32}) {
    Pixels pixels(2, 1, bits);
    const std::array<uint8_t, 4> green{40, 200, 40, 77};
    std::copy_n(green.begin(), bits / 8, pixels.Row(0));
    const Bytes file = Encode(pixels, "png", wide);
    const Decoded plain = Decode(file);
    EXPECT_TRUE(plain.HasNote("not sRGB"));
    EXPECT_EQ(plain.pixels.At(0, 0).g, 200);
    EXPECT_FALSE(plain.info.metadata.icc_profile.empty());
    const Decoded converted = Decode(file, {.to_srgb = true});
    EXPECT_TRUE(converted.info.notes.empty());
    EXPECT_TRUE(converted.info.metadata.icc_profile.empty());
    // A wider green is beyond the standard one: red falls to nothing.
    EXPECT_TRUE(Near(converted.pixels.At(0, 0), {20, 201, 0, bits == 32 ? 77 : 255}, 20))
        << converted.pixels.At(0, 0);
  }
  Metadata standard;
  standard.icc_profile = Saved(cmsCreate_sRGBProfile());
  const Decoded same = Decode(Encode(Slope(3, 3, 24), "png", standard), {.to_srgb = true});
  EXPECT_TRUE(same.info.notes.empty());
  EXPECT_EQ(same.info.metadata.icc_profile, standard.icc_profile);
}

/// Inks of which cyan prints as plain red light and the others as nothing, so that nobody takes
/// this for the simple conversion.
Bytes InkProfile() {
  const cmsHPROFILE profile = cmsCreateProfilePlaceholder(nullptr);
  cmsSetProfileVersion(profile, 4.3);
  cmsSetDeviceClass(profile, cmsSigOutputClass);
  cmsSetColorSpace(profile, cmsSigCmykData);
  cmsSetPCS(profile, cmsSigLabData);
  cmsPipeline* const pipeline = cmsPipelineAlloc(nullptr, 4, 3);
  cmsStage* const table = cmsStageAllocCLut16bit(nullptr, 2, 4, 3, nullptr);
  cmsStageSampleCLut16bit(
      table,
      [](const cmsUInt16Number in[], cmsUInt16Number out[], void*) -> cmsInt32Number {
        const cmsCIELab red{54.3, 80.8, 69.9}, black{0, 0, 0};
        cmsFloat2LabEncoded(out, in[0] > 0x8000 ? &red : &black);
        return 1;
      },
      nullptr, 0);
  // The library writes a table with curves around it.
  cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 4, nullptr));
  cmsPipelineInsertStage(pipeline, cmsAT_END, table);
  cmsPipelineInsertStage(pipeline, cmsAT_END, cmsStageAllocToneCurves(nullptr, 3, nullptr));
  cmsWriteTag(profile, cmsSigAToB0Tag, pipeline);
  cmsPipelineFree(pipeline);
  return Saved(profile);
}

Bytes InkTiff(const std::array<uint8_t, 4>& inks, const Bytes& profile) {
  return FlatTiff(PHOTOMETRIC_SEPARATED, COMPRESSION_NONE, {inks.begin(), inks.end()},
                  [&](TIFF* tiff) {
                    TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(profile.size()),
                                 profile.data());
                  });
}

TEST(Profile, OfInksIsCarriedOutWhenAskedFor) {
  const std::array<uint8_t, 4> cyan{255, 0, 0, 0};
  for (const Bytes& file : {InkJpeg(cyan, true, InkProfile()), InkTiff(cyan, InkProfile())}) {
    const Decoded simple = Decode(file);
    EXPECT_TRUE(simple.HasNote("CMYK"));
    EXPECT_TRUE(Near(simple.pixels.At(3, 3), {255, 255, 0}, 3)) << simple.pixels.At(3, 3);
    const Decoded printed = Decode(file, {.to_srgb = true});
    EXPECT_TRUE(printed.info.notes.empty());
    EXPECT_TRUE(printed.info.metadata.icc_profile.empty());
    EXPECT_TRUE(Near(printed.pixels.At(3, 3), {0, 0, 255}, 6)) << printed.pixels.At(3, 3);
  }
}

}  // namespace
}  // namespace qel::test
