#include "tests/pictures/foreign_writers.h"
#include "tests/pictures/picture_support.h"

namespace qel::test {
namespace {

/// Keeps damaged headers from costing much time.
constexpr pictures::ReadOptions kSmall{.limits = {.max_pixels = 1 << 16, .max_memory = 1 << 20}};

struct Sample {
  std::string name;
  Bytes file;
  bool every_byte_counts;  ///< no shorter file can be read
};

std::vector<Sample> Samples() {
  std::vector<Sample> samples;
  Rng rng(11);
  pictures::Metadata metadata;
  metadata.dpi_x = metadata.dpi_y = 72;
  for (const char* const extension : {"png", "jpg", "tif", "webp", "bmp", "pam", "pbm"}) {
    for (const int bits : {1, 8, 24, 32}) {
      if ((bits == 1) != (extension == std::string("pbm")) && bits != 8) continue;
      if (bits == 8 && extension == std::string("pbm")) continue;
      Pixels pixels(20, 9, bits);
      pixels.FillRandom(rng);
      const bool indexed =
          bits == 8 && std::string("png tif bmp").find(extension) != std::string::npos;
      if (indexed) pixels.palette.resize(256);
      // What a TIFF file ends with are numbers that it can do without.
      samples.push_back({std::string(extension) + " " + std::to_string(bits),
                         Encode(pixels, extension, metadata), extension != std::string("tif")});
    }
  }
  samples.push_back(
      {"rle",
       MakeBmp({8, 4, 8, 1, {}, {0, 255}}, {3, 1, 0, 3, 1, 0, 1, 0, 0, 0, 0, 2, 1, 1, 5, 0, 0, 1}),
       true});
  samples.push_back({"text", Joined("P3 2 2 99 1 2 3 4 5 6 7 8 9 10 11 12"), false});
  return samples;
}

/// Reads what may be damaged; true when that worked. Anything but a picture error fails the test.
bool Survives(const Bytes& file) {
  bool whole = true;
  for (const bool keep : {false, true}) {
    pictures::ReadOptions options = kSmall;
    options.keep_palette_depth = keep;
    try {
      Decode(file, options);
    } catch (const pictures::PictureError& error) {
      EXPECT_EQ(std::string(error.what()).rfind("picture: ", 0), 0u);
      whole = false;
    }
  }
  return whole;
}

TEST(HostileFiles, TruncatedFilesAreRefusedAtEveryLength) {
  for (const Sample& sample : Samples()) {
    SCOPED_TRACE(sample.name);
    EXPECT_TRUE(Survives(sample.file));
    for (size_t length = 0; length < sample.file.size(); ++length) {
      // A copy of its own shows reads past the end to the sanitizer.
      const Bytes part(sample.file.begin(), sample.file.begin() + static_cast<ptrdiff_t>(length));
      const bool whole = Survives(part);
      EXPECT_FALSE(whole && sample.every_byte_counts) << length << " bytes";
    }
  }
}

TEST(HostileFiles, DamagedBytesGiveAPictureOrAnError) {
  Rng rng(77);
  for (const Sample& sample : Samples()) {
    SCOPED_TRACE(sample.name);
    for (int i = 0; i < 400; ++i) {
      Bytes damaged = sample.file;
      for (int flips = rng.Int(1, 4); flips > 0; --flips) {
        const auto range =
            static_cast<int>(rng.OneIn(2) ? std::min<size_t>(64, damaged.size()) : damaged.size());
        damaged[static_cast<size_t>(rng.Int(0, range - 1))] =
            static_cast<uint8_t>(rng.OneIn(3) ? 255 : rng.Int(0, 255));
      }
      Survives(damaged);
    }
  }
}

TEST(HostileFiles, LimitsAreCheckedBeforeMemoryIsAskedFor) {
  const auto refused = [](const Bytes& file, const pictures::Limits& limits) {
    return KindOf([&] {
      pictures::ReadPictureFromMemory(file, "picture", {.limits = limits},
                                      [](const pictures::PictureInfo&) -> pictures::PixelBuffer {
                                        ADD_FAILURE() << "asked for memory";
                                        return {};
                                      });
    });
  };
  for (const Sample& sample : Samples()) {
    SCOPED_TRACE(sample.name);
    const auto info = pictures::ReadPictureHeaderFromMemory(sample.file, "picture");
    const int64_t pixels = int64_t{info.width} * info.height;
    EXPECT_EQ(refused(sample.file, {.max_pixels = pixels - 1}), Kind::kTooLarge);
    EXPECT_EQ(refused(sample.file, {.max_memory = pixels * info.bit_count / 8 - 1}),
              Kind::kTooLarge);
  }
  EXPECT_EQ(refused(Joined("P5 4294967295 4294967295 255\n"), {}), Kind::kTooLarge);
  EXPECT_EQ(refused(Joined("P5 100000 100000 255\n"), {}), Kind::kTooLarge);
  Bytes huge = Encode(Pixels(2, 2, 24), "bmp");
  for (const ptrdiff_t at : {18, 22}) {
    std::fill_n(huge.begin() + at, 3, uint8_t{255});
    huge[static_cast<size_t>(at) + 3] = 127;
  }
  EXPECT_EQ(refused(huge, {}), Kind::kTooLarge);

  const TemporaryFolder folder;
  WriteFile(folder / "large", std::string(1000, 'x'));
  const auto kind_of_reading = [&](const std::string& path) {
    return KindOf([&] { pictures::ReadPictureHeader(path, {.limits = {.max_memory = 999}}); });
  };
  EXPECT_EQ(KindOf([&] { pictures::ReadFile(folder / "large", {.max_memory = 999}); }),
            Kind::kTooLarge);
  EXPECT_EQ(kind_of_reading(folder / "missing"), Kind::kNotReadable);
  EXPECT_EQ(kind_of_reading(folder.path()), Kind::kNotReadable);
  WriteFile(folder / "text", "no picture");
  EXPECT_EQ(kind_of_reading(folder / "text"), Kind::kUnknownFormat);
}

TEST(HostileFiles, OneThatShrinksWhileItIsReadIsAnError) {
  const TemporaryFolder folder;
  const std::string path = folder / "picture";
  WriteFile(path, std::string(300'000, 'x'));
  pictures::ByteSource source(path, {});
  EXPECT_EQ(source.Load(0, 10).size(), 10u);
  std::filesystem::resize_file(path, 100'000);
  EXPECT_EQ(source.Load(60'000, 10)[9], 'x');
  EXPECT_EQ(KindOf([&] { source.All(); }), Kind::kNotReadable);
}

TEST(HostileFiles, WhatTheAllocatorThrowsPassesThrough) {
  for (const Sample& sample : Samples()) {
    EXPECT_THROW(pictures::ReadPictureFromMemory(
                     sample.file, "picture", {},
                     [](const pictures::PictureInfo&) -> pictures::PixelBuffer { throw 7; }),
                 int);
  }
}

}  // namespace
}  // namespace qel::test
