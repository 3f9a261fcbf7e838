#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <string_view>

#include "pictures/codec.h"
#include "pictures/colour_rows.h"
#include "pictures/index_rows.h"
#include "pictures/pixel_target.h"
#include "pictures/sample_math.h"

namespace qel::pictures {
namespace {

bool IsBlank(uint8_t character) { return std::isspace(character) != 0; }

/// The text of a file.
class Scanner {
 public:
  Scanner(const Input& input, size_t at) : input_(input), at_(at) {}

  /// The next word; blanks and comments before it are passed over, one blank after it is taken.
  std::string_view Word() {
    SkipBlanks();
    constexpr size_t kLongest = 64;
    const size_t begin = at_;
    while (More() && !IsBlank(file_[at_])) {
      if (++at_ - begin > kLongest) input_.Broken("there is no number where the format has one");
    }
    const std::string_view word = Text(begin, at_);
    if (word.empty()) input_.Truncated();
    if (More()) ++at_;
    return word;
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
    const uint8_t digit = file_[at_++];
    if (digit != '0' && digit != '1') input_.Broken("a bitmap has something else than 0 and 1");
    return digit == '1';
  }

  void SkipLine() {
    while (More() && file_[at_++] != '\n') {
    }
  }

  size_t Left() const { return input_.source.size() - at_; }

  /// The next `count` bytes, which must be there.
  const uint8_t* Take(size_t count) {
    const uint8_t* const bytes = input_.source.Load(at_, count).data();
    at_ += count;
    return bytes;
  }

 private:
  std::string_view Text(size_t begin, size_t end) const {
    return {reinterpret_cast<const char*>(file_.data()) + begin, end - begin};
  }
  /// Whether there is another character, which `file_` then has.
  bool More() {
    constexpr size_t kAhead = size_t{1} << 16;
    if (at_ >= file_.size()) file_ = input_.source.Load(0, at_ + kAhead);
    return at_ < file_.size();
  }
  void SkipBlanks() {
    while (More() && (IsBlank(file_[at_]) || file_[at_] == '#')) {
      if (file_[at_] == '#') {
        SkipLine();
      } else {
        ++at_;
      }
    }
  }

  const Input& input_;
  Bytes file_;  ///< its beginning, as far as it was looked at
  size_t at_;
};

struct Header {
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

void ReadPamHeader(const Input& input, Scanner& scanner, Header& header) {
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

Header ReadHeader(const Input& input, Scanner& scanner) {
  Header header;
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
    input.Broken("the largest sample is " + std::to_string(header.largest) +
                 "; 1 to 65535 are possible");
  }
  if (header.channels < 1 || header.channels > 4) {
    input.Unsupported("a PAM of " + std::to_string(header.channels) + " channels; 1 to 4 are read");
  }
  return header;
}

/// Throws when the file is shorter than its pixels must be, before memory is asked for.
void CheckLength(const Input& input, const Header& header, const Scanner& scanner) {
  uint64_t row_bytes = header.RowSamples() * (header.InText() ? 1 : header.SampleBytes());
  if (header.kind == '4') row_bytes = RowBytes(static_cast<int>(header.width), 1);
  if (row_bytes * static_cast<uint64_t>(header.height) > scanner.Left()) input.Truncated();
}

void ReadBitmap(const Input& input, const Header& header, Scanner& scanner, PictureInfo& info) {
  // A set bit is black.
  const std::vector<PaletteEntry> palette{{255, 255, 255, 0}, {0, 0, 0, 0}};
  const IndexRows indices(input.options, 1, palette, IndexRows::Meaning::kGrey, info);
  PixelTarget target(input, info);
  if (!target.WantsPixels()) return;
  std::vector<uint8_t> row(static_cast<size_t>(info.width));
  for (int y = 0; y < info.height; ++y) {
    if (header.InText()) {
      for (uint8_t& bit : row) bit = scanner.Bit();
    } else {
      UnpackIndices(scanner.Take(RowBytes(info.width, 1)), 1, info.width, row.data());
    }
    indices.Put(row.data(), info.width, target.Row(y), 0);
  }
  target.Finish();
}

/// Samples one after the other, scaled to 0 to 255.
class SampleReader {
 public:
  SampleReader(const Input& input, const Header& header, Scanner& scanner)
      : input_(input), header_(header), scanner_(scanner) {
    for (uint32_t value = 0; value <= std::min(header.largest, 255u); ++value) {
      scaled_[value] = ScaleToByte(value, header.largest);
    }
  }

  void ReadRow(std::vector<uint8_t>& samples) {
    const bool text = header_.InText();
    const uint8_t* from = text ? nullptr : scanner_.Take(samples.size() * header_.SampleBytes());
    if (!text && header_.largest == 255) {
      std::copy_n(from, samples.size(), samples.begin());
      return;
    }
    for (uint8_t& sample : samples) {
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
  }

 private:
  const Input& input_;
  const Header& header_;
  Scanner& scanner_;
  std::array<uint8_t, 256> scaled_{};
};

void ReadSamples(const Input& input, const Header& header, Scanner& scanner, PictureInfo& info) {
  const bool alpha = header.channels == 2 || header.channels == 4;
  const bool colour = header.channels >= 3;
  info.bit_count = alpha ? 32 : colour ? 24 : 8;
  if (header.SampleBytes() == 2) info.notes.emplace_back(kReducedNote);
  PixelTarget target(input, info);
  if (!target.WantsPixels()) return;
  SampleReader reader(input, header, scanner);
  std::vector<uint8_t> samples(header.RowSamples());
  for (int y = 0; y < info.height; ++y) {
    reader.ReadRow(samples);
    uint8_t* pixel = target.Row(y);
    const uint8_t* from = samples.data();
    for (int x = 0; x < info.width; ++x, from += header.channels) {
      *pixel++ = from[colour ? 2 : 0];
      if (info.bit_count == 8) continue;
      *pixel++ = from[colour ? 1 : 0];
      *pixel++ = from[0];
      if (alpha) *pixel++ = from[header.channels - 1];
    }
  }
  target.Finish();
}

constexpr char kBitmapsOnly[] =
    "PBM holds pictures of 1 bit, black and white; choose .pgm, .ppm or .pam";
constexpr char kGreysOnly[] = "PGM holds grey pictures; choose .ppm or .pam";

/// The text before the pixels; `channels` is 0 for a bitmap.
std::string HeaderText(const PictureView& picture, bool pam, int channels) {
  const std::string width = std::to_string(picture.width);
  const std::string height = std::to_string(picture.height);
  if (!pam) {
    const std::string kind = channels == 0 ? "P4" : channels == 1 ? "P5" : "P6";
    return kind + "\n" + width + " " + height + (channels == 0 ? "\n" : "\n255\n");
  }
  const std::string tuple = channels == 1 ? "GRAYSCALE" : channels == 3 ? "RGB" : "RGB_ALPHA";
  return "P7\nWIDTH " + width + "\nHEIGHT " + height + "\nDEPTH " + std::to_string(channels) +
         "\nMAXVAL 255\nTUPLTYPE " + tuple + "\nENDHDR\n";
}

/// True when a 1-bit picture has black and white only, as bitmaps do.
bool IsBlackAndWhite(const PictureView& picture) {
  if (picture.bit_count != 1) return false;
  const std::vector<PaletteEntry> palette = PaletteOf(picture);
  return IsGrey(palette) && std::ranges::all_of(palette, [](const PaletteEntry& entry) {
           return entry.blue == 0 || entry.blue == 255;
         });
}

void AppendBitmap(const PictureView& picture, std::vector<uint8_t>& file) {
  ColourRows rows(picture, ColourRows::Alpha::kDrop);
  std::vector<uint8_t> bits(RowBytes(picture.width, 1));
  for (int y = 0; y < picture.height; ++y) {
    const uint8_t* const row = rows.Row(y);
    std::fill(bits.begin(), bits.end(), uint8_t{0});
    for (int x = 0; x < picture.width; ++x) StoreIndex(bits.data(), 1, x, row[x] == 0);
    file.insert(file.end(), bits.begin(), bits.end());
  }
}

void AppendSamples(const PictureView& picture, ColourRows& rows, std::vector<uint8_t>& file) {
  const int bytes = rows.bit_count() / 8;
  for (int y = 0; y < picture.height; ++y) {
    const uint8_t* pixel = rows.Row(y);
    const size_t begin = file.size();
    file.insert(file.end(), pixel, pixel + ptrdiff_t{picture.width} * bytes);
    if (bytes == 1) continue;
    const uint8_t* const end = file.data() + file.size();
    for (uint8_t* out = file.data() + begin; out < end; out += bytes) std::swap(out[0], out[2]);
  }
}

}  // namespace

bool IsPnm(Bytes file) {
  return file.size() >= 3 && file[0] == 'P' && file[1] >= '1' && file[1] <= '7' && IsBlank(file[2]);
}

PictureInfo ReadPnm(const Input& input) {
  Scanner scanner(input, 3);
  const Header header = ReadHeader(input, scanner);
  CheckSize(input, header.width, header.height);
  CheckLength(input, header, scanner);
  PictureInfo info;
  info.format = Format::kPnm;
  info.width = static_cast<int>(header.width);
  info.height = static_cast<int>(header.height);
  if (header.IsBitmap()) {
    ReadBitmap(input, header, scanner, info);
  } else {
    ReadSamples(input, header, scanner, info);
  }
  return info;
}

void CheckPnmShape(const OutputShape& shape) {
  if (shape.extension == ".pbm" && shape.bit_count != 1) shape.DoesNotFit(kBitmapsOnly);
  if (shape.extension == ".pgm" && shape.bit_count > 8) shape.DoesNotFit(kGreysOnly);
}

std::vector<uint8_t> EncodePnm(const Output& output) {
  const PictureView& picture = output.picture;
  const std::string& stated = output.options.extension;
  const std::string extension = ExtensionOf(stated.empty() ? output.path : stated);
  const bool pam = extension == ".pam";
  // Without an extension that says which, the picture says it.
  const bool any = !pam && extension != ".pbm" && extension != ".pgm" && extension != ".ppm";
  const bool bitmap = extension == ".pbm" || (any && IsBlackAndWhite(picture));
  if (bitmap && !IsBlackAndWhite(picture)) {
    output.DoesNotFit(kBitmapsOnly);
  }
  ColourRows rows(picture, pam ? ColourRows::Alpha::kKeep : ColourRows::Alpha::kDrop,
                  extension == ".ppm" ? ColourRows::Grey::kSpread : ColourRows::Grey::kKeep);
  if (extension == ".pgm" && rows.bit_count() != 8) {
    output.DoesNotFit(kGreysOnly);
  }
  if (!pam) output.NoteLostAlpha("PNM");
  output.NoteLostProfile("PNM");
  output.NoteLostResolution("PNM");
  output.NoteLostTexts("PNM");
  const std::string text = HeaderText(picture, pam, bitmap ? 0 : rows.bit_count() / 8);
  std::vector<uint8_t> file(text.begin(), text.end());
  if (bitmap) {
    AppendBitmap(picture, file);
  } else {
    AppendSamples(picture, rows, file);
  }
  return file;
}

}  // namespace qel::pictures
