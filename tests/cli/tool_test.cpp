#include "tests/support/tool.h"

#include <gtest/gtest.h>

#include <set>

#include "cli/drawing/demo_scene.h"
#include "cli/operations.h"
#include "cli/session/picture_io.h"
#include "cli/terminal/errors.h"
#include "tests/support/sanitized.h"

namespace qel::cli {
namespace {

using test::Outcome;
using test::ReadFile;
using test::WriteFile;

/// The tool as a user starts it, with the built-in picture at hand as scene.png.
class ToolRuns : public test::ToolTest {
 protected:
  void SetUp() override {
    const auto scene = MakeImage(kDemoWidth, kDemoHeight, 32);
    DrawDemoScene({scene->Bits(), scene->stride(), scene->width(), scene->height()});
    SavePicture(folder_ / "scene.png", *scene, {{}, 300, 150}, {});
  }

  Picture Load(const std::string& name) { return LoadPicture(folder_ / name, {}); }

  void ExpectSamePixels(const std::string& a, const std::string& b) {
    Expect({"diff ./" + a + " ./" + b, kDone, "exact"});
  }
};

TEST_F(ToolRuns, RunsChainsFromAndToEveryFormat) {
  ASSERT_EQ(Run("run scene.png -o photo.jpg gamma gamma=1.2").exit_code, kDone);
  for (const std::string format : {"jpg", "png", "tiff", "webp", "bmp", "ppm", "pam"}) {
    SCOPED_TRACE(format);
    const std::string file = "in." + format;
    ASSERT_EQ(Run("run photo.jpg -o " + file + " negative --lossless").exit_code, kDone);
    const Outcome outcome =
        Run("run " + file + " -o out.png negative \"light brightness=20 contrast=10\" gray-scale");
    EXPECT_EQ(outcome.exit_code, kDone) << outcome.errors;
    EXPECT_EQ(outcome.errors, "");
    if (format == "jpg") continue;  // loses detail
    ASSERT_EQ(
        Run("run photo.jpg -o direct.png light brightness=20 contrast=10 gray-scale").exit_code,
        kDone);
    ExpectSamePixels("out.png", "direct.png");
  }
}

TEST_F(ToolRuns, ReadsAndWritesPipesAndNamesWithADash) {
  ASSERT_EQ(Run("run scene.png -o direct.png negative").exit_code, kDone);
  const Outcome both =
      Shell("cat scene.png | " + Tool() + " run - -o - --format png negative > piped.png");
  EXPECT_EQ(both.exit_code, kDone) << both.errors;
  EXPECT_EQ(both.errors, "");
  ExpectSamePixels("direct.png", "piped.png");
  EXPECT_EQ(Run("run - -o from.png negative < scene.png").exit_code, kDone);
  ExpectSamePixels("direct.png", "from.png");
  EXPECT_EQ(Run("run scene.png -o named.png --format jpeg negative").exit_code, kDone);
  EXPECT_EQ(ReadFile(folder_ / "named.png").substr(0, 2), "\xFF\xD8");
  WriteFile(folder_ / "-scene.png", ReadFile(folder_ / "scene.png"));
  EXPECT_EQ(Run("run --quality 5 -- -scene.png -o -out.png negative").exit_code, kDone);
  ExpectSamePixels("direct.png", "-out.png");
  for (const char* const wrong :
       {"run scene.png -o - negative", "run - --in-place negative < scene.png",
        "run scene.png -o x.png --format gif negative", "run scene.png -o x.png --strip=x negative",
        "run scene.png - -o - --format png negative < scene.png"}) {
    EXPECT_EQ(Run(wrong).exit_code, kUsage) << wrong;
  }
  EXPECT_EQ(Run("run scene.png -o - --format png negative > /dev/full").exit_code, kNoOutput);
}

TEST_F(ToolRuns, ReadsNumbersFromFiles) {
  WriteFile(folder_ / "kernel", "0 -1 0\n-1 5 -1\n0 -1 0\n");
  ASSERT_EQ(Run("run scene.png -o file.png filter kernel=@kernel").exit_code, kDone);
  ASSERT_EQ(Run("run scene.png -o line.png filter kernel=0,-1,0,-1,5,-1,0,-1,0").exit_code, kDone);
  ExpectSamePixels("file.png", "line.png");
}

TEST_F(ToolRuns, KeepsResolutionAndTransparency) {
  ASSERT_EQ(Run("run scene.png -o twice.png negative negative").exit_code, kDone);
  ExpectSamePixels("scene.png", "twice.png");
  EXPECT_NEAR(Load("twice.png").metadata.dpi_x, 300, 0.1);
  EXPECT_NEAR(Load("twice.png").metadata.dpi_y, 150, 0.1);
}

TEST_F(ToolRuns, SaysWhatIsWrongAndWhatWouldBeRight) {
  WriteFile(folder_ / "broken.jpg", ReadFile(folder_ / "scene.png").substr(0, 2000));
  WriteFile(folder_ / "words.txt", "no picture at all");
  const std::vector<Ending> cases = {
      {"run scene.png -o out.png negativ", kUsage, "did you mean negative?"},
      {"run scene.png -o out.png light bright=3", kUsage, "it takes brightness, contrast"},
      {"run scene.png -o out.png light brightness=much", kUsage, "takes a whole number"},
      {"run scene.png -o out.png light brightness=1 brightness=2", kUsage, "given twice"},
      {"run scene.png -o out.png gamma", kUsage, "gamma= is missing"},
      {"run scene.png -o out.png brightness=3", kUsage, "before the first operation"},
      {"run scene.png -o out.png \"light 'x\"", kUsage, "not closed"},
      {"run scene.png -o out.png", kUsage, "no steps"},
      {"run scene.png negative", kUsage, "-o OUTPUT"},
      {"run scene.png -o out.png --fast negative", kUsage, "no option --fast"},
      {"rum scene.png", kUsage, "did you mean run?"},
      {"light scene.png", kUsage, "write qel run INPUT -o OUTPUT light"},
      {"help resmaple", kUsage, "did you mean resample?"},
      {"run scene.png -o out.png neg", kUsage, "did you mean negative?"},
      {"run scene.png -o out.png light contrast 5", kUsage, "write contrast=VALUE"},
      {"list > /dev/full", kNoOutput, "standard output"},
      {"run scene.png -o out.png light brigth=3", kUsage, "did you mean brightness?"},
      {"run scene.png -o out.png rotate angle=3 method=cubc", kUsage, "did you mean cubic?"},
      {"run scene.png -o out.png --job 2 negative", kUsage, "did you mean --jobs?"},
      {"run scene.png -o out.png -q 90 negative", kUsage, "did you mean --quality?"},
      {"run scene.png -o out.xyz negative", kUsage, ".png"},
      {"run missing.png -o out.png negative", kNoInput, "missing.png: No such file"},
      {"run broken.jpg -o out.png negative", kNoInput, "broken.jpg: truncated"},
      {"run words.txt -o out.png negative", kNoInput, "known are PNG JPEG TIFF WebP GIF"},
      {"run . -o out.png negative", kNoInput, "Is a directory"},
      {"run . -o out/ negative", kNoInput, "name its pictures, as './*.png'"},
      {"run '' -o out.png negative", kNoInput, "an input has no name"},
      {"run scene.png -o out.png filter kernel=@nowhere", kNoInput, "nowhere: No such file"},
      {"run scene.png -o out.png --json '' negative", kUsage, "the name after --json is empty"},
      {"run scene.png -o nowhere/out.png negative", kNoOutput, "nowhere/out.png"},
      {"run scene.png -o out.png --module words.txt negative", kModuleFault, "cannot load"},
      {"run scene.png -o out.png scale depth=24 set-image-alpha alpha=3", kWrongDepth,
       "works on 32 bits per pixel, the picture has 24; put increase-bpp before it"},
  };
  ExpectEach("", cases);
  ExpectEach("run scene.png -o out.png ",
             {{"scale width=50%", kUsage, "resize width=50%"},
              {"pad border=4 color=red", kUsage, "write background=white"},
              {"thumbnail", kUsage, "resize width=200 height=200"},
              {"brightness", kUsage, "light brightness=30"},
              {"resize", kUsage, "give width=, height= or both"},
              {"crop width=500 height=10", kUsage, "reaches beyond the picture of 480 x 320"},
              {"crop aspect=wide", kUsage, "width by height, as 16:9"},
              {"crop width=0", kUsage, "a number of pixels from 1 to 1000000, or"},
              {"pad border=2 background=#12", kUsage, "a colour as #RRGGBB"},
              {"overlay with=scene.png x=480", kUsage, "lies outside the picture of 480 x 320"},
              {"flatten background=transparent", kUsage, "an opaque colour"},
              {"turn", kUsage, "angle= is missing"},
              {"GrayScale Midian", kUsage, "there is no operation Midian"}});
  EXPECT_FALSE(std::filesystem::exists(folder_ / "out.png"));
}

// The module trusts its caller in these; the tool must not.
TEST_F(ToolRuns, RefusesWhatDoesNotFitAsTheDryRunDoes) {
  WriteFile(folder_ / "tiny.pgm", "P5 2 2 255\n" + std::string(4, 'x'));
  ASSERT_EQ(Run("run scene.png -o grey.png scale depth=8").exit_code, kDone);
  ASSERT_EQ(Run("run scene.png -o rgb.png scale depth=24").exit_code, kDone);
  // 256 MiB with nothing in them: rows of one byte take 64 each.
  WriteFile(folder_ / "tall.pgm", "P5\n1 268435456\n255\n");
  std::filesystem::resize_file(folder_ / "tall.pgm", (1 << 28) + 100);
  const std::vector<Ending> cases = {
      {"scene.png -o out.png add with=grey.png", kWrongDepth, "scale depth=8"},
      {"scene.png -o out.png subtract with=grey.png", kWrongDepth, "grey.png has 8 bits"},
      {"scene.png -o out.png add-scale with=grey.png", kWrongDepth, "one depth"},
      {"scene.png -o out.png copy with=grey.png keep=yes", kWrongDepth, "one depth"},
      {"scene.png -o out.png copy with=grey.png x=480", kUsage, "outside the picture of 480 x 320"},
      {"scene.png -o out.png equal colour=#FF0000 mask=scene.png", kWrongDepth,
       "mask=scene.png has 32 bits"},
      {"scene.png -o out.png equal colour=#FF0000 mask=tiny.pgm", kUsage, "480 x 320 at least"},
      {"scene.png -o out.png scale mask=grey.png", kWrongDepth, "from 8 to 8 bits"},
      {"grey.png -o out.png scale depth=32", kWrongDepth, "24 at most"},
      {"grey.png -o out.png add with=tiny.pgm", kUsage, "480 x 320 at least"},
      {"grey.png -o out.png scale8", kWrongDepth, "the picture has 8"},
      {"scene.png -o out.png transform-paste onto=grey.png affine=1,0,0,0,1,0", kWrongDepth,
       "onto=grey.png has 8 bits"},
      {"scene.png -o out.png add with=missing.png", kNoInput, "missing.png: No such file"},
      // Results that are too large, whichever step makes them.
      {"scene.png -o out.png resample width=65000 height=65000", kUsage,
       "resample: the result would have 65000 x 65000 pixels, more than the limit of 268435456"},
      {"scene.png -o out.png resample width=16500 height=16500", kUsage, "limit of 268435456"},
      {"scene.png -o out.png resample width=10% resample width=90000% resample height=5000%",
       kUsage, "limit of 268435456"},
      {"scene.png -o out.png rotate angle=45 --max-pixels=200K", kUsage, "limit of 200000"},
      {"scene.png -o out.png transform-paste onto=scene.png affine=1,0,0,0,1,0 resample "
       "width=50000%",
       kUsage, "240000 x 160000"},
      {"scene.png -o out.webp flip --max-memory 4M", kNoOutput, "writing takes"},
      {"scene.png -o out.png negative --max-memory 600K", kNoInput, "reading takes"},
      {"scene.png -o out.png resample width=300% --max-memory 4M", kUsage,
       "resample: takes 5.9 MiB of memory, more than the limit of 4.0 MiB"},
      {"scene.png -o out.png flip --max-pixels 100K", kNoInput, "limit of 100000"},
      {"scene.png -o out.webp negative --max-pixels 100K", kNoOutput, "limit of 100000"},
      {"tall.pgm -o out.png flip", kNoInput, "takes 16"},
      {"scene.png -o out.jpg resample width=1 height=65501", kNoOutput, "JPEG holds at most"},
      {"scene.png -o out.pgm negative", kNoOutput, "PGM holds grey pictures"},
  };
  if (!test::kSanitized) ExpectEach("run --dry-run ", cases);  // a part of the run
  ExpectEach("run ", cases);
  EXPECT_FALSE(std::filesystem::exists(folder_ / "out.png"));
}

TEST_F(ToolRuns, DemoWritesAPictureForEveryOperation) {
  if (test::kSanitized) GTEST_SKIP() << "packs sixty pictures, which others do as well";
  const Outcome outcome = Run("demo -o pictures");
  ASSERT_EQ(outcome.exit_code, kDone) << outcome.errors;
  EXPECT_NE(outcome.output.find("pictures"), std::string::npos);
  std::set<std::string> written;
  for (const auto& entry : std::filesystem::directory_iterator(folder_ / "pictures")) {
    written.insert(entry.path().stem().string());
    EXPECT_GT(LoadPicture(entry.path().string(), {}).image->width(), 0);
  }
  EXPECT_TRUE(written.contains("scene") && written.contains("before-after"));
  for (const Operation& operation : OperationTable()) {
    EXPECT_TRUE(written.contains(std::string(operation.name))) << operation.name;
  }
}

}  // namespace
}  // namespace qel::cli
