#include <cctype>
#include <cstring>

#include "pictures/codec.h"

namespace qel::pictures {
namespace {

/// The text part of a file.
class Scanner {
 public:
  explicit Scanner(const Input& input) : input_(input) {}

  /// The next byte, or an error at the end.
  uint8_t Next() {
    if (at_ >= input_.file.size()) input_.Broken("damaged PNM: truncated");
    return input_.file[at_++];
  }
  /// The next word; blanks and comments before it are passed over, one blank after it is taken.
  std::string Word() {
    SkipBlanks();
    std::string word;
    while (at_ < input_.file.size() && !std::isspace(input_.file[at_]) && word.size() < 32) {
      word += static_cast<char>(input_.file[at_++]);
    }
    if (at_ < input_.file.size()) ++at_;
    return word;
  }
  int64_t Number() {
    const std::string word = Word();
    if (word.empty() || word.size() > 10 ||
        word.find_first_not_of("0123456789") != std::string::npos) {
      input_.Broken("damaged PNM: a number is missing");
    }
    return std::stoll(word);
  }
  /// One digit of a text bitmap, which need no blanks between them.
  unsigned Bit() {
    SkipBlanks();
    const uint8_t digit = Next();
    if (digit != '0' && digit != '1') input_.Broken("damaged PBM: neither 0 nor 1");
    return digit - unsigned{'0'};
  }
  Bytes Rest() const { return input_.file.subspan(at_); }

 private:
  void SkipBlanks() {
    while (at_ < input_.file.size()) {
      if (input_.file[at_] == '#') {
        while (at_ < input_.file.size() && input_.file[at_] != '\n') ++at_;
      } else if (std::isspace(input_.file[at_])) {
        ++at_;
      } else {
        return;
      }
    }
  }

  const Input& input_;
  size_t at_ = 2;
};

struct Header {
  char kind;  ///< '1' to '7'
  int64_t width = 0, height = 0, channels = 1, maximum = 1;

  bool Text() const { return kind <= '3'; }
  bool Bitmap() const { return kind == '1' || kind == '4'; }
};

Header ReadHeader(const Input& input, Scanner& scan) {
  Header header{static_cast<char>(input.file[1])};
  if (header.kind != '7') {
    header.width = scan.Number();
    header.height = scan.Number();
    header.channels = header.kind == '3' || header.kind == '6' ? 3 : 1;
    if (!header.Bitmap()) header.maximum = scan.Number();
  } else {
    for (std::string key = scan.Word(); key != "ENDHDR"; key = scan.Word()) {
      if (key == "WIDTH") {
        header.width = scan.Number();
      } else if (key == "HEIGHT") {
        header.height = scan.Number();
      } else if (key == "DEPTH") {
        header.channels = scan.Number();
      } else if (key == "MAXVAL") {
        header.maximum = scan.Number();
      } else if (key == "TUPLTYPE") {
        scan.Word();
      } else {
        input.Broken("damaged PAM: unknown header line " + key);
      }
    }
  }
  if (header.maximum < 1 || header.maximum > 65535) input.Broken("damaged PNM: bad maximum");
  if (header.channels < 1 || header.channels > 4) {
    input.Unsupported("a PAM of " + std::to_string(header.channels) + " channels; 1 to 4 are read");
  }
  return header;
}

/// Samples of one row, scaled to 0 to 255.
void ReadSamples(const Input& input, Scanner& scan, Bytes& rest, const Header& header,
                 std::vector<uint8_t>& samples) {
  const auto maximum = static_cast<unsigned>(header.maximum);
  const size_t bytes = header.maximum > 255 ? 2 : 1;
  if (!header.Text() && rest.size() < samples.size() * bytes) {
    input.Broken("damaged PNM: truncated");
  }
  for (size_t i = 0; i < samples.size(); ++i) {
    unsigned value;
    if (header.Text()) {
      value = static_cast<unsigned>(scan.Number());
    } else {
      value = bytes == 1 ? rest[i] : rest[2 * i] * 256u + rest[2 * i + 1];
    }
    value = std::min(value, maximum);
    samples[i] = static_cast<uint8_t>((value * 255u + maximum / 2) / maximum);
  }
  if (!header.Text()) rest = rest.subspan(samples.size() * bytes);
}

void ConvertRow(const std::vector<uint8_t>& samples, const Header& header, uint8_t* row) {
  const auto channels = static_cast<size_t>(header.channels);
  if (channels == 1) {
    std::memcpy(row, samples.data(), samples.size());
    return;
  }
  const bool alpha = channels % 2 == 0;
  for (size_t x = 0; x < static_cast<size_t>(header.width); ++x) {
    const uint8_t* const from = samples.data() + x * channels;
    uint8_t* const pixel = row + x * (alpha ? 4 : 3);
    for (size_t c = 0; c < 3; ++c) pixel[c] = from[channels <= 2 ? 0 : 2 - c];
    if (alpha) pixel[3] = from[channels - 1];
  }
}

/// Bitmaps: a set bit is black. One grey byte per pixel, or the bits with their palette.
void ReadBitmapRow(const Input& input, Scanner& scan, Bytes& rest, const Header& header, bool keep,
                   uint8_t* row) {
  const int width = static_cast<int>(header.width);
  const size_t packed = RowBytes(width, 1);
  if (!header.Text() && rest.size() < packed) input.Broken("damaged PBM: truncated");
  if (keep) std::memset(row, 0, packed);
  for (int x = 0; x < width; ++x) {
    const unsigned bit = header.Text() ? scan.Bit() : PackedIndex(rest.data(), 1, x);
    if (keep) {
      row[x / 8] = static_cast<uint8_t>(row[x / 8] | bit << (7 - x % 8));
    } else {
      row[x] = bit != 0 ? 0 : 255;
    }
  }
  if (!header.Text()) rest = rest.subspan(packed);
}

}  // namespace

bool IsPnm(Bytes file) {
  return file.size() >= 3 && file[0] == 'P' && file[1] >= '1' && file[1] <= '7' &&
         std::isspace(file[2]);
}

PictureInfo ReadPnm(const Input& input) {
  Scanner scan(input);
  const Header header = ReadHeader(input, scan);
  const bool keep = header.Bitmap() && input.options.keep_palette_depth;
  PictureInfo info;
  info.format = Format::kPnm;
  info.bit_count = keep ? 1 : header.channels == 1 ? 8 : header.channels == 3 ? 24 : 32;
  CheckLimits(input, header.width, header.height, info.bit_count);
  info.width = static_cast<int>(header.width);
  info.height = static_cast<int>(header.height);
  if (keep) info.palette = GreyPalette(2, true);
  if (header.maximum > 255) info.notes.emplace_back(kReducedNote);
  Bytes rest = scan.Rest();
  // Truncation shows before memory is asked for.
  const auto samples_per_row = static_cast<uint64_t>(header.width * header.channels);
  const uint64_t row_bytes =
      header.Bitmap() && !header.Text()
          ? RowBytes(info.width, 1)
          : samples_per_row * (header.maximum > 255 && !header.Text() ? 2 : 1);
  if (rest.size() / static_cast<uint64_t>(header.height) < row_bytes) {
    input.Broken("damaged PNM: truncated");
  }
  PixelTarget target(input, info);
  std::vector<uint8_t> samples(header.Bitmap() ? 0 : samples_per_row);
  for (int y = 0; y < info.height; ++y) {
    if (header.Bitmap()) {
      ReadBitmapRow(input, scan, rest, header, keep, target.Row(y));
    } else {
      ReadSamples(input, scan, rest, header, samples);
      ConvertRow(samples, header, target.Row(y));
    }
  }
  target.Finish();
  return info;
}

std::vector<uint8_t> EncodePnm(const Output& output) {
  const PictureView& picture = output.picture;
  const auto ends_with = [&](std::string_view extension) {
    std::string tail =
        output.name.substr(output.name.size() - std::min<size_t>(4, output.name.size()));
    for (char& c : tail) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return tail == extension;
  };
  const bool pam = ends_with(".pam");
  if (!pam && HasTransparency(picture)) output.notes.emplace_back(kAlphaDroppedNote);
  if (!output.metadata.icc_profile.empty()) {
    output.notes.emplace_back("PNM holds no colour profile; it was left out");
  }
  if (ends_with(".pbm") && picture.bit_count != 1) {
    output.Fail("PBM holds 1-bit pictures only; choose .pgm, .ppm or .pam");
  }
  ColourRows rows(picture, pam);
  const bool grey = rows.bit_count() == 8;
  if (ends_with(".pgm") && !grey) {
    output.Fail("PGM holds grey pictures only; choose .ppm or .pam, or add a gray-scale step");
  }
  const std::string size = std::to_string(picture.width) + (pam ? "\nHEIGHT " : " ") +
                           std::to_string(picture.height) + "\n";
  const int stored = ends_with(".ppm") ? 3 : rows.bit_count() / 8;
  std::string text;
  if (pam) {
    text = "P7\nWIDTH " + size + "DEPTH " + std::to_string(stored) + "\nMAXVAL 255\nTUPLTYPE " +
           (stored == 1   ? "GRAYSCALE"
            : stored == 3 ? "RGB"
                          : "RGB_ALPHA") +
           "\nENDHDR\n";
  } else if (ends_with(".pbm")) {
    text = "P4\n" + size;
  } else {
    text = (stored == 1 ? "P5\n" : "P6\n") + size + "255\n";
  }
  std::vector<uint8_t> bytes(text.begin(), text.end());
  for (int y = 0; y < picture.height; ++y) {
    if (ends_with(".pbm")) {
      // A set bit is black, whichever of the two indices that is here.
      const bool inverted = picture.palette.empty() || picture.palette[0].green < 128;
      for (size_t i = 0; i < RowBytes(picture.width, 1); ++i) {
        bytes.push_back(static_cast<uint8_t>(picture.Row(y)[i] ^ (inverted ? 0xFF : 0)));
      }
      continue;
    }
    const uint8_t* const row = rows.Row(y);
    for (int x = 0; x < picture.width; ++x) {
      const uint8_t* const pixel = row + ptrdiff_t{x} * (rows.bit_count() / 8);
      for (int c = 0; c < std::min(stored, 3); ++c) {
        bytes.push_back(pixel[grey || stored == 1 ? 0 : 2 - c]);
      }
      if (stored == 4) bytes.push_back(pixel[3]);
    }
  }
  return bytes;
}

}  // namespace qel::pictures
