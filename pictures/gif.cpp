#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <exception>

#include "pictures/codec.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"

namespace qel::pictures {
namespace {

/// A file with the library's state; goes from record to record.
class Decoder {
 public:
  explicit Decoder(const Input& input) : input_(input) {
    int error = 0;
    gif = DGifOpen(this, &OnRead, &error);
    if (gif == nullptr) Fail(error);
  }
  ~Decoder() {
    int ignored = 0;
    DGifCloseFile(gif, &ignored);
  }
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;

  [[noreturn]] void Fail(int error) const {
    if (failure_) std::rethrow_exception(failure_);
    if (error == D_GIF_ERR_READ_FAILED || error == D_GIF_ERR_EOF_TOO_SOON) input_.Truncated();
    const char* const reason = GifErrorString(error);
    input_.Broken(std::string("damaged GIF: ") + (reason != nullptr ? reason : "unknown reason"));
  }
  void Check(int result) const {
    if (result != GIF_OK) Fail(gif->Error);
  }

  /// Goes on to the next frame and reads its description; false at the end of the file.
  bool FindFrame() {
    while (true) {
      GifRecordType type;
      Check(DGifGetRecordType(gif, &type));
      if (type == TERMINATE_RECORD_TYPE) return false;
      if (type == IMAGE_DESC_RECORD_TYPE) {
        Check(DGifGetImageDesc(gif));
        return true;
      }
      if (type == EXTENSION_RECORD_TYPE) ReadExtension();
    }
  }

  /// Index that stands for transparency, -1 without one.
  int transparent() const { return transparent_; }

  GifFileType* gif = nullptr;

 private:
  void ReadExtension() {
    int code = 0;
    GifByteType* block = nullptr;
    Check(DGifGetExtension(gif, &code, &block));
    GraphicsControlBlock control;
    if (code == GRAPHICS_EXT_FUNC_CODE && block != nullptr &&
        DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
      transparent_ = control.TransparentColor;
    }
    while (block != nullptr) Check(DGifGetExtensionNext(gif, &block));
  }

  /// No exception may pass through the frames of the library.
  static int OnRead(GifFileType* gif, GifByteType* data, int count) noexcept {
    auto* const decoder = static_cast<Decoder*>(gif->UserData);
    try {
      const Bytes bytes =
          decoder->input_.source.Load(decoder->position_, static_cast<size_t>(count));
      std::ranges::copy(bytes, data);
      decoder->position_ += bytes.size();
      return static_cast<int>(bytes.size());
    } catch (...) {
      decoder->failure_ = std::current_exception();
      return 0;
    }
  }

  const Input& input_;
  size_t position_ = 0;
  int transparent_ = -1;
  std::exception_ptr failure_;
};

/// Calls `put(y)` for each row of a frame in the order of the file.
template <typename Put>
void ForEachRow(const GifImageDesc& frame, const Put& put) {
  struct Pass {
    int first, step;
  };
  constexpr Pass kInterlaced[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
  constexpr Pass kPlain[] = {{0, 1}};
  const std::span<const Pass> passes =
      frame.Interlace ? std::span<const Pass>(kInterlaced) : std::span<const Pass>(kPlain);
  for (const auto& [first, step] : passes) {
    for (int y = first; y < frame.Height; y += step) put(y);
  }
}

std::vector<PaletteEntry> PaletteOf(const Input& input, const GifFileType& gif) {
  const ColorMapObject* const map =
      gif.Image.ColorMap != nullptr ? gif.Image.ColorMap : gif.SColorMap;
  if (map == nullptr) input.Broken("damaged GIF: the palette is missing");
  std::vector<PaletteEntry> palette;
  for (int i = 0; i < map->ColorCount; ++i) {
    palette.push_back({map->Colors[i].Blue, map->Colors[i].Green, map->Colors[i].Red, 0});
  }
  palette.resize(256);
  return palette;
}

/// Colours with alpha: what the frame leaves free of the picture is transparent, and so is one of
/// its indices.
void ReadTransparent(Decoder& decoder, const std::vector<PaletteEntry>& palette,
                     const PixelTarget& target, const PictureInfo& info) {
  const GifImageDesc frame = decoder.gif->Image;
  for (int y = 0; y < info.height; ++y) std::memset(target.Row(y), 0, RowBytes(info.width, 32));
  std::vector<uint8_t> indices(static_cast<size_t>(frame.Width));
  ForEachRow(frame, [&](int y) {
    decoder.Check(DGifGetLine(decoder.gif, indices.data(), frame.Width));
    uint8_t* pixel = target.Row(frame.Top + y) + ptrdiff_t{4} * frame.Left;
    for (const uint8_t index : indices) {
      const PaletteEntry& entry = palette[index];
      const auto alpha = static_cast<uint8_t>(index == decoder.transparent() ? 0 : 255);
      for (const uint8_t byte : {entry.blue, entry.green, entry.red, alpha}) *pixel++ = byte;
    }
  });
}

/// True when other frames follow. What is damaged behind the first is not looked at.
bool HasMoreFrames(Decoder& decoder) {
  try {
    return decoder.FindFrame();
  } catch (const PictureError&) {
    return false;
  }
}

}  // namespace

bool IsGif(Bytes file) { return StartsWith(file, "GIF87a") || StartsWith(file, "GIF89a"); }

PictureInfo ReadGif(const Input& input) {
  Decoder decoder(input);
  if (!decoder.FindFrame()) input.Broken("damaged GIF: it has no picture");
  const GifImageDesc frame = decoder.gif->Image;
  PictureInfo info;
  info.format = Format::kGif;
  info.width = std::max(decoder.gif->SWidth, frame.Left + frame.Width);
  info.height = std::max(decoder.gif->SHeight, frame.Top + frame.Height);
  CheckSize(input, info.width, info.height);
  CheckSize(input, frame.Width, frame.Height);
  // The longest entry of a table that is kept full takes a code of 12 bits.
  constexpr uint64_t kBestRatio = 4096;
  constexpr int64_t kSmall = int64_t{1} << 22;
  const int64_t canvas = int64_t{info.width} * info.height;
  const int64_t promised = canvas > kSmall ? canvas : int64_t{frame.Width} * frame.Height;
  input.CheckHolds(static_cast<uint64_t>(promised), kBestRatio);

  const std::vector<PaletteEntry> palette = PaletteOf(input, *decoder.gif);
  const bool covers =
      frame.Left == 0 && frame.Top == 0 && frame.Width == info.width && frame.Height == info.height;
  const bool keep = input.options.keep_palette_depth && covers;
  if (!keep && (!covers || decoder.transparent() >= 0)) {
    info.bit_count = 32;
    PixelTarget target(input, info);
    if (!target.WantsPixels()) return info;
    ReadTransparent(decoder, palette, target, info);
    target.Finish();
  } else {
    // The format has no grey of its own: a full ramp from black to white means it.
    const auto meaning =
        palette == GreyRamp(8) ? IndexRows::Meaning::kGrey : IndexRows::Meaning::kColour;
    const IndexRows rows(input.options, 8, palette, meaning, info);
    PixelTarget target(input, info);
    if (!target.WantsPixels()) return info;
    std::vector<uint8_t> indices(static_cast<size_t>(frame.Width));
    ForEachRow(frame, [&](int y) {
      decoder.Check(DGifGetLine(decoder.gif, indices.data(), frame.Width));
      rows.Put(indices.data(), frame.Width, target.Row(y), 0);
    });
    target.Finish();
    if (decoder.transparent() >= 0) info.notes.emplace_back(kPaletteAlphaNote);
  }
  if (HasMoreFrames(decoder)) {
    info.notes.emplace_back("an animation; only its first frame was read");
  }
  return info;
}

}  // namespace qel::pictures
