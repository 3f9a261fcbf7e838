#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "cli/session/picture_io.h"
#include "cli/terminal/errors.h"
#include "tests/support/tool.h"

namespace qel::cli {
namespace {

using test::Count;
using test::Outcome;
using test::ReadFile;
using test::WriteFile;

/// Blue, green, red and alpha as a person would name them; what has no alpha is opaque.
using Seen = std::vector<int>;

constexpr int kWidth = 320, kHeight = 240;

/// Jobs that people have every day, on pictures whose parts can be told apart: a photo with a
/// colour in each corner, and a logo with soft and with hidden parts.
class Everyday : public test::ToolTest {
 protected:
  void SetUp() override {
    const auto photo = MakeImage(kWidth, kHeight, 24);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        const uint8_t corner[] = {static_cast<uint8_t>(x < kWidth / 2 ? 30 : 220),
                                  static_cast<uint8_t>(y < kHeight / 2 ? 40 : 200), 90};
        std::copy_n(corner, 3, photo->Row(y) + 3 * x);
      }
    }
    SavePicture(folder_ / "photo.png", *photo, {}, {});
    SavePicture(folder_ / "photo.jpg", *photo, {}, {});
    // A red disc; outside of it a green that nobody must ever see.
    const auto logo = MakeImage(64, 64, 32);
    for (int y = 0; y < 64; ++y) {
      for (int x = 0; x < 64; ++x) {
        const double cover = std::clamp(28 - std::hypot(x - 31.5, y - 31.5), 0.0, 1.0);
        const uint8_t hidden[] = {0, 255, 0, 0};
        const uint8_t disc[] = {20, 20, 230, static_cast<uint8_t>(255 * cover)};
        std::copy_n(cover > 0 ? disc : hidden, 4, logo->Row(y) + 4 * x);
      }
    }
    SavePicture(folder_ / "logo.png", *logo, {}, {});
  }

  /// Runs the tool, which must do it without a word.
  Picture Make(const std::string& words, const std::string& output = "out.png") {
    const Outcome outcome = Run(words);
    EXPECT_EQ(outcome.exit_code, kDone) << words << "\n" << outcome.errors;
    EXPECT_EQ(outcome.errors, "") << words;
    return LoadPicture(folder_ / output, {});
  }

  static Seen At(const Picture& picture, int x, int y) {
    const host::HostImage& image = *picture.image;
    const uint8_t* const pixel = image.Row(y) + x * (image.bit_count() / 8);
    if (image.bit_count() == 8) return {pixel[0], pixel[0], pixel[0], 255};
    return {pixel[0], pixel[1], pixel[2], image.bit_count() == 32 ? pixel[3] : 255};
  }
  static void ExpectNear(const Picture& picture, int x, int y, const Seen& color, int tolerance) {
    const Seen seen = At(picture, x, y);
    for (size_t c = 0; c < 4; ++c) {
      EXPECT_NEAR(seen[c], color[c], tolerance) << "channel " << c << " at " << x << ", " << y;
    }
  }
  static void ExpectSize(const Picture& picture, int width, int height) {
    EXPECT_EQ(picture.image->width(), width);
    EXPECT_EQ(picture.image->height(), height);
  }
  /// The four corners, from the top-left along the rows, by their own coordinates.
  static void ExpectCorners(const Picture& picture, const Seen (&corners)[4], int tolerance = 2) {
    const int right = picture.image->width() - 1, bottom = picture.image->height() - 1;
    for (int i = 0; i < 4; ++i) {
      ExpectNear(picture, i % 2 == 0 ? 0 : right, i / 2 == 0 ? 0 : bottom, corners[i], tolerance);
    }
  }

  const Seen north_west_{30, 40, 90, 255}, north_east_{220, 40, 90, 255};
  const Seen south_west_{30, 200, 90, 255}, south_east_{220, 200, 90, 255};
  const Seen white_{255, 255, 255, 255};
};

TEST_F(Everyday, PhotosForTheWebGetSmallerAndSmallOnesStay) {
  std::filesystem::create_directory(folder_.path() / "web");
  const Picture web = Make("run photo.jpg -o web resize width=160 height=160", "web/photo.jpg");
  ExpectSize(web, 160, 120);
  ExpectCorners(web, {north_west_, north_east_, south_west_, south_east_}, 8);
  const Picture small = Make("run photo.png -o out.png resize 2000");
  ExpectSize(small, kWidth, kHeight);
  ExpectCorners(small, {north_west_, north_east_, south_west_, south_east_}, 0);
  const Picture thumbnail = Make("run photo.png -o out.png resize width=60 height=60 fit=cover");
  ExpectSize(thumbnail, 60, 60);
  ExpectCorners(thumbnail, {north_west_, north_east_, south_west_, south_east_});
}

TEST_F(Everyday, TransparentPicturesBecomeJpegOnTheColorThatIsAskedFor) {
  const Picture flat = Make("run logo.png -o out.jpg flatten background=white", "out.jpg");
  EXPECT_EQ(flat.image->bit_count(), 24);
  ExpectNear(flat, 1, 1, white_, 6);
  ExpectNear(flat, 32, 32, {20, 20, 230, 255}, 12);
  // Without the step, it is said that alpha is lost.
  EXPECT_NE(Run("convert logo.png -o plain.jpg").errors.find("alpha"), std::string::npos);
}

TEST_F(Everyday, QuarterTurnsAreExactAndCounterClockwise) {
  ExpectCorners(Make("run photo.png -o out.png turn 90"),
                {north_east_, south_east_, north_west_, south_west_}, 0);
  ExpectCorners(Make("run photo.png -o out.png turn 180"),
                {south_east_, south_west_, north_east_, north_west_}, 0);
  const Picture back = Make("run photo.png -o out.png turn 90 turn -90");
  ExpectSize(back, kWidth, kHeight);
  EXPECT_EQ(Run("diff photo.png out.png").exit_code, kDone);
}

TEST_F(Everyday, StraighteningKeepsTheWholePicture) {
  const Picture turned = Make("run photo.png -o out.png turn 2.5 background=white");
  EXPECT_GT(turned.image->width(), kWidth);
  EXPECT_GT(turned.image->height(), kHeight);
  ExpectCorners(turned, {white_, white_, white_, white_}, 0);
  // On the right the middle has risen, on the left it is lower.
  const int middle = turned.image->height() / 2;
  ExpectNear(turned, turned.image->width() - 15, middle - 2, south_east_, 1);
  ExpectNear(turned, 15, middle + 2, north_west_, 1);
}

TEST_F(Everyday, CropsAndPadsByProportions) {
  const Picture wide = Make("run photo.png -o out.png crop aspect=16:9");
  ExpectSize(wide, 320, 180);
  ExpectCorners(wide, {north_west_, north_east_, south_west_, south_east_}, 0);
  ExpectSize(Make("run photo.png -o out.png crop x=10 y=20 width=100 height=50"), 100, 50);
  const Picture corner =
      Make("run photo.png -o out.png crop width=25% height=25% gravity=south-east");
  ExpectSize(corner, 80, 60);
  ExpectCorners(corner, {south_east_, south_east_, south_east_, south_east_}, 0);

  const Picture square = Make("run photo.png -o out.png pad aspect=1 background=white");
  ExpectSize(square, 320, 320);
  ExpectCorners(square, {white_, white_, white_, white_}, 0);
  ExpectNear(square, 0, 40, north_west_, 0);
  ExpectNear(square, 319, 279, south_east_, 0);
  ExpectNear(square, 0, 39, white_, 0);
}

TEST_F(Everyday, LogosLieInTheCornerWithTheirTransparency) {
  const Picture marked =
      Make("run photo.png -o out.png overlay with=logo.png x=10 y=10 opacity=0.5");
  ExpectSize(marked, kWidth, kHeight);
  EXPECT_EQ(marked.image->bit_count(), 24);
  const int left = kWidth - 10 - 64, top = kHeight - 10 - 64;
  // Half of the disc's red over the photo in its middle, the photo itself round it.
  ExpectNear(marked, left + 32, top + 32, {120, 110, 160, 255}, 1);
  ExpectNear(marked, left + 1, top + 1, south_east_, 0);
  ExpectCorners(marked, {north_west_, north_east_, south_west_, south_east_}, 0);
}

TEST_F(Everyday, CaptionsStandWhereTheyBelong) {
  if (Run("list").output.find("  text ") == std::string::npos) GTEST_SKIP() << "without fonts";
  const Picture named =
      Make("run photo.png -o out.png text 'text=Holiday' size=24 gravity=south y=6 colour=white");
  int ink = 0, top = kHeight, bottom = 0, left = kWidth, right = 0;
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      if (At(named, x, y)[2] < 230) continue;
      ++ink;
      top = std::min(top, y);
      bottom = std::max(bottom, y);
      left = std::min(left, x);
      right = std::max(right, x);
    }
  }
  EXPECT_GT(ink, 150);
  EXPECT_GT(top, kHeight - 40);
  EXPECT_LT(bottom, kHeight - 6);
  EXPECT_NEAR((left + right) / 2, kWidth / 2, 4) << "in the middle";
}

TEST_F(Everyday, GrayPicturesHaveOneChannelInTheFile) {
  const Picture gray = Make("run photo.png -o out.png grey");
  EXPECT_EQ(gray.image->bit_count(), 8);
  ExpectNear(gray, 0, 0, {54, 54, 54, 255}, 0);  // 0.299 * 90 + 0.587 * 40 + 0.114 * 30
  const Outcome info = Run("info out.png");
  EXPECT_NE(info.output.find("320 x 240"), std::string::npos) << info.output;
  EXPECT_NE(info.output.find("8 bits: grey"), std::string::npos) << info.output;
}

TEST_F(Everyday, InfoTellsWhenAndHowAPictureWasTaken) {
  // EXIF with an orientation, and a directory that holds the date.
  using std::string_literals::operator""s;
  const std::string exif =
      "Exif\0\0II*\0\x08\0\0\0\x02\0\x12\x01\x03\0\x01\0\0\0\x06\0\0\0"
      "\x69\x87\x04\0\x01\0\0\0\x26\0\0\0\0\0\0\0\x01\0\x03\x90\x02\0\x14\0\0\0"
      "\x38\0\0\0\0\0\0\0002024:05:31 12:34:56\0"s;
  const std::string photo = ReadFile(folder_ / "photo.jpg");
  WriteFile(folder_ / "dated\x1b.jpg", photo.substr(0, 2) + "\xFF\xE1" + '\0' +
                                           static_cast<char>(exif.size() + 2) + exif +
                                           photo.substr(2));
  const std::string info = Run("info 'dated\x1b.jpg'").output;
  for (const std::string part :
       {"240 x 320 pixels", "6 in the file, is applied", "2024-05-31 12:34:56", "24 bits: colours",
        "JPEG, ", "dated\\x1b.jpg\n"}) {
    EXPECT_NE(info.find(part), std::string::npos) << part << "\n" << info;
  }
}

TEST_F(Everyday, NotesSayOnceWhatFewExpect) {
  std::filesystem::create_directory(folder_.path() / "out");
  const struct {
    std::string words;
    std::string note;
    size_t times;
  } cases[] = {
      {"photo.png photo.jpg -o out/ rotate 25", "four pixels along every edge", 1},
      {"photo.png -o out/ rotate 90", "Quarter turns go clockwise", 1},
      {"photo.png -o out/ rotate 90", "four pixels", 0},
      {"photo.png -o out/ rotate 180", "shifted by one column", 1},
      {"logo.png -o out/ rotate 180", "shifted by one column", 0},
      {"photo.png -o out/ resample width=150% method=sinc", "change the brightness", 1},
      {"photo.png -o out/ resample width=150% method=mitchell", "note", 0},
      {"photo.png -o out/ median 5", "a frame of its colour", 1},
      {"photo.png -o out/ noise 9", "same random numbers", 1},
      {"photo.png -o out/ noise 9 seed=3", "note", 0},
      {"photo.png photo.jpg -o out/ --no-notes rotate 25 median 5", "note", 0},
      // Of every file whose transparency is lost, or that nobody can see.
      {"logo.png -o out/ resample width=50%", "cannot be seen any more", 1},
      {"logo.png -o out/ set-image-alpha 255", "note", 0},
      {"logo.png -o out/ scale depth=24", "transparency is lost", 1},
      {"logo.png -o out/ flatten", "note", 0},
  };
  for (const auto& c : cases) {
    const Outcome outcome = Run("run " + c.words);
    EXPECT_EQ(outcome.exit_code, kDone) << c.words << outcome.errors;
    EXPECT_EQ(Count(outcome.errors, c.note), c.times) << c.words << "\n" << outcome.errors;
  }
  // The seed comes from the pixels: not from the name, the format or the order.
  WriteFile(folder_ / "again.png", ReadFile(folder_ / "photo.png"));
  ASSERT_EQ(Run("run photo.png again.png -o out/ noise 99 seed=per-file").exit_code, kDone);
  EXPECT_EQ(Run("diff out/photo.png out/again.png").exit_code, kDone);
  ASSERT_EQ(Run("run photo.png -o out/other.png noise 99").exit_code, kDone);
  EXPECT_EQ(Run("diff out/photo.png out/other.png").exit_code, kSomeFailed);
}

TEST_F(Everyday, RecipesRunAndRunsAreVerified) {
  std::filesystem::create_directory(folder_.path() / "out");
  WriteFile(folder_ / "recipe", "# for the web\nresize 160\n\n  text 'A b' size=20 color=black\n");
  const Outcome run =
      Run("run photo.png logo.png -o out/ --recipe recipe --json done.json --stats negative");
  ASSERT_EQ(run.exit_code, kDone) << run.errors;
  for (const std::string line :
       {"2 pictures, 0.1 megapixels\n", "\nresize width=160 ",
        "\ntext text=A b size=20 color=black ", "\nnegative ", "\nwrite "}) {
    EXPECT_NE(run.output.find(line), std::string::npos) << run.output;
  }
  ExpectSize(LoadPicture(folder_ / "out/photo.png", {}), 160, 120);
  EXPECT_EQ(Run("verify done.json").output, "2 of 2 as the run left them\n");
  std::filesystem::remove(folder_ / "out/logo.png");
  WriteFile(folder_ / "photo.png", "changed");
  const Outcome changed = Run("verify done.json");
  EXPECT_EQ(changed.exit_code, kSomeFailed);
  EXPECT_EQ(changed.output,
            "photo.png: has changed\nout/logo.png: is missing\n0 of 2 as the run left them\n");
  EXPECT_EQ(Run("verify --outputs-only done.json").output,
            "out/logo.png: is missing\n1 of 2 as the run left them\n");
  EXPECT_EQ(Run("verify recipe").exit_code, kNoInput);
  EXPECT_EQ(Run("run photo.jpg -o out/ --recipe nowhere").exit_code, kNoInput);
  WriteFile(folder_ / "wrong", "# 1\nmedian\nsize=3\n\nlight brightness=x\nnegative\n");
  const Outcome wrong = Run("run photo.jpg -o out/ --recipe wrong blur");
  EXPECT_EQ(wrong.exit_code, kUsage);
  EXPECT_TRUE(wrong.errors.starts_with("qel: wrong, line 5: light: brightness=x ")) << wrong.errors;
}

}  // namespace
}  // namespace qel::cli
