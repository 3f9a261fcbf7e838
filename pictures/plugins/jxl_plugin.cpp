// JPEG XL through libjxl.

#include <jxl/decode.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "pictures/format_plugin.h"

namespace {

struct DecoderDeleter {
  void operator()(JxlDecoder* decoder) const { JxlDecoderDestroy(decoder); }
};
using Decoder = std::unique_ptr<JxlDecoder, DecoderDeleter>;

struct Picture {
  const uint8_t* file = nullptr;
  size_t file_bytes = 0;
  bool upright = true;
  JxlBasicInfo info{};
  std::vector<uint8_t> profile, exif, xmp;
};

bool Fail(QelPluginError* error, const char* reason, bool unsupported = false) {
  error->is_unsupported = unsupported;
  std::snprintf(error->text, sizeof(error->text), "%s", reason);
  return false;
}

Decoder Start(const Picture& picture, int events) {
  Decoder decoder(JxlDecoderCreate(nullptr));
  if (decoder == nullptr) throw std::bad_alloc();
  JxlDecoderSubscribeEvents(decoder.get(), events);
  JxlDecoderSetKeepOrientation(decoder.get(), picture.upright ? JXL_FALSE : JXL_TRUE);
  JxlDecoderSetUnpremultiplyAlpha(decoder.get(), JXL_TRUE);
  JxlDecoderSetDecompressBoxes(decoder.get(), JXL_TRUE);
  JxlDecoderSetInput(decoder.get(), picture.file, picture.file_bytes);
  return decoder;
}

JxlPixelFormat FormatOf(const Picture& picture) {
  return {picture.info.alpha_bits > 0 ? 4u : 3u, JXL_TYPE_UINT8, JXL_NATIVE_ENDIAN, 0};
}

void TakeProfile(const JxlDecoder* decoder, Picture& picture) {
  const JxlPixelFormat format = FormatOf(picture);
  size_t size = 0;
  constexpr auto kTarget = JXL_COLOR_PROFILE_TARGET_DATA;
  if (JxlDecoderGetICCProfileSize(decoder, &format, kTarget, &size) != JXL_DEC_SUCCESS) return;
  picture.profile.resize(size);
  if (JxlDecoderGetColorAsICCProfile(decoder, &format, kTarget, picture.profile.data(), size) !=
      JXL_DEC_SUCCESS) {
    picture.profile.clear();
  }
}

/// A box of metadata that is being read, in growing steps.
class Box {
 public:
  void Begin(JxlDecoder* decoder) {
    JxlBoxType type;
    wanted_ = nullptr;
    if (JxlDecoderGetBoxType(decoder, type, JXL_TRUE) != JXL_DEC_SUCCESS) return;
    if (std::memcmp(type, "Exif", 4) == 0) wanted_ = &exif;
    if (std::memcmp(type, "xml ", 4) == 0) wanted_ = &xmp;
    if (wanted_ == nullptr || !wanted_->empty()) return;
    wanted_->resize(kStep);
    JxlDecoderSetBoxBuffer(decoder, wanted_->data(), wanted_->size());
  }
  void Grow(JxlDecoder* decoder) {
    const size_t used = wanted_->size() - JxlDecoderReleaseBoxBuffer(decoder);
    wanted_->resize(std::min(wanted_->size() * 2, kMost));
    JxlDecoderSetBoxBuffer(decoder, wanted_->data() + used, wanted_->size() - used);
  }
  bool IsFull() const { return wanted_ == nullptr || wanted_->size() >= kMost; }
  void End(JxlDecoder* decoder) {
    if (wanted_ == nullptr) return;
    wanted_->resize(wanted_->size() - JxlDecoderReleaseBoxBuffer(decoder));
    wanted_ = nullptr;
  }

  std::vector<uint8_t> exif, xmp;

 private:
  static constexpr size_t kStep = size_t{1} << 16;
  static constexpr size_t kMost = size_t{1} << 24;
  std::vector<uint8_t>* wanted_ = nullptr;
};

bool ReadHeader(Picture& picture, QelPluginError* error) {
  const Decoder decoder = Start(picture, JXL_DEC_BASIC_INFO | JXL_DEC_COLOR_ENCODING | JXL_DEC_BOX);
  Box box;
  bool known = false;
  while (true) {
    switch (JxlDecoderProcessInput(decoder.get())) {
      case JXL_DEC_BASIC_INFO:
        known = JxlDecoderGetBasicInfo(decoder.get(), &picture.info) == JXL_DEC_SUCCESS;
        break;
      case JXL_DEC_COLOR_ENCODING:
        TakeProfile(decoder.get(), picture);
        break;
      case JXL_DEC_BOX:
        box.End(decoder.get());
        box.Begin(decoder.get());
        break;
      case JXL_DEC_BOX_NEED_MORE_OUTPUT:
        if (box.IsFull()) return Fail(error, "its metadata are too long", true);
        box.Grow(decoder.get());
        break;
      case JXL_DEC_SUCCESS: {
        box.End(decoder.get());
        constexpr size_t kOffsetBytes = 4;
        if (box.exif.size() > kOffsetBytes) {
          picture.exif.assign(box.exif.begin() + kOffsetBytes, box.exif.end());
        }
        picture.xmp = std::move(box.xmp);
        return known || Fail(error, "it has no header");
      }
      case JXL_DEC_NEED_MORE_INPUT:
        return Fail(error, "the file ends too early");
      default:
        return Fail(error, "its data contradict themselves");
    }
  }
}

void* Open(const uint8_t* file, size_t file_bytes, int upright, QelPluginPicture* out,
           QelPluginError* error) noexcept try {
  auto picture = std::make_unique<Picture>();
  picture->file = file;
  picture->file_bytes = file_bytes;
  picture->upright = upright != 0;
  if (!ReadHeader(*picture, error)) return nullptr;
  const JxlBasicInfo& info = picture->info;
  out->width = info.xsize;
  out->height = info.ysize;
  out->orientation = picture->upright ? 1 : static_cast<uint32_t>(info.orientation);
  // The library works with floats.
  out->working_bytes = uint64_t{16} * out->width * out->height;
  out->has_alpha = info.alpha_bits > 0;
  out->was_reduced = info.bits_per_sample > 8;
  out->pictures = info.have_animation ? 2 : 1;
  const auto give = [](const std::vector<uint8_t>& block, const uint8_t** bytes, size_t* size) {
    *bytes = block.empty() ? nullptr : block.data();
    *size = block.size();
  };
  give(picture->profile, &out->profile, &out->profile_bytes);
  give(picture->exif, &out->exif, &out->exif_bytes);
  give(picture->xmp, &out->xmp, &out->xmp_bytes);
  return picture.release();
} catch (const std::exception& failure) {
  Fail(error, failure.what());
  return nullptr;
}

struct Rows {
  uint8_t* bits;
  ptrdiff_t stride;
  ptrdiff_t bytes;
  size_t width;
  size_t height;
};

void PutPixels(void* opaque, size_t x, size_t y, size_t count, const void* pixels) {
  const auto& rows = *static_cast<const Rows*>(opaque);
  if (y >= rows.height || x > rows.width || count > rows.width - x) return;
  const auto* pixel = static_cast<const uint8_t*>(pixels);
  uint8_t* out =
      rows.bits + static_cast<ptrdiff_t>(y) * rows.stride + static_cast<ptrdiff_t>(x) * rows.bytes;
  for (; count > 0; --count, pixel += rows.bytes, out += rows.bytes) {
    for (ptrdiff_t c = 0; c < 3; ++c) out[2 - c] = pixel[c];
    if (rows.bytes == 4) out[3] = pixel[3];
  }
}

int Decode(void* handle, uint8_t* bits, ptrdiff_t stride, QelPluginError* error) noexcept try {
  const auto& picture = *static_cast<const Picture*>(handle);
  const JxlPixelFormat format = FormatOf(picture);
  Rows rows{bits, stride, static_cast<ptrdiff_t>(format.num_channels), picture.info.xsize,
            picture.info.ysize};
  const Decoder decoder = Start(picture, JXL_DEC_FULL_IMAGE);
  while (true) {
    switch (JxlDecoderProcessInput(decoder.get())) {
      case JXL_DEC_NEED_IMAGE_OUT_BUFFER:
        if (JxlDecoderSetImageOutCallback(decoder.get(), &format, &PutPixels, &rows) !=
            JXL_DEC_SUCCESS) {
          return Fail(error, "its colours have no meaning here", true);
        }
        break;
      case JXL_DEC_FULL_IMAGE:
        return 1;  // of an animation the first frame
      case JXL_DEC_NEED_MORE_INPUT:
        return Fail(error, "the file ends too early");
      default:
        return Fail(error, "its data contradict themselves");
    }
  }
} catch (const std::exception& failure) {
  return Fail(error, failure.what());
}

void Close(void* handle) noexcept { delete static_cast<Picture*>(handle); }

}  // namespace

extern "C" [[gnu::visibility("default")]] const QelFormatPlugin* QelFormatPluginEntry() {
  static constexpr QelFormatPlugin kPlugin{kQelFormatPluginVersion, &Open, &Decode, &Close};
  return &kPlugin;
}
