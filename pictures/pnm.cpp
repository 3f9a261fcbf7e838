#include <fmt/core.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <memory>
#include <optional>
#include <string_view>

#include "pictures/codec.h"
#include "pictures/color_rows.h"
#include "pictures/fresh_pages.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/sample_math.h"

namespace qel::pictures {
namespace {

bool IsBlank(uint8_t character) { return std::isspace(character) != 0; }

/// The text of a file, and the bytes behind it; what was passed is not kept.
class Scanner {
 public:
  Scanner(const Input& input, size_t at) : input_(input), at_(at) {}

  /// The next word, valid until the next call; blanks and comments before it are passed over, one
  /// blank after it is taken.
  std::string_view Word() {
    SkipBlanks();
    size_t size = 0;
    for (; More() && !IsBlank(Here()); ++at_) {
      if (size == sizeof(word_)) input_.Broken("there is no number where the format has one");
      word_[size++] = static_cast<char>(Here());
    }
    if (size == 0) input_.Truncated();
    if (More()) ++at_;
    return {word_, size};
  }

  uint32_t Number() {
    const std::string_view word = Word();
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size()) {
      input_.Broken("there is no number where the format has one");
    }
    return value;
  }

  /// One digit of a bitmap in text, where blanks between digits may be left out.
  uint8_t Bit() {
    SkipBlanks();
    if (!More()) input_.Truncated();
    const uint8_t digit = Here();
    ++at_;
    if (digit != '0' && digit != '1') input_.Broken("a bitmap has something else than 0 and 1");
    return digit == '1';
  }

  /// Bytes that follow, as far as the end of the file is known.
  size_t Left() const { return input_.source.KnowsSize() ? input_.source.size() - at_ : SIZE_MAX; }

  /// The next `count` bytes, valid until the next call. As many will be asked for `times` times,
  /// counting this one.
  const uint8_t* Take(size_t count, size_t times) {
    if (at_ < taken_at_ || at_ + count > taken_at_ + taken_) {
      constexpr size_t kAtATime = size_t{1} << 18;
      bytes_.Resize(count * std::min(times, std::max<size_t>(1, kAtATime / count)));
      window_ = {};
      input_.source.KeepOnly(at_);
      taken_ = input_.source.Copy(at_, {bytes_.data(), bytes_.size()});
      taken_at_ = at_;
      if (taken_ < count) input_.Truncated();
    }
    at_ += count;
    return bytes_.data() + (at_ - count - taken_at_);
  }

 private:
  /// Whether there is another character.
  bool More() {
    if (at_ - window_at_ < window_.size()) return true;
    constexpr size_t kAhead = size_t{1} << 16;
    input_.source.KeepOnly(at_);
    window_ = input_.source.Load(at_, kAhead);
    window_at_ = at_;
    return !window_.empty();
  }
  uint8_t Here() const { return window_[at_ - window_at_]; }

  void SkipBlanks() {
    for (bool comment = false; More() && (comment || IsBlank(Here()) || Here() == '#'); ++at_) {
      comment = comment ? Here() != '\n' : Here() == '#';
    }
  }

  const Input& input_;
  size_t at_;
  Bytes window_;  ///< a part of the file that has the next character
  size_t window_at_ = 0;
  FreshPages bytes_;  ///< that `Take` has read
  size_t taken_at_ = 0;
  size_t taken_ = 0;
  char word_[64];
};

struct PnmHeader {
  char kind = 0;  ///< '1' to '7'
  int64_t width = 0;
  int64_t height = 0;
  uint32_t channels = 1;
  uint32_t largest = 1;

  bool InText() const { return kind <= '3'; }
  bool IsBitmap() const { return kind == '1' || kind == '4'; }
  size_t SampleBytes() const { return largest > 255 ? 2 : 1; }
  size_t RowSamples() const { return static_cast<size_t>(width) * channels; }
};

void ReadPamHeader(const Input& input, Scanner& scanner, PnmHeader& header) {
  while (true) {
    const std::string_view key = scanner.Word();
    if (key == "ENDHDR") return;
    if (key == "WIDTH") {
      header.width = scanner.Number();
    } else if (key == "HEIGHT") {
      header.height = scanner.Number();
    } else if (key == "DEPTH") {
      header.channels = scanner.Number();
    } else if (key == "MAXVAL") {
      header.largest = scanner.Number();
    } else if (key == "TUPLTYPE") {
      scanner.Word();  // told by the depth just as well
    } else {
      input.Broken("the PAM header has an unknown line");
    }
  }
}

PnmHeader ReadHeader(const Input& input, Scanner& scanner) {
  PnmHeader header;
  header.kind = static_cast<char>(input.source.Load(1, 1)[0]);
  if (header.kind == '7') {
    ReadPamHeader(input, scanner, header);
  } else {
    header.width = scanner.Number();
    header.height = scanner.Number();
    header.channels = header.kind == '3' || header.kind == '6' ? 3 : 1;
    if (!header.IsBitmap()) header.largest = scanner.Number();
  }
  if (header.largest < 1 || header.largest > 65535) {
    input.Broken("the largest sample is {}; 1 to 65535 are possible", header.largest);
  }
  if (header.channels < 1 || header.channels > 4) {
    input.Unsupported("a PAM of {} channels; 1 to 4 are read", header.channels);
  }
  return header;
}

/// Throws when the file is shorter than its pixels must be, before memory is asked for.
void CheckLength(const Input& input, const PnmHeader& header, const Scanner& scanner) {
  uint64_t row_bytes = header.RowSamples() * (header.InText() ? 1 : header.SampleBytes());
  if (header.kind == '4') row_bytes = RowBytes(static_cast<int>(header.width), 1);
  if (row_bytes * static_cast<uint64_t>(header.height) > scanner.Left()) input.Truncated();
}

class PnmDecoder final : public RowDecoder {
 public:
  explicit PnmDecoder(const Input& input)
      : input_(input), scanner_(input, 3), header_(ReadHeader(input, scanner_)) {
    CheckSize(input, header_.width, header_.height);
    CheckLength(input, header_, scanner_);
    info.format = Format::kPnm;
    info.width = static_cast<int>(header_.width);
    info.height = static_cast<int>(header_.height);
    rows_left_ = header_.height;
    if (header_.IsBitmap()) {
      // A set bit is black.
      const std::vector<PaletteEntry> palette{{255, 255, 255, 0}, {0, 0, 0, 0}};
      bits_.emplace(input.options, 1, palette, IndexRows::Meaning::kGray, info);
      return;
    }
    info.bit_count = HasAlpha() ? 32 : HasColor() ? 24 : 8;
    if (header_.SampleBytes() == 2) info.notes.emplace_back(kReducedNote);
    for (uint32_t value = 0; value <= std::min(header_.largest, 255u); ++value) {
      scaled_[value] = ScaleToByte(value, header_.largest);
    }
  }

  void Read(const PixelBuffer& rows, int count) override {
    samples_.Resize(header_.RowSamples());
    for (int y = 0; y < count; ++y) {
      uint8_t* const row = rows.bits + y * rows.stride;
      if (bits_) {
        ReadBits();
        bits_->Put(samples_.data(), info.width, row, 0);
      } else {
        StorePixels(ReadSamples(), row);
      }
      --rows_left_;
    }
  }

 private:
  bool HasAlpha() const { return header_.channels == 2 || header_.channels == 4; }
  bool HasColor() const { return header_.channels >= 3; }

  std::span<uint8_t> Samples() { return {samples_.data(), samples_.size()}; }
  const uint8_t* TakeRow(size_t bytes) {
    return scanner_.Take(bytes, static_cast<size_t>(rows_left_));
  }

  void ReadBits() {
    if (header_.InText()) {
      for (uint8_t& bit : Samples()) bit = scanner_.Bit();
    } else {
      UnpackIndices(TakeRow(RowBytes(info.width, 1)), 1, info.width, samples_.data());
    }
  }

  /// Reads the samples of a row, scaled to 0 to 255; valid until the next call.
  const uint8_t* ReadSamples() {
    const bool text = header_.InText();
    const uint8_t* from = text ? nullptr : TakeRow(samples_.size() * header_.SampleBytes());
    if (!text && header_.largest == 255) return from;
    for (uint8_t& sample : Samples()) {
      uint32_t value;
      if (text) {
        value = scanner_.Number();
      } else {
        value = *from++;
        if (header_.SampleBytes() == 2) value = value << 8 | *from++;
      }
      if (value > header_.largest) input_.Broken("a sample is larger than the stated maximum");
      sample = header_.largest <= 255 ? scaled_[value] : ScaleToByte(value, header_.largest);
    }
    return samples_.data();
  }

  void StorePixels(const uint8_t* from, uint8_t* pixel) const {
    if (info.bit_count == 8) {
      std::copy_n(from, info.width, pixel);
      return;
    }
    const bool color = HasColor();
    const ptrdiff_t bytes = info.bit_count / 8;
    for (int x = 0; x < info.width; ++x, from += header_.channels, pixel += bytes) {
      pixel[0] = from[color ? 2 : 0];
      pixel[1] = from[color ? 1 : 0];
      pixel[2] = from[0];
      if (bytes == 4) pixel[3] = from[header_.channels - 1];
    }
  }

  const Input& input_;
  Scanner scanner_;
  PnmHeader header_;
  std::optional<IndexRows> bits_;  ///< of bitmaps
  FreshPages samples_;             ///< of a row
  int64_t rows_left_ = 0;
  std::array<uint8_t, 256> scaled_{};
};

constexpr char kBitmapsOnly[] =
    "PBM holds pictures of 1 bit, black and white; choose .pgm, .ppm or .pam";
constexpr char kGraysOnly[] = "PGM holds grey pictures; choose .ppm or .pam";

/// The text before the pixels; `channels` is 0 for a bitmap.
std::string HeaderText(const PictureView& shape, bool pam, int channels) {
  if (!pam) {
    const std::string kind = channels == 0 ? "P4" : channels == 1 ? "P5" : "P6";
    return fmt::format("{}\n{} {}\n{}", kind, shape.width, shape.height,
                       channels == 0 ? "" : "255\n");
  }
  const char* const tuple = channels == 1 ? "GRAYSCALE" : channels == 3 ? "RGB" : "RGB_ALPHA";
  return fmt::format("P7\nWIDTH {}\nHEIGHT {}\nDEPTH {}\nMAXVAL 255\nTUPLTYPE {}\nENDHDR\n",
                     shape.width, shape.height, channels, tuple);
}

/// True when a 1-bit picture has black and white only, as bitmaps do.
bool IsBlackAndWhite(const PictureView& shape) {
  if (shape.bit_count != 1) return false;
  const std::vector<PaletteEntry> palette = PaletteOf(shape);
  return IsGray(palette) && std::ranges::all_of(palette, [](const PaletteEntry& entry) {
           return entry.blue == 0 || entry.blue == 255;
         });
}

class PnmEncoder final : public RowEncoder {
 public:
  PnmEncoder(const Output& output, bool pam, bool bitmap, const ColorRows& rows)
      : RowEncoder(output), bitmap_(bitmap), rows_(rows) {
    row_.resize(RowBytes(output.shape.width, bitmap ? 1 : rows.bit_count()));
    if (!pam) alpha_lost_by = "PNM";
    output.sink.Write(BytesOf(HeaderText(output.shape, pam, bitmap ? 0 : rows.bit_count() / 8)));
  }

  void Write(const PictureView& rows) override {
    for (int y = 0; y < rows.height; ++y) {
      const uint8_t* const row = rows_.Convert(rows.Row(y));
      if (bitmap_) {
        std::ranges::fill(row_, uint8_t{0});
        for (int x = 0; x < rows.width; ++x) StoreIndex(row_.data(), 1, x, row[x] == 0);
      } else {
        std::copy_n(row, row_.size(), row_.begin());
        const ptrdiff_t bytes = rows_.bit_count() / 8;
        uint8_t* const end = row_.data() + row_.size();
        for (uint8_t* pixel = row_.data(); bytes > 1 && pixel < end; pixel += bytes) {
          std::swap(pixel[0], pixel[2]);
        }
      }
      output_.sink.Write(row_);
    }
  }

 private:
  bool bitmap_;
  ColorRows rows_;
  std::vector<uint8_t> row_;
};

}  // namespace

bool IsPnm(Bytes file) {
  return file.size() >= 3 && file[0] == 'P' && file[1] >= '1' && file[1] <= '7' && IsBlank(file[2]);
}

std::unique_ptr<RowDecoder> OpenPnm(const Input& input) {
  return std::make_unique<PnmDecoder>(input);
}

void CheckPnmShape(const OutputShape& shape) {
  if (shape.extension == ".pbm" && shape.bit_count != 1) shape.DoesNotFit(kBitmapsOnly);
  if (shape.extension == ".pgm" && shape.bit_count > 8) shape.DoesNotFit(kGraysOnly);
}

std::unique_ptr<RowEncoder> StartPnm(const Output& output) {
  const PictureView& shape = output.shape;
  const std::string& stated = output.options.extension;
  const std::string extension = ExtensionOf(stated.empty() ? output.path : stated);
  const bool pam = extension == ".pam";
  // Without an extension that says which, the picture says it.
  const bool any = !pam && extension != ".pbm" && extension != ".pgm" && extension != ".ppm";
  const bool bitmap = extension == ".pbm" || (any && IsBlackAndWhite(shape));
  if (bitmap && !IsBlackAndWhite(shape)) {
    output.DoesNotFit(kBitmapsOnly);
  }
  const ColorRows rows(shape, pam ? ColorRows::Alpha::kKeep : ColorRows::Alpha::kDrop,
                       extension == ".ppm" ? ColorRows::Gray::kSpread : ColorRows::Gray::kKeep);
  if (extension == ".pgm" && rows.bit_count() != 8) {
    output.DoesNotFit(kGraysOnly);
  }
  output.NoteLostProfile("PNM");
  output.NoteLostResolution("PNM");
  output.NoteLostTexts("PNM");
  return std::make_unique<PnmEncoder>(output, pam, bitmap, rows);
}

}  // namespace qel::pictures
