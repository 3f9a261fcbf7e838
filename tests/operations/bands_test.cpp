#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <span>
#include <stdexcept>

#include "host/host_collection.h"
#include "host/module_library.h"
#include "operations/bands/band_pipeline.h"
#include "operations/errors.h"
#include "operations/table.h"
#include "tests/support/host_images.h"
#include "tests/support/sanitized.h"

namespace qel::operations {
namespace {

using Image = SmartPtr<host::HostImage>;
using test::Content;

Image NewImage(int width, int height, int bits) {
  return host::HostImage::Make(width, height, bits, ModelOf(bits), {.clear = true});
}

Image Noisy(int width, int height, int bits, uint64_t seed) {
  return test::NoisyImage(width, height, bits, ModelOf(bits), seed);
}

/// Second pictures of the depth that a test is about, masks of 8 bits; larger than the picture.
class SecondPictures final : public PictureSource {
 public:
  SecondPictures(const Shape& shape) : shape_(shape) {}
  IQEL& Get(const std::string& name) override {
    Image& image = images_[name];
    const bool mask = name.starts_with("mask");
    if (!image) image = Noisy(shape_.width + 3, shape_.height + 2, mask ? 8 : shape_.bits, 5);
    return *image.Get();
  }

 private:
  const Shape shape_;
  std::map<std::string, Image> images_;
};

/// An image, row by row or at once; one that fails at a row.
class Rows final : public BandSource {
 public:
  Rows(Image image, bool whole, int broken_row = -1)
      : image_(std::move(image)), whole_(whole), broken_row_(broken_row) {}

  IQEL* Whole() override { return whole_ ? image_.Get() : nullptr; }
  SmartPtr<IQEL> NewImage(int rows) override {
    Image image = operations::NewImage(image_->width(), rows, image_->bit_count());
    image->SetPalette(image_->palette());
    return SmartPtr<IQEL>::Adopt(image.Detach());
  }
  void FillRows(IQEL& image, int at, int count) override {
    for (int y = at; y < at + count; ++y, ++next_) {
      if (next_ == broken_row_) throw std::runtime_error("row " + std::to_string(next_));
      std::memcpy(static_cast<host::HostImage&>(image).Row(y), image_->Row(next_),
                  static_cast<size_t>(image_->RowBytes()));
    }
  }
  int next() const { return next_; }

 private:
  const Image image_;
  const bool whole_;
  const int broken_row_;
  int next_ = 0;
};

class Target final : public BandSink {
 public:
  explicit Target(int height, int full_at = -1) : height_(height), full_at_(full_at) {}

  void TakeRows(IQEL& image, RowRange rows) override {
    const auto& from = static_cast<host::HostImage&>(image);
    if (!image_) image_ = operations::NewImage(from.width(), height_, from.bit_count());
    for (int y = rows.begin; y < rows.end; ++y, ++next_) {
      if (next_ == full_at_) throw std::runtime_error("no room for row " + std::to_string(next_));
      std::memcpy(image_->Row(next_), from.Row(y), static_cast<size_t>(from.RowBytes()));
    }
  }
  Image Take() { return next_ == height_ ? std::move(image_) : Image(); }

 private:
  const int height_;
  const int full_at_;
  int next_ = 0;
  Image image_;
};

class Bands : public testing::Test {
 protected:
  Bands()
      : collection_(host::HostCollection::MakeWithImages({.clear = true})), library_(QEL_MODULE) {
    library_.Initialize(collection_.Get());
    engine_.emplace(MakeComponents(library_),
                    SmartPtr<IComponentCollection>::Retain(collection_.Get()));
  }

  static Image AsImage(SmartPtr<IQEL> picture) {
    return Image::Retain(static_cast<host::HostImage*>(picture.Get()));
  }

  std::string Whole(const std::vector<Step>& steps, const Image& source, PictureSource& second) {
    std::vector<std::string> notes;
    Image copy = NewImage(1, 1, 8);
    copy->Assign(source.Get(), 0);
    return Content(*engine_->Run(steps, SmartPtr<IQEL>::Adopt(copy.Detach()), second, notes).Get());
  }

  std::string InBands(const std::vector<Step>& steps, Image picture, PictureSource& second,
                      int band_rows, int threads) {
    const BandPlan plan(steps, ShapeOf(*picture.Get()),
                        [&](const std::string& name) { return ShapeOf(second.Get(name)); });
    std::optional<RandomNumbers> random_numbers;
    std::vector<StepRecord> records(steps.size());
    for (const Stretch& stretch : plan.stretches()) {
      if (stretch.by_bands) {
        Rows source(picture, stretch.looks_everywhere);
        Target target(plan.ShapeBefore(stretch.end).height);
        BandPipeline(*engine_, plan, stretch, second, band_rows)
            .Run(source, target, threads, records);
        EXPECT_TRUE(stretch.looks_everywhere || source.next() == picture->height());
        picture = target.Take();
        continue;
      }
      if (steps[stretch.begin].operation->random && !random_numbers) random_numbers.emplace();
      Image copy = NewImage(1, 1, 8);
      copy->Assign(picture.Get(), 0);
      picture = AsImage(engine_->RunStep(steps[stretch.begin], SmartPtr<IQEL>::Adopt(copy.Detach()),
                                         second, records[stretch.begin].notes));
    }
    return Content(*picture.Get());
  }

  /// Compares bands of several heights, on several threads, with the whole picture.
  void Compare(const std::vector<Step>& steps, int width, int height, int bits) {
    const Image source = Noisy(width, height, bits, 1);
    SecondPictures second(ShapeOf(*source.Get()));
    std::string whole;
    try {
      whole = Whole(steps, source, second);
    } catch (const StepError&) {
      return;  // not for such a picture
    }
    ++compared_;
    constexpr struct {
      int rows, threads;
    } kWays[] = {{1, 5}, {7, 2}, {64, 5}, {1, 1}, {2, 2}, {7, 1}, {7, 5}, {64, 1}};
    for (const auto& way : std::span(kWays).first(test::kSanitized ? 3 : 8)) {
      EXPECT_TRUE(InBands(steps, source, second, way.rows, way.threads) == whole)
          << steps.front().text << "... of " << width << " x " << height << " at " << bits
          << " bits, by " << way.rows << " rows on " << way.threads << " threads";
    }
  }

  SmartPtr<host::HostCollection> collection_;
  host::ModuleLibrary library_;
  std::optional<Engine> engine_;
  int compared_ = 0;
};

constexpr int kAllSizes[][2] = {{181, 107}, {5, 83}, {64, 9}, {1, 1}};
constexpr std::span kSizes = std::span(kAllSizes).first(test::kSanitized ? 2 : 4);

TEST_F(Bands, OfEveryOperationGiveTheBytesOfTheWholePicture) {
  for (const Operation& operation : OperationTable()) {
    compared_ = 0;
    for (const int bits : {1, 4, 8, 24, 32}) {
      if (!operation.WorksOn(bits)) continue;
      for (const auto& [width, height] : kSizes) {
        Compare(ParseSteps({std::string(operation.PictureStep())}), width, height, bits);
      }
    }
    EXPECT_GT(compared_, 0) << operation.name;
  }
}

TEST_F(Bands, OfChainsGiveTheBytesOfTheWholePicture) {
  const std::vector<std::string> chains[] = {
      {},
      {"sharpen", "median size=5", "gamma gamma=1.4", "gaussian-blur level=3"},
      {"erode size=4", "dilate size=6", "edge size=3"},
      {"gray-scale", "threshold level=90", "gray-scale"},
      {"median size=3", "crop x=1 y=60%", "median size=5", "sharpen"},
      {"pad border=7 background=#102030", "blur", "contour"},
      {"sharpen", "resize width=40%", "sharpen", "resize height=210% enlarge=yes filter=mitchell"},
      {"resize width=60% fit=exact height=130% enlarge=yes", "emboss", "crop y=3 height=2"},
      {"resize width=100%", "overlay with=other.png x=3 y=5 opacity=0.4", "soften"},
      {"blur", "turn angle=17 background=#80402080", "sharpen", "turn angle=90", "median size=3"},
      {"sharpen", "rotate angle=30", "sharpen", "mirror", "flip", "blur"},
      {"negative", "noise amount=30", "blur", "noise amount=20", "median size=3"},
      {"increase-bpp bits=32", "add with=other.png", "set-image-alpha alpha=9", "blur"},
      {"scale depth=24", "flatten background=red", "grey", "median size=7"},
      {"subtract with=other.png absolute=yes", "equal colour=#204080 mask=mask.png", "sharpen"}};
  for (const std::vector<std::string>& chain : chains) {
    compared_ = 0;
    const std::vector<Step> steps = chain.empty() ? std::vector<Step>() : ParseSteps(chain);
    for (const int bits : {8, 24, 32}) {
      for (const auto& [width, height] : kSizes) Compare(steps, width, height, bits);
    }
    EXPECT_GT(compared_, 0) << chain.front();
  }
}

TEST_F(Bands, ThatMeetAFaultEndTheRun) {
  const std::vector<Step> steps = ParseSteps({"sharpen", "crop height=60%"});
  const Image picture = Noisy(20, 50, 24, 3);
  SecondPictures second(ShapeOf(*picture.Get()));
  const BandPlan plan(steps, ShapeOf(*picture.Get()), {});
  ASSERT_EQ(plan.stretches().size(), 1u);
  // Also in rows that are not needed, and at the first and the last.
  for (const int row : {0, 10, 30, 49}) {
    for (const int threads : {1, 3}) {
      const auto run = [&](int broken_row, int full_at) -> std::string {
        Rows source(picture, false, broken_row);
        Target target(plan.result().height, full_at);
        std::vector<StepRecord> records(steps.size());
        try {
          BandPipeline(*engine_, plan, plan.stretches().front(), second, 4)
              .Run(source, target, threads, records);
        } catch (const std::runtime_error& fault) {
          return fault.what();
        }
        return "";
      };
      EXPECT_EQ(run(row, -1), "row " + std::to_string(row));
      if (row < plan.result().height) {
        EXPECT_EQ(run(-1, row), "no room for row " + std::to_string(row));
      }
    }
  }
}

}  // namespace
}  // namespace qel::operations
