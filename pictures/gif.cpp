#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <exception>
#include <memory>
#include <optional>

#include "pictures/codec.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"

namespace qel::pictures {
namespace {

/// A file with the library's state; goes from record to record.
class GifFile {
 public:
  explicit GifFile(const Input& input) : input_(input) {
    int error = 0;
    gif = DGifOpen(this, &OnRead, &error);
    if (gif == nullptr) Fail(error);
  }
  ~GifFile() {
    int ignored = 0;
    DGifCloseFile(gif, &ignored);
  }
  GifFile(const GifFile&) = delete;
  GifFile& operator=(const GifFile&) = delete;

  [[noreturn]] void Fail(int error) const {
    if (failure_) std::rethrow_exception(failure_);
    if (error == D_GIF_ERR_READ_FAILED || error == D_GIF_ERR_EOF_TOO_SOON) input_.Truncated();
    const char* const reason = GifErrorString(error);
    input_.Broken("damaged GIF: {}", reason != nullptr ? reason : "unknown reason");
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
    auto* const file = static_cast<GifFile*>(gif->UserData);
    try {
      const Bytes bytes = file->input_.source.Load(file->position_, static_cast<size_t>(count));
      std::ranges::copy(bytes, data);
      file->position_ += bytes.size();
      file->input_.source.KeepOnly(file->position_);
      return static_cast<int>(bytes.size());
    } catch (...) {
      file->failure_ = std::current_exception();
      return 0;
    }
  }

  const Input& input_;
  size_t position_ = 0;
  int transparent_ = -1;
  std::exception_ptr failure_;
};

/// The rows of a frame in the order of the file.
std::vector<int> StoredOrder(const GifImageDesc& frame) {
  struct Pass {
    int first, step;
  };
  constexpr Pass kInterlaced[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
  constexpr Pass kPlain[] = {{0, 1}};
  const std::span<const Pass> passes =
      frame.Interlace ? std::span<const Pass>(kInterlaced) : std::span<const Pass>(kPlain);
  std::vector<int> rows;
  for (const auto& [first, step] : passes) {
    for (int y = first; y < frame.Height; y += step) rows.push_back(y);
  }
  return rows;
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

class GifDecoder final : public RowDecoder {
 public:
  explicit GifDecoder(const Input& input) : file_(input) {
    if (!file_.FindFrame()) input.Broken("damaged GIF: it has no picture");
    const GifFileType& gif = *file_.gif;
    frame_ = gif.Image;
    info.format = Format::kGif;
    info.width = std::max(gif.SWidth, frame_.Left + frame_.Width);
    info.height = std::max(gif.SHeight, frame_.Top + frame_.Height);
    CheckSize(input, info.width, info.height);
    CheckSize(input, frame_.Width, frame_.Height);
    // The longest entry of a table that is kept full takes a code of 12 bits.
    constexpr uint64_t kBestRatio = 4096;
    constexpr int64_t kSmall = int64_t{1} << 22;
    const int64_t canvas = int64_t{info.width} * info.height;
    const int64_t promised = canvas > kSmall ? canvas : int64_t{frame_.Width} * frame_.Height;
    input.CheckHolds(static_cast<uint64_t>(promised), kBestRatio);
    palette_ = PaletteOf(input, gif);
    transparent_ = file_.transparent();
    line_.resize(static_cast<size_t>(frame_.Width));
    streams = !frame_.Interlace;
    const bool covers = frame_.Left == 0 && frame_.Top == 0 && frame_.Width == info.width &&
                        frame_.Height == info.height;
    const bool keep = input.options.keep_palette_depth && covers;
    if (!keep && (!covers || transparent_ >= 0)) {
      info.bit_count = 32;
      return;
    }
    // The format has no grey of its own: a full ramp from black to white means it.
    const auto meaning =
        palette_ == GrayRamp(8) ? IndexRows::Meaning::kGray : IndexRows::Meaning::kColor;
    indices_.emplace(input.options, 8, palette_, meaning, info);
  }

  void Read(const PixelBuffer& rows, int count) override {
    const auto row = [&](int y) { return rows.bits + (y - next_) * rows.stride; };
    if (!indices_) {
      // What the frame leaves free of the picture is transparent.
      for (int y = 0; y < count; ++y) {
        std::memset(rows.bits + y * rows.stride, 0, RowBytes(info.width, 32));
      }
    }
    if (frame_.Interlace) {
      for (const int y : StoredOrder(frame_)) ReadLine(row(frame_.Top + y));
    } else {
      const int end = std::min(next_ + count, frame_.Top + frame_.Height);
      for (int y = std::max(next_, frame_.Top); y < end; ++y) ReadLine(row(y));
    }
    next_ += count;
  }

  void Finish() override {
    if (indices_ && transparent_ >= 0) info.notes.emplace_back(kPaletteAlphaNote);
    if (HasMoreFrames()) info.notes.emplace_back("an animation; only its first frame was read");
  }

 private:
  /// The next line of the file as a row of the picture.
  void ReadLine(uint8_t* row) {
    file_.Check(DGifGetLine(file_.gif, line_.data(), frame_.Width));
    if (indices_) {
      indices_->Put(line_.data(), frame_.Width, row, 0);
      return;
    }
    uint8_t* pixel = row + ptrdiff_t{4} * frame_.Left;
    for (const uint8_t index : line_) {
      const PaletteEntry& entry = palette_[index];
      const auto alpha = static_cast<uint8_t>(index == transparent_ ? 0 : 255);
      for (const uint8_t byte : {entry.blue, entry.green, entry.red, alpha}) *pixel++ = byte;
    }
  }

  /// True when other frames follow. What is damaged behind the first is not looked at.
  bool HasMoreFrames() {
    try {
      return file_.FindFrame();
    } catch (const PictureError&) {
      return false;
    }
  }

  GifFile file_;
  GifImageDesc frame_;
  std::vector<PaletteEntry> palette_;
  int transparent_ = -1;
  std::optional<IndexRows> indices_;  ///< nothing for colours with alpha
  std::vector<uint8_t> line_;
  int next_ = 0;  ///< row of the picture
};

}  // namespace

bool IsGif(Bytes file) { return StartsWith(file, "GIF87a") || StartsWith(file, "GIF89a"); }

std::unique_ptr<RowDecoder> OpenGif(const Input& input) {
  return std::make_unique<GifDecoder>(input);
}

}  // namespace qel::pictures
