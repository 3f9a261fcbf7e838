// Formats that plug-ins read: files made with the libraries themselves.

#ifdef QEL_HAS_EXTRA_FORMATS

#include <jxl/encode.h>
#include <libheif/heif.h>

#include "tests/pictures/picture_support.h"

namespace qel::test {
namespace {

/// Rows of red, green, blue (, alpha), as the libraries want them.
Bytes Swapped(const Pixels& pixels) {
  const int bytes = pixels.bits / 8;
  Bytes rows;
  for (int y = 0; y < pixels.height; ++y) {
    for (int x = 0; x < pixels.width; ++x) {
      const Color color = pixels.At(x, y);
      for (const int level : {color.r, color.g, color.b}) {
        rows.push_back(static_cast<uint8_t>(level));
      }
      if (bytes == 4) rows.push_back(static_cast<uint8_t>(color.a));
    }
  }
  return rows;
}

Bytes MakeJxl(const Pixels& pixels, JxlOrientation orientation) {
  JxlEncoder* const encoder = JxlEncoderCreate(nullptr);
  const bool alpha = pixels.bits == 32;
  JxlBasicInfo info;
  JxlEncoderInitBasicInfo(&info);
  info.xsize = static_cast<uint32_t>(pixels.width);
  info.ysize = static_cast<uint32_t>(pixels.height);
  info.bits_per_sample = 8;
  info.num_extra_channels = info.alpha_bits = alpha ? 1 : 0;
  if (alpha) info.alpha_bits = 8;
  info.uses_original_profile = JXL_TRUE;
  info.orientation = orientation;
  EXPECT_EQ(JxlEncoderSetBasicInfo(encoder, &info), JXL_ENC_SUCCESS);
  JxlColorEncoding standard;
  JxlColorEncodingSetToSRGB(&standard, JXL_FALSE);
  JxlEncoderSetColorEncoding(encoder, &standard);
  JxlEncoderFrameSettings* const settings = JxlEncoderFrameSettingsCreate(encoder, nullptr);
  JxlEncoderSetFrameLossless(settings, JXL_TRUE);
  const JxlPixelFormat format{alpha ? 4u : 3u, JXL_TYPE_UINT8, JXL_NATIVE_ENDIAN, 0};
  const Bytes rows = Swapped(pixels);
  EXPECT_EQ(JxlEncoderAddImageFrame(settings, &format, rows.data(), rows.size()), JXL_ENC_SUCCESS);
  JxlEncoderCloseInput(encoder);
  Bytes file(1 << 16);
  uint8_t* next = file.data();
  size_t left = file.size();
  EXPECT_EQ(JxlEncoderProcessOutput(encoder, &next, &left), JXL_ENC_SUCCESS);
  file.resize(file.size() - left);
  JxlEncoderDestroy(encoder);
  return file;
}

heif_error Append(heif_context*, const void* data, size_t size, void* file) {
  const auto* const bytes = static_cast<const uint8_t*>(data);
  static_cast<Bytes*>(file)->insert(static_cast<Bytes*>(file)->end(), bytes, bytes + size);
  return {heif_error_Ok, heif_suberror_Unspecified, ""};
}

/// Empty where the library has no encoder for it.
Bytes MakeHeif(const Pixels& pixels, heif_compression_format format, const Bytes& exif) {
  heif_context* const context = heif_context_alloc();
  heif_encoder* encoder = nullptr;
  Bytes file;
  if (heif_context_get_encoder_for_format(context, format, &encoder).code == heif_error_Ok) {
    heif_encoder_set_lossy_quality(encoder, 95);
    const bool alpha = pixels.bits == 32;
    heif_image* image = nullptr;
    heif_image_create(pixels.width, pixels.height, heif_colorspace_RGB,
                      alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, &image);
    heif_image_add_plane(image, heif_channel_interleaved, pixels.width, pixels.height,
                         alpha ? 32 : 24);
    int stride = 0;
    uint8_t* const plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
    const Bytes rows = Swapped(pixels);
    const ptrdiff_t row_bytes = ptrdiff_t{pixels.width} * pixels.bits / 8;
    for (int y = 0; y < pixels.height; ++y) {
      std::copy_n(rows.data() + y * row_bytes, row_bytes, plane + ptrdiff_t{y} * stride);
    }
    heif_image_handle* handle = nullptr;
    heif_context_encode_image(context, image, encoder, nullptr, &handle);
    if (!exif.empty()) {
      heif_context_add_exif_metadata(context, handle, exif.data(), static_cast<int>(exif.size()));
    }
    heif_writer writer{1, &Append};
    heif_context_write(context, &writer, &file);
    heif_image_handle_release(handle);
    heif_image_release(image);
    heif_encoder_release(encoder);
  }
  heif_context_free(context);
  return file;
}

class PluginFormats : public testing::Test {
 protected:
  void SetUp() override { pictures::SetPluginFolder(QEL_BUILD_FOLDER "/formats"); }
};

TEST_F(PluginFormats, JpegXlReadsExactlyAndUpright) {
  for (const int bits : {24, 32}) {
    const Pixels slope = Slope(21, 13, bits);
    const Bytes file = MakeJxl(slope, JXL_ORIENT_IDENTITY);
    for (const bool upward : {false, true}) {
      const Decoded decoded = Decode(file, {}, upward);
      EXPECT_EQ(decoded.info.bit_count, bits);
      EXPECT_TRUE(decoded.info.notes.empty());
      ExpectSame(slope, decoded.pixels);
    }
    const Bytes turned = MakeJxl(slope, JXL_ORIENT_ROTATE_90_CW);
    const Decoded upright = Decode(turned);
    ASSERT_EQ(upright.info.width, 13);
    EXPECT_EQ(upright.pixels.At(12, 0), slope.At(0, 0));
    ExpectSame(slope, Decode(turned, {.upright = false}).pixels);
    for (size_t size = 12; size < file.size(); size += 7) {
      EXPECT_EQ(KindOf([&] {
                  Decode({file.begin(), file.begin() + static_cast<ptrdiff_t>(size)});
                }),
                Kind::kBroken);
    }
  }
}

TEST_F(PluginFormats, HeicAndAvifReadWithTheirMetadata) {
  // A directory with one entry, orientation 6, which does not count: pixels are upright already.
  const Bytes exif =
      Joined("II*", {0, 8, 0, 0, 0, 1, 0, 0x12, 1, 3, 0, 1, 0, 0, 0, 6, 0, 0, 0, 0, 0, 0, 0});
  int read = 0;
  for (const auto format : {heif_compression_HEVC, heif_compression_AV1}) {
    for (const int bits : {24, 32}) {
      const Pixels slope = Slope(20, 12, bits);
      const Bytes file = MakeHeif(slope, format, exif);
      if (file.empty()) continue;
      ++read;
      const Decoded decoded = Decode(file);
      EXPECT_EQ(decoded.info.bit_count, bits);
      ExpectSame(slope, decoded.pixels, 24);
      EXPECT_FALSE(decoded.info.metadata.exif.empty());
      const pictures::PictureInfo header = pictures::ReadPictureHeaderFromMemory(file, "picture");
      EXPECT_EQ(header.width, 20);
      EXPECT_EQ(KindOf([&] {
                  Decode({file.begin(), file.begin() + static_cast<ptrdiff_t>(file.size() / 2)});
                }),
                Kind::kBroken);
      EXPECT_EQ(KindOf([&] { Decode(file, {.limits = {.max_pixels = 239}}); }), Kind::kTooLarge);
    }
  }
  EXPECT_GT(read, 0);
}

TEST_F(PluginFormats, AreNamedWithTheirPackageWhereTheyAreMissing) {
  const TemporaryFolder folder;
  const Bytes file = MakeJxl(Slope(4, 4, 24), JXL_ORIENT_IDENTITY);
  WriteFile(folder / "a.jxl", {file.begin(), file.end()});
  const Outcome outcome = RunShell("mkdir bin && cp " QEL_TOOL " bin/qel && ln -s " QEL_BUILD_FOLDER
                                   "/_binLIN64 _binLIN64 && bin/qel run a.jxl -o a.png negative",
                                   folder);
  EXPECT_EQ(outcome.exit_code, 3);
  EXPECT_NE(outcome.errors.find("qel-formats-extra"), std::string::npos) << outcome.errors;
  EXPECT_EQ(RunShell(QEL_TOOL " run a.jxl -o a.png negative", folder).exit_code, 0);
}

}  // namespace
}  // namespace qel::test

#endif  // QEL_HAS_EXTRA_FORMATS
