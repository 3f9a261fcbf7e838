// Small files that ask for much, and damaged ones, as the whole tool meets them.

#include <cstring>

#include "tests/pictures/foreign_writers.h"
#include "tests/pictures/picture_support.h"
#include "tests/support/sanitized.h"

namespace qel::test {
namespace {

constexpr int kGood = 0, kNoInput = 3;
constexpr int kFar = 16384;  // a side of the largest square that the limits allow

struct HostileFile {
  std::string name;
  Bytes content;
  std::string reason;  ///< in the message; empty for files that are read
};

// Not inlined, for GCC 12 sees overruns in copies of vectors that are not there.
[[gnu::noinline]] Bytes Concat(std::initializer_list<Bytes> parts) {
  Bytes whole;
  for (const Bytes& part : parts) whole.insert(whole.end(), part.begin(), part.end());
  return whole;
}

Bytes Noise(size_t size) {
  Rng rng(size);
  Bytes bytes(size);
  for (uint8_t& byte : bytes) byte = static_cast<uint8_t>(rng.Next());
  return bytes;
}

Bytes Deflated(const Bytes& bytes) {
  uLongf size = compressBound(bytes.size());
  Bytes packed(size);
  compress(packed.data(), &size, bytes.data(), bytes.size());
  packed.resize(size);
  return packed;
}

Bytes Png(uint32_t width, uint32_t height, int color, std::initializer_list<Bytes> chunks,
          uint8_t interlaced = 0) {
  Bytes header;
  PutBig(header, width, 4);
  PutBig(header, height, 4);
  for (const int byte : {8, color, 0, 0}) header.push_back(static_cast<uint8_t>(byte));
  header.push_back(interlaced);
  return Concat({Joined("\x89PNG\r\n\x1a\n"), PngChunk("IHDR", header), Concat(chunks),
                 PngChunk("IEND", {})});
}

/// Texts that unpack to 7 MB each.
Bytes PackedTexts(int count) {
  const Bytes text =
      PngChunk("zTXt", Concat({Joined("key"), {0, 0}, Deflated(Bytes(7'000'000, 'x'))}));
  Bytes chunks;
  for (int i = 0; i < count; ++i) chunks.insert(chunks.end(), text.begin(), text.end());
  return chunks;
}

/// A TIFF file of one strip or tile, `data`, which is stored as it is.
struct Tiff {
  uint32_t width, height;
  int compression = COMPRESSION_NONE;
  int photometric = PHOTOMETRIC_MINISBLACK;
  int bits = 8, samples = 1;
  uint32_t tile_width = 0, tile_height = 0;
  Bytes data = {1, 2, 3, 4};

  Bytes File() const {
    return TiffFileOf([this](TIFF* tiff) {
      Describe(tiff);
      Bytes copy = data;
      const auto write = tile_width > 0 ? &TIFFWriteRawTile : &TIFFWriteRawStrip;
      write(tiff, 0, copy.data(), static_cast<tmsize_t>(copy.size()));
    });
  }
  /// The strip as the library packs it: what stands between header and directory.
  Bytes Packed() const {
    const Bytes file = TiffFileOf([this](TIFF* tiff) {
      Describe(tiff);
      Bytes pixels(size_t{width} * height * static_cast<size_t>(bits) / 8);
      for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = static_cast<uint8_t>(i * i / 97);
      TIFFWriteEncodedStrip(tiff, 0, pixels.data(), static_cast<tmsize_t>(pixels.size()));
    });
    uint32_t directory_at;
    std::memcpy(&directory_at, &file[4], sizeof(directory_at));
    return {file.begin() + 8, file.begin() + directory_at};
  }

 private:
  void Describe(TIFF* tiff) const {
    DescribeTiff(tiff, width, height, samples, bits, photometric, compression);
    if (compression == COMPRESSION_JPEG) TIFFSetField(tiff, TIFFTAG_JPEGTABLESMODE, 0);
    TIFFSetField(tiff, tile_width > 0 ? TIFFTAG_TILEWIDTH : TIFFTAG_ROWSPERSTRIP,
                 tile_width > 0 ? tile_width : height);
    if (tile_width > 0) TIFFSetField(tiff, TIFFTAG_TILELENGTH, tile_height);
  }
};

enum class JpegKind { kBaseline, kProgressive, kArithmetic };

Bytes Jpeg(JpegKind kind) {
  return MakeJpeg(JCS_RGB, 3, Noise(64 * 3), 64, [&](jpeg_compress_struct& jpeg) {
    if (kind == JpegKind::kProgressive) jpeg_simple_progression(&jpeg);
    jpeg.arith_code = kind == JpegKind::kArithmetic;
  });
}

/// Position behind a marker of a JPEG file.
size_t Behind(const Bytes& file, int marker) {
  size_t at = 2;
  while (file[at + 1] != marker) at += 2u + file[at + 2] * 256u + file[at + 3];
  return at + 2;
}

/// The frame header with other sides.
Bytes Enlarged(Bytes file, int marker, uint32_t width, uint32_t height) {
  Bytes sides;
  PutBig(sides, height, 2);
  PutBig(sides, width, 2);
  std::ranges::copy(sides, file.begin() + static_cast<ptrdiff_t>(Behind(file, marker) + 3));
  return file;
}

[[gnu::noinline]] Bytes Inserted(Bytes file, size_t at, const Bytes& bytes) {
  file.insert(file.begin() + static_cast<ptrdiff_t>(at), bytes.begin(), bytes.end());
  return file;
}

Bytes FirstHalf(Bytes bytes) {
  bytes.resize(bytes.size() / 2);
  return bytes;
}

Bytes Webp(const std::string& chunk, Bytes content) {
  content.resize(content.size() + content.size() % 2);
  Bytes file = Joined("RIFF");
  Put(file, static_cast<uint32_t>(content.size() + 12), 4);
  file = Concat({file, Joined("WEBP" + chunk)});
  Put(file, static_cast<uint32_t>(content.size()), 4);
  return Concat({file, content});
}

std::vector<HostileFile> HostileFiles() {
  const std::string truncated = "truncated", damaged = "damaged";
  std::vector<HostileFile> files{
      {"empty.png", {}, "empty"},
      {"short.png", Joined("\x89PNG"), "no known picture format"},
      {"far.png", Png(kFar, kFar, 6, {PngChunk("IDAT", Deflated(Bytes(9)))}), truncated},
      {"beyond.png", Png(kFar, 2 * kFar, 6, {PngChunk("IDAT", Deflated(Bytes(9)))}), truncated},
      // All of its rows are needed at once.
      {"interlaced.png", Png(kFar, 2 * kFar, 6, {PngChunk("IDAT", Deflated(Noise(2'200'000)))}, 1),
       "more than the limit"},
      // Fits by its size, and breaks off soon.
      {"noise.png", Png(kFar, kFar, 2, {PngChunk("IDAT", Deflated(Noise(900'000)))}), damaged},
      {"padded.png",
       Png(kFar, kFar, 2, {PngChunk("junk", Noise(900'000)), PngChunk("IDAT", {1, 2, 3})}),
       truncated},
      {"texts.png", Png(1, 1, 0, {PackedTexts(40), PngChunk("IDAT", Deflated({0, 9}))}), ""},
      {"transparent.png",
       Png(1, 1, 0,
           {Inserted(PngChunk("tRNS", {0, 9}), 9, {7}), PngChunk("IDAT", Deflated({0, 9}))}),
       damaged},
      {"lossless.webp", Webp("VP8L", Concat({{0x2F, 0xFF, 0xFF, 0xFF, 0x0F}, Bytes(5, 0xAA)})),
       damaged},
      {"lossy.webp",
       Webp("VP8 ", Concat({{0x10, 0, 0, 0x9D, 0x01, 0x2A, 0xFF, 0x3F, 0xFF, 0x3F}, Bytes(9)})),
       truncated},
      {"far.bmp", MakeBmp({kFar, kFar, 32}, {}), truncated},
      {"runs.bmp", MakeBmp({kFar, kFar, 8, 1, {}, {0, 0xFFFFFF}}, {0, 1}), truncated},
      {"far.ppm", Joined("P6 16384 16384 255\n123"), truncated},
      {"far.pam", Joined("P7\nWIDTH 16384\nHEIGHT 16384\nDEPTH 4\nMAXVAL 255\nENDHDR\n"),
       truncated},
      {"beyond.webp", Webp("VP8X", Joined("", {0, 0, 0, 0, 0xFF, 0xFE, 0, 0xFF, 0xFE, 0})),
       "more than the limit|truncated"},
      {"far-text.ppm", Joined("P3 16384 16384 255\n1 2 3"), truncated},
      {"word.pgm", Joined("P5 " + std::string(100'000, '1') + " 1 255\n"), "number"},
      {"lab.tif",
       Tiff{.width = kFar, .height = kFar, .photometric = PHOTOMETRIC_CIELAB, .samples = 3}.File(),
       truncated},
      {"small-picture.tif",
       Tiff{.width = 16,
            .height = 16,
            .compression = COMPRESSION_JPEG,
            .tile_width = kFar,
            .tile_height = 32752}
           .File(),
       "larger than the picture"},
  };
  const Bytes gif =
      Joined("GIF89a", {0, 0x40, 0, 0x40, 0x80, 0, 0,    0, 0, 0, 255,  255, 255, 0x2C, 0,
                        0, 0,    0, 0,    0x40, 0, 0x40, 0, 2, 2, 0x44, 1,   0,   59});
  files.push_back({"far.gif", gif, truncated});
  const auto add = [&](const std::string& name, const Bytes& content, const std::string& reason) {
    files.push_back({name, content, reason});
  };
  for (const int compression :
       {COMPRESSION_NONE, COMPRESSION_CCITTFAX4, COMPRESSION_LZW, COMPRESSION_JPEG,
        COMPRESSION_ADOBE_DEFLATE, COMPRESSION_PACKBITS, COMPRESSION_LZMA, COMPRESSION_ZSTD,
        COMPRESSION_WEBP, COMPRESSION_PIXARLOG, COMPRESSION_SGILOG, COMPRESSION_LERC}) {
    const std::string number = std::to_string(compression) + ".tif";
    Tiff tiff{.width = kFar, .height = kFar, .compression = compression};
    if (compression == COMPRESSION_CCITTFAX4) tiff.bits = 1;
    if (compression == COMPRESSION_SGILOG) tiff.photometric = PHOTOMETRIC_LOGL, tiff.bits = 16;
    add("strip-" + number, tiff.File(), "TIFF|truncated");
    tiff.data = Noise(300'000);
    add("noise-" + number, tiff.File(), "TIFF|truncated");
    tiff.data.resize(4);
    tiff.tile_width = tiff.tile_height = kFar;
    add("tile-" + number, tiff.File(), "TIFF|truncated");
  }
  for (const int compression : {COMPRESSION_JPEG, COMPRESSION_CCITTFAX4, COMPRESSION_CCITTFAX3,
                                COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_PACKBITS}) {
    const bool fax = compression == COMPRESSION_CCITTFAX4 || compression == COMPRESSION_CCITTFAX3;
    Tiff tiff{.width = 128, .height = 128, .compression = compression, .bits = fax ? 1 : 8};
    tiff.data = tiff.Packed();
    const std::string number = std::to_string(compression) + ".tif";
    add("whole-" + number, tiff.File(), "");
    tiff.data = FirstHalf(tiff.data);
    add("half-" + number, tiff.File(), "TIFF: ");
  }
  const Bytes jpeg = Jpeg(JpegKind::kBaseline);
  const size_t scan = Behind(jpeg, 0xDA) + 12;
  const size_t middle = (scan + jpeg.size()) / 2;
  add("whole.jpg", jpeg, "");
  add("half.jpg", FirstHalf(jpeg), truncated);
  add("foreign.jpg", Inserted(jpeg, middle, Joined("foreign bytes, more than a few")), damaged);
  add("behind-scan.jpg", Inserted(jpeg, jpeg.size() - 2, Joined("lost")), damaged);
  add("zeros-behind-scan.jpg", Inserted(jpeg, jpeg.size() - 2, Bytes(10)), "");
  add("between-segments.jpg", Inserted(jpeg, 20, Joined("junk")), "");
  add("far.jpg", Enlarged(jpeg, 0xC0, kFar, kFar), truncated);
  const Bytes progressive = Jpeg(JpegKind::kProgressive);
  add("far-progressive.jpg", Enlarged(progressive, 0xC2, kFar, kFar), truncated);
  add("far-noise.jpg",
      Inserted(Enlarged(progressive, 0xC2, kFar, kFar), progressive.size() - 2, Noise(1'600'000)),
      "JPEG|truncated");
  add("far-arithmetic.jpg", Enlarged(Jpeg(JpegKind::kArithmetic), 0xC9, kFar, kFar), truncated);
  return files;
}

bool HasOneOf(const std::string& text, const std::string& alternatives) {
  for (size_t begin = 0; begin <= alternatives.size();) {
    const size_t end = std::min(alternatives.find('|', begin), alternatives.size());
    if (text.find(alternatives.substr(begin, end - begin)) != std::string::npos) return true;
    begin = end + 1;
  }
  return false;
}

TEST(HostileFilesInTheTool, AreRefusedSoonAndInLittleMemory) {
  const TemporaryFolder folder;
  const auto run = [&](const std::string& input) {
    return RunShell(QEL_TOOL " run " + input + " -o out.ppm --jobs 1 negative", folder);
  };
  const double ground = run("missing.png").peak_mib;
  const auto expect_cheap = [&](const Outcome& outcome) {
    if (kSanitized) return;
    EXPECT_LT(outcome.peak_mib, ground + 64);
    EXPECT_LT(outcome.cpu_seconds, 1);
  };
  for (const HostileFile& file : HostileFiles()) {
    SCOPED_TRACE(file.name);
    WriteFile(folder / file.name, std::string(file.content.begin(), file.content.end()));
    const Outcome outcome = run(file.name);
    EXPECT_EQ(outcome.exit_code, file.reason.empty() ? kGood : kNoInput) << outcome.errors;
    if (file.reason.empty()) continue;
    EXPECT_TRUE(HasOneOf(outcome.errors, file.reason)) << outcome.errors;
    EXPECT_FALSE(outcome.errors.ends_with(": \n")) << outcome.errors;
    expect_cheap(outcome);
  }
  EXPECT_EQ(run("/dev/zero").exit_code, kNoInput);
  expect_cheap(run("/dev/zero"));
  // By rows, a picture of that size is work; as a whole it is more than the limit.
  for (const char* const start : {"P5 99999 99999 255 ", "P5 x", "BM", "\\211PNG\\r\\n\\032\\n"}) {
    SCOPED_TRACE(start);
    const Outcome outcome = RunShell(std::string("mkfifo pipe; (printf '") + start +
                                         "'; exec cat /dev/zero) > pipe & " QEL_TOOL
                                         " run pipe -o out.ppm turn 90; code=$?; "
                                         "kill $! 2>/dev/null; rm pipe; exit $code",
                                     folder);
    EXPECT_EQ(outcome.exit_code, kNoInput) << outcome.errors;
    expect_cheap(outcome);
  }
}

}  // namespace
}  // namespace qel::test
