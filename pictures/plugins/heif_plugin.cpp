// HEIC and AVIF through libheif.

#include <libheif/heif.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "pictures/format_plugin.h"

namespace {

void Report(const heif_error& from, QelPluginError* error) {
  error->is_unsupported =
      from.code == heif_error_Unsupported_feature || from.code == heif_error_Unsupported_filetype;
  std::snprintf(error->text, sizeof(error->text), "%s", from.message);
}

struct Picture {
  Picture() = default;
  Picture(const Picture&) = delete;
  Picture& operator=(const Picture&) = delete;
  ~Picture() {
    heif_image_handle_release(main);
    heif_context_free(context);
  }

  heif_context* context = heif_context_alloc();
  heif_image_handle* main = nullptr;
  bool upright = true;
  std::vector<uint8_t> profile, exif, xmp;
};

void ReadMetadata(Picture& picture) {
  const size_t profile_bytes = heif_image_handle_get_raw_color_profile_size(picture.main);
  if (profile_bytes > 0) {
    picture.profile.resize(profile_bytes);
    heif_image_handle_get_raw_color_profile(picture.main, picture.profile.data());
  }
  heif_item_id ids[16];
  const int count =
      heif_image_handle_get_list_of_metadata_block_IDs(picture.main, nullptr, ids, 16);
  for (int i = 0; i < count; ++i) {
    std::vector<uint8_t> block(heif_image_handle_get_metadata_size(picture.main, ids[i]));
    if (block.empty() ||
        heif_image_handle_get_metadata(picture.main, ids[i], block.data()).code != heif_error_Ok) {
      continue;
    }
    const char* const type = heif_image_handle_get_metadata_type(picture.main, ids[i]);
    const char* const content = heif_image_handle_get_metadata_content_type(picture.main, ids[i]);
    constexpr size_t kOffsetBytes = 4;
    if (std::strcmp(type, "Exif") == 0 && block.size() > kOffsetBytes) {
      // The block begins with how far its header is from there.
      const size_t skipped = kOffsetBytes + (size_t{block[0]} << 24 | size_t{block[1]} << 16 |
                                             size_t{block[2]} << 8 | block[3]);
      if (skipped < block.size())
        picture.exif.assign(block.begin() + static_cast<ptrdiff_t>(skipped), block.end());
    } else if (content != nullptr && std::strcmp(content, "application/rdf+xml") == 0) {
      picture.xmp = std::move(block);
    }
  }
}

void Describe(const Picture& picture, QelPluginPicture* out) {
  const heif_image_handle* const main = picture.main;
  const bool turned = picture.upright;
  const int width =
      turned ? heif_image_handle_get_width(main) : heif_image_handle_get_ispe_width(main);
  const int height =
      turned ? heif_image_handle_get_height(main) : heif_image_handle_get_ispe_height(main);
  out->width = static_cast<uint32_t>(std::max(width, 0));
  out->height = static_cast<uint32_t>(std::max(height, 0));
  // Planes of colour, and the same interleaved.
  out->working_bytes = uint64_t{8} * out->width * out->height;
  out->has_alpha = heif_image_handle_has_alpha_channel(main);
  out->was_reduced = heif_image_handle_get_luma_bits_per_pixel(main) > 8;
  out->pictures = static_cast<uint32_t>(
      std::max(heif_context_get_number_of_top_level_images(picture.context), 0));
  // The library turns by properties of the file; the EXIF block only repeats them.
  out->orientation = 1;
  const auto give = [](const std::vector<uint8_t>& block, const uint8_t** bytes, size_t* size) {
    *bytes = block.empty() ? nullptr : block.data();
    *size = block.size();
  };
  give(picture.profile, &out->profile, &out->profile_bytes);
  give(picture.exif, &out->exif, &out->exif_bytes);
  give(picture.xmp, &out->xmp, &out->xmp_bytes);
}

void* Open(const uint8_t* file, size_t file_bytes, int upright, QelPluginPicture* out,
           QelPluginError* error) noexcept try {
  auto picture = std::make_unique<Picture>();
  picture->upright = upright != 0;
  heif_error result =
      heif_context_read_from_memory_without_copy(picture->context, file, file_bytes, nullptr);
  if (result.code == heif_error_Ok) {
    result = heif_context_get_primary_image_handle(picture->context, &picture->main);
  }
  if (result.code != heif_error_Ok) {
    Report(result, error);
    return nullptr;
  }
  ReadMetadata(*picture);
  Describe(*picture, out);
  return picture.release();
} catch (const std::exception& failure) {
  std::snprintf(error->text, sizeof(error->text), "%s", failure.what());
  return nullptr;
}

/// Colours that were multiplied by their alpha, as straight ones.
uint8_t DivideByAlpha(unsigned value, unsigned alpha) {
  return static_cast<uint8_t>(alpha == 0 ? 0 : std::min(255u, (value * 255 + alpha / 2) / alpha));
}

int Decode(void* handle, uint8_t* bits, ptrdiff_t stride, QelPluginError* error) noexcept {
  const auto& picture = *static_cast<const Picture*>(handle);
  const bool alpha = heif_image_handle_has_alpha_channel(picture.main) != 0;
  const bool multiplied = alpha && heif_image_handle_is_premultiplied_alpha(picture.main) != 0;
  heif_decoding_options* const options = heif_decoding_options_alloc();
  options->ignore_transformations = picture.upright ? 0 : 1;
  heif_image* image = nullptr;
  const heif_error result = heif_decode_image(
      picture.main, &image, heif_colorspace_RGB,
      alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, options);
  heif_decoding_options_free(options);
  if (result.code != heif_error_Ok) {
    Report(result, error);
    return 0;
  }
  const std::unique_ptr<heif_image, void (*)(const heif_image*)> owner(image, &heif_image_release);
  QelPluginPicture expected{};
  Describe(picture, &expected);
  int from_stride = 0;
  const uint8_t* const from =
      heif_image_get_plane_readonly(image, heif_channel_interleaved, &from_stride);
  const int width = heif_image_get_width(image, heif_channel_interleaved);
  const int height = heif_image_get_height(image, heif_channel_interleaved);
  if (from == nullptr || static_cast<uint32_t>(width) != expected.width ||
      static_cast<uint32_t>(height) != expected.height) {
    std::snprintf(error->text, sizeof(error->text), "the picture is not of the size it states");
    return 0;
  }
  const ptrdiff_t bytes = alpha ? 4 : 3;
  for (int y = 0; y < height; ++y) {
    const uint8_t* pixel = from + ptrdiff_t{y} * from_stride;
    uint8_t* out = bits + y * stride;
    for (int x = 0; x < width; ++x, pixel += bytes, out += bytes) {
      for (int c = 0; c < 3; ++c) {
        out[2 - c] = multiplied ? DivideByAlpha(pixel[c], pixel[3]) : pixel[c];
      }
      if (alpha) out[3] = pixel[3];
    }
  }
  return 1;
}

void Close(void* handle) noexcept { delete static_cast<Picture*>(handle); }

}  // namespace

extern "C" [[gnu::visibility("default")]] const QelFormatPlugin* QelFormatPluginEntry() {
  static constexpr QelFormatPlugin kPlugin{kQelFormatPluginVersion, &Open, &Decode, &Close};
  return &kPlugin;
}
