#ifndef QEL_TESTS_PICTURES_PICTURE_SUPPORT_H_
#define QEL_TESTS_PICTURES_PICTURE_SUPPORT_H_

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "pictures/picture_file.h"
#include "pictures/rows.h"
#include "reference/rng.h"
#include "tests/support/temporary_folder.h"

namespace qel::test {

using Bytes = std::vector<uint8_t>;
using Kind = pictures::PictureError::Kind;
using reference::Rng;

struct Color {
  int b = 0, g = 0, r = 0, a = 255;
  bool operator==(const Color&) const = default;
  friend std::ostream& operator<<(std::ostream& out, const Color& c) {
    return out << "(" << c.b << " " << c.g << " " << c.r << " " << c.a << ")";
  }
};

/// Rows of pixels with padding between them and guards around, which reading must leave alone.
class Pixels {
 public:
  Pixels() = default;
  Pixels(int columns, int rows, int bit_count, bool upward = false)
      : width(columns), height(rows), bits(bit_count), row_bytes_((columns * bit_count + 7) / 8) {
    stride_ = row_bytes_ + kPadding;
    memory_.assign(static_cast<size_t>(stride_ * height + 2 * kPadding), kGuard);
    first_ = kPadding;
    if (upward) {
      first_ += stride_ * (height - 1);
      stride_ = -stride_;
    }
  }

  uint8_t* Row(int y) { return memory_.data() + first_ + stride_ * y; }
  const uint8_t* Row(int y) const { return memory_.data() + first_ + stride_ * y; }
  pictures::PixelBuffer Buffer() { return {Row(0), stride_}; }
  pictures::PictureView View() const { return {Row(0), stride_, width, height, bits, palette}; }

  void FillRandom(Rng& rng) {
    for (int y = 0; y < height; ++y) {
      for (ptrdiff_t i = 0; i < row_bytes_; ++i) Row(y)[i] = static_cast<uint8_t>(rng.Next());
    }
  }
  bool GuardsKept() const {
    Pixels copy = *this;
    for (int y = 0; y < height; ++y) std::fill_n(copy.Row(y), row_bytes_, kGuard);
    return copy.memory_ == Bytes(memory_.size(), kGuard);
  }

  bool SameBytes(const Pixels& other) const {
    if (width != other.width || height != other.height || bits != other.bits) return false;
    for (int y = 0; y < height; ++y) {
      if (!std::equal(Row(y), Row(y) + row_bytes_, other.Row(y))) return false;
    }
    return true;
  }

  Color At(int x, int y) const {
    const uint8_t* const row = Row(y);
    if (bits == 24) return {row[3 * x], row[3 * x + 1], row[3 * x + 2], 255};
    if (bits == 32) return {row[4 * x], row[4 * x + 1], row[4 * x + 2], row[4 * x + 3]};
    const int largest = (1 << bits) - 1;
    const int index = row[x * bits / 8] >> (8 - bits - x * bits % 8) & largest;
    if (palette.empty())
      return {index * 255 / largest, index * 255 / largest, index * 255 / largest};
    if (static_cast<size_t>(index) >= palette.size()) return {};
    const auto& entry = palette[static_cast<size_t>(index)];
    return {entry.blue, entry.green, entry.red};
  }

  int width = 0, height = 0, bits = 0;
  std::vector<pictures::PaletteEntry> palette;

 private:
  static constexpr int kPadding = 5;
  static constexpr uint8_t kGuard = 0xA5;
  ptrdiff_t row_bytes_ = 0;
  ptrdiff_t stride_ = 0;
  ptrdiff_t first_ = 0;
  Bytes memory_;
};

struct Decoded {
  pictures::PictureInfo info;
  Pixels pixels;
  bool HasNote(const std::string& part) const {
    for (const std::string& note : info.notes) {
      if (note.find(part) != std::string::npos) return true;
    }
    return false;
  }
};

inline constexpr pictures::ReadOptions kKeepDepth{.keep_palette_depth = true};

/// Reads a picture a few rows at a time, or at once where it must be.
inline Decoded DecodeRows(const Bytes& file, const pictures::ReadOptions& options, int rows) {
  pictures::ByteSource source(file);
  const auto reader = pictures::OpenRows(source, "picture", options);
  Decoded decoded;
  decoded.pixels = Pixels(reader->info().width, reader->info().height, reader->info().bit_count);
  for (int count; reader->rows_read() < decoded.pixels.height;) {
    const int left = decoded.pixels.height - reader->rows_read();
    count = reader->streams() ? std::min(rows, left) : left;
    const auto buffer = decoded.pixels.Buffer();
    reader->Read({buffer.bits + reader->rows_read() * buffer.stride, buffer.stride}, count);
  }
  decoded.info = reader->info();
  decoded.pixels.palette = decoded.info.palette;
  EXPECT_TRUE(decoded.pixels.GuardsKept());
  return decoded;
}

/// Reads a picture; checks that memory is asked for once and guards stay, also when it fails, and
/// that reading by rows gives the same.
inline Decoded Decode(const Bytes& file, const pictures::ReadOptions& options = {},
                      bool upward = false) {
  Decoded decoded;
  int calls = 0;
  const auto check = [&] {
    EXPECT_LE(calls, 1);
    EXPECT_TRUE(decoded.pixels.GuardsKept());
  };
  try {
    decoded.info = pictures::ReadPictureFromMemory(
        file, "picture", options, [&](const pictures::PictureInfo& info) {
          ++calls;
          decoded.pixels = Pixels(info.width, info.height, info.bit_count, upward);
          return decoded.pixels.Buffer();
        });
  } catch (const pictures::PictureError& error) {
    check();
    // Limits of the whole picture are not those of its rows.
    if (error.kind() == Kind::kTooLarge) throw;
    try {
      DecodeRows(file, options, 3);
      ADD_FAILURE() << "rows could be read, the whole not: " << error.what();
    } catch (const pictures::PictureError& other) {
      EXPECT_STREQ(error.what(), other.what());
    }
    throw;
  }
  check();
  decoded.pixels.palette = decoded.info.palette;
  for (const int rows : {1, 7}) {
    const Decoded other = DecodeRows(file, options, rows);
    EXPECT_EQ(other.info.notes, decoded.info.notes);
    EXPECT_EQ(other.info.palette, decoded.info.palette);
    EXPECT_EQ(other.info.metadata.icc_profile, decoded.info.metadata.icc_profile);
    EXPECT_TRUE(other.pixels.SameBytes(decoded.pixels)) << rows << " rows at a time";
  }
  return decoded;
}

/// The bytes of a picture in the format of an extension, which are the same by rows.
inline Bytes Encode(const Pixels& pixels, const std::string& extension,
                    const pictures::Metadata& metadata = {},
                    const pictures::WriteOptions& options = {},
                    std::vector<std::string>* notes = nullptr) {
  const std::string name = "x." + extension;
  auto encoded = pictures::EncodePicture(name, pixels.View(), metadata, options);
  for (const int rows : {1, 3}) {
    pictures::MemorySink sink;
    const auto writer = pictures::WriteByRows(sink, name, pixels.View(), metadata, options);
    pictures::PictureView part = pixels.View();
    while (writer->rows_written() < pixels.height) {
      const int left = pixels.height - writer->rows_written();
      part.bits = pixels.Row(writer->rows_written());
      part.height = writer->streams() ? std::min(rows, left) : left;
      writer->Write(part);
    }
    EXPECT_EQ(writer->Finish(), encoded.notes);
    EXPECT_EQ(sink.file, encoded.file) << rows << " rows at a time";
  }
  if (notes != nullptr) *notes = encoded.notes;
  return encoded.file;
}

/// What a picture error is about; a failure of the test when there is none.
template <typename Action>
Kind KindOf(const Action& action) {
  try {
    action();
  } catch (const pictures::PictureError& error) {
    return error.kind();
  }
  ADD_FAILURE() << "no picture error";
  return {};
}

/// A picture without symmetry, smooth enough for lossy formats.
inline Pixels Slope(int width, int height, int bits) {
  Pixels pixels(width, height, bits);
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint8_t* const pixel = pixels.Row(y) + x * bits / 8;
      pixel[0] = static_cast<uint8_t>(x * 8 + y * 5);
      if (bits == 8) continue;
      pixel[1] = static_cast<uint8_t>(y * 12);
      pixel[2] = static_cast<uint8_t>(255 - x * 10);
      if (bits == 32) pixel[3] = static_cast<uint8_t>(100 + x * 3 + y);
    }
  }
  return pixels;
}

inline bool Near(const Color& one, const Color& other, int tolerance) {
  return std::abs(one.b - other.b) <= tolerance && std::abs(one.g - other.g) <= tolerance &&
         std::abs(one.r - other.r) <= tolerance && std::abs(one.a - other.a) <= tolerance;
}

inline void ExpectSame(const Pixels& expected, const Pixels& actual, int tolerance = 0) {
  ASSERT_EQ(expected.width, actual.width);
  ASSERT_EQ(expected.height, actual.height);
  for (int y = 0; y < expected.height; ++y) {
    for (int x = 0; x < expected.width; ++x) {
      ASSERT_TRUE(Near(expected.At(x, y), actual.At(x, y), tolerance))
          << "at " << x << ", " << y << ": " << expected.At(x, y) << " became " << actual.At(x, y);
    }
  }
}

inline void Put(Bytes& bytes, uint32_t value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

inline void PutBig(Bytes& bytes, uint32_t value, int count) {
  while (count-- > 0) bytes.push_back(static_cast<uint8_t>(value >> (8 * count)));
}

/// A PNG chunk with its length and checksum.
inline Bytes PngChunk(const std::string& name, const Bytes& content) {
  Bytes chunk;
  PutBig(chunk, static_cast<uint32_t>(content.size()), 4);
  for (const char letter : name) chunk.push_back(static_cast<uint8_t>(letter));
  for (const uint8_t byte : content) chunk.push_back(byte);
  PutBig(chunk,
         static_cast<uint32_t>(
             crc32(0, chunk.data() + 4, static_cast<uInt>(name.size() + content.size()))),
         4);
  return chunk;
}

inline Bytes Joined(const std::string& text, const Bytes& bytes = {}) {
  Bytes joined(text.begin(), text.end());
  joined.insert(joined.end(), bytes.begin(), bytes.end());
  return joined;
}

}  // namespace qel::test

#endif  // QEL_TESTS_PICTURES_PICTURE_SUPPORT_H_
