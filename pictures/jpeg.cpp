// clang-format off
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// After <cstdio>, whose types these headers use.
#include <jpeglib.h>
#include <jerror.h>
// clang-format on

#include "pictures/codec.h"

namespace qel::pictures {
namespace {

constexpr double kCentimetresPerInch = 2.54;

/// libjpeg leaves by longjmp: every call into it runs inside `Guard`, whose functions hold nothing
/// that would have to be destroyed.
struct ErrorManager : jpeg_error_mgr {
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX] = "";
};

void OnError(j_common_ptr info) {
  auto* const manager = static_cast<ErrorManager*>(info->err);
  manager->format_message(info, manager->message);
  std::longjmp(manager->jump, 1);
}

/// A file that ends early would otherwise be filled up with grey.
void OnMessage(j_common_ptr info, int level) {
  if (level < 0 && info->err->msg_code == JWRN_JPEG_EOF) OnError(info);
}

void PrepareErrors(ErrorManager& manager) {
  jpeg_std_error(&manager);
  manager.error_exit = &OnError;
  manager.emit_message = &OnMessage;
}

template <typename Work>
[[gnu::noinline]] bool Guard(ErrorManager& manager, Work&& work) {
  if (setjmp(manager.jump) != 0) return false;
  work();
  return true;
}

struct Decoder {
  jpeg_decompress_struct info{};
  ErrorManager errors;
  Decoder() {
    PrepareErrors(errors);
    info.err = &errors;
  }
  ~Decoder() { jpeg_destroy_decompress(&info); }
};

struct Encoder {
  jpeg_compress_struct info{};
  ErrorManager errors;
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  Encoder() {
    PrepareErrors(errors);
    info.err = &errors;
  }
  ~Encoder() {
    jpeg_destroy_compress(&info);
    std::free(bytes);
  }
};

Metadata ReadMetadata(jpeg_decompress_struct& info) {
  Metadata metadata;
  JOCTET* profile = nullptr;
  unsigned length = 0;
  if (jpeg_read_icc_profile(&info, &profile, &length)) {
    metadata.icc_profile.assign(profile, profile + length);
    std::free(profile);
  }
  const double unit = info.density_unit == 1 ? 1 : info.density_unit == 2 ? kCentimetresPerInch : 0;
  metadata.dpi_x = info.X_density * unit;
  metadata.dpi_y = info.Y_density * unit;
  return metadata;
}

int ReadOrientation(const jpeg_decompress_struct& info) {
  for (auto* marker = info.marker_list; marker != nullptr; marker = marker->next) {
    const Bytes data(marker->data, marker->data_length);
    if (marker->marker == JPEG_APP0 + 1 && data.size() > 6 &&
        std::memcmp(data.data(), "Exif", 5) == 0) {
      return ExifOrientation(data);
    }
  }
  return 1;
}

/// Ink to light. Files of this kind store inks inverted when they carry the Adobe marker.
void ConvertInks(const uint8_t* inks, bool inverted, uint8_t* row, int width) {
  for (int x = 0; x < width; ++x) {
    const auto light = [&](int channel) {
      const unsigned value = inks[4 * ptrdiff_t{x} + channel];
      return inverted ? value : 255 - value;
    };
    for (int c = 0; c < 3; ++c) {
      row[3 * ptrdiff_t{x} + 2 - c] = static_cast<uint8_t>((light(c) * light(3) + 127) / 255);
    }
  }
}

}  // namespace

bool IsJpeg(Bytes file) {
  return file.size() >= 3 && file[0] == 0xFF && file[1] == 0xD8 && file[2] == 0xFF;
}

PictureInfo ReadJpeg(const Input& input) {
  Decoder decoder;
  jpeg_decompress_struct& jpeg = decoder.info;
  const auto fail = [&] { input.Broken(std::string("damaged JPEG: ") + decoder.errors.message); };
  if (!Guard(decoder.errors, [&] {
        jpeg_create_decompress(&jpeg);
        jpeg_mem_src(&jpeg, input.file.data(), static_cast<unsigned long>(input.file.size()));
        jpeg_save_markers(&jpeg, JPEG_APP0 + 1, 0xFFFF);
        jpeg_save_markers(&jpeg, JPEG_APP0 + 2, 0xFFFF);
        jpeg_read_header(&jpeg, TRUE);
      })) {
    fail();
  }
  PictureInfo info;
  info.format = Format::kJpeg;
  info.width = static_cast<int>(jpeg.image_width);
  info.height = static_cast<int>(jpeg.image_height);
  info.metadata = ReadMetadata(jpeg);
  const bool grey = jpeg.jpeg_color_space == JCS_GRAYSCALE;
  const bool inks = jpeg.jpeg_color_space == JCS_CMYK || jpeg.jpeg_color_space == JCS_YCCK;
  info.bit_count = grey ? 8 : 24;
  if (inks) {
    info.notes.emplace_back("inks (CMYK) were converted to colours without a profile");
    info.metadata.icc_profile.clear();
  }
  jpeg.out_color_space = grey ? JCS_GRAYSCALE : inks ? JCS_CMYK : JCS_EXT_BGR;
  const bool inverted = jpeg.saw_Adobe_marker != 0;
  // Before the decoder allocates for the whole picture, as it does for progressive files.
  PixelTarget target(input, info, ReadOrientation(jpeg));
  if (!Guard(decoder.errors, [&] { jpeg_start_decompress(&jpeg); })) fail();
  std::vector<uint8_t> ink_row(inks ? 4 * size_t{jpeg.image_width} : 0);
  while (jpeg.output_scanline < jpeg.output_height) {
    const int y = static_cast<int>(jpeg.output_scanline);
    JSAMPROW row = inks ? ink_row.data() : target.Row(y);
    if (!Guard(decoder.errors, [&] { jpeg_read_scanlines(&jpeg, &row, 1); })) fail();
    if (inks) ConvertInks(row, inverted, target.Row(y), static_cast<int>(jpeg.image_width));
  }
  if (!Guard(decoder.errors, [&] { jpeg_finish_decompress(&jpeg); })) fail();
  target.Finish();
  return info;
}

std::vector<uint8_t> EncodeJpeg(const Output& output) {
  if (HasTransparency(output.picture)) output.notes.emplace_back(kAlphaDroppedNote);
  constexpr int kLargestSide = 65500;
  if (output.picture.width > kLargestSide || output.picture.height > kLargestSide) {
    output.Fail("JPEG holds at most 65500 pixels a side; choose PNG or TIFF");
  }
  ColourRows rows(output.picture, false);
  Encoder encoder;
  jpeg_compress_struct& jpeg = encoder.info;
  const auto fail = [&] {
    output.Fail(std::string("encoding as JPEG failed: ") + encoder.errors.message);
  };
  const Metadata& metadata = output.metadata;
  if (!Guard(encoder.errors, [&] {
        jpeg_create_compress(&jpeg);
        jpeg_mem_dest(&jpeg, &encoder.bytes, &encoder.size);
        jpeg.image_width = static_cast<JDIMENSION>(output.picture.width);
        jpeg.image_height = static_cast<JDIMENSION>(output.picture.height);
        jpeg.input_components = rows.bit_count() / 8;
        jpeg.in_color_space = rows.bit_count() == 8 ? JCS_GRAYSCALE : JCS_EXT_BGR;
        jpeg_set_defaults(&jpeg);
        jpeg_set_quality(&jpeg, output.options.jpeg_quality, TRUE);
        if (output.options.jpeg_quality >= 90 && jpeg.num_components == 3) {
          jpeg.comp_info[0].h_samp_factor = jpeg.comp_info[0].v_samp_factor = 1;
        }
        if (metadata.dpi_x > 0 && metadata.dpi_y > 0) {
          jpeg.density_unit = 1;
          jpeg.X_density = static_cast<UINT16>(metadata.dpi_x + 0.5);
          jpeg.Y_density = static_cast<UINT16>(metadata.dpi_y + 0.5);
        }
        jpeg_start_compress(&jpeg, TRUE);
        if (!metadata.icc_profile.empty()) {
          jpeg_write_icc_profile(&jpeg, metadata.icc_profile.data(),
                                 static_cast<unsigned>(metadata.icc_profile.size()));
        }
      })) {
    fail();
  }
  for (int y = 0; y < output.picture.height; ++y) {
    JSAMPROW row = const_cast<JSAMPROW>(rows.Row(y));
    if (!Guard(encoder.errors, [&] { jpeg_write_scanlines(&jpeg, &row, 1); })) fail();
  }
  if (!Guard(encoder.errors, [&] { jpeg_finish_compress(&jpeg); })) fail();
  return {encoder.bytes, encoder.bytes + encoder.size};
}

}  // namespace qel::pictures
