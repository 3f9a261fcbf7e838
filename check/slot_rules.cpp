// Rules about the order of slots: what each slot does shows which operation stands in it.

#include <array>
#include <functional>

#include "check/interface_table.h"
#include "check/trial.h"

namespace qel::check {
namespace {

constexpr int kSide = 5;
constexpr uint32_t kColor = 0x3C140A;  // red 60, green 20, blue 10
constexpr uint32_t kKey = 0x0A143C;    // the same with red in the low byte

uint32_t Gray(uint32_t level) { return level * 0x010101; }

/// Where one operation is tried: small images, and the image that comes out.
class Slot {
 public:
  explicit Slot(Workbench& bench) : bench_(bench) {}

  const Components& on() const { return bench_.components(); }
  WatchedImage& Image(int bit_count, int width = kSide, int height = kSide) {
    return bench_.host().MakeImage(width, height, bit_count);
  }
  WatchedImage& Flat(uint32_t pixel, int bit_count = 24) {
    WatchedImage& image = Image(bit_count);
    image.SetAll(pixel);
    return image;
  }
  /// Grey 100 with one pixel of another grey in the middle.
  WatchedImage& Dot(uint32_t level) {
    WatchedImage& image = Flat(Gray(100));
    image.Set(2, 2, Gray(level));
    return image;
  }
  IQEL** Out() { return &result_; }
  /// The image that came out. Throws `Broken` when there is none.
  WatchedImage& Result() {
    WatchedImage* const image = bench_.host().FindImage(result_);
    Require(image != nullptr, "no image comes out");
    return *image;
  }

 private:
  Workbench& bench_;
  IQEL* result_ = nullptr;
};

bool HasShape(const WatchedImage& image, int width, int height, int bit_count) {
  return image.width() == width && image.height() == height && image.bit_count() == bit_count;
}

/// True when the operation behaves as its name says.
using Sign = std::function<bool(Slot& slot)>;

/// Tries the signs of an interface's operations, in the order of its slots.
void RequireOrder(Subject& subject, std::string_view interface_name,
                  const std::vector<Sign>& signs) {
  Workbench bench(subject);
  for (const InterfaceRow& row : InterfaceTable()) {
    if (row.name != interface_name) continue;
    for (size_t i = 0; i < signs.size(); ++i) {
      Doing(std::string(row.name) + " slot " + std::to_string(i + 3) + ", " +
            std::string(row.slots[i + 3]));
      Slot slot(bench);
      Require(signs[i](slot), "the slot does something else");
      bench.host().ForgetImages();
    }
  }
}

/// Two pixels, the first coloured.
WatchedImage& Pair(Slot& slot, int bit_count = 24) {
  WatchedImage& image = slot.Image(bit_count, 2, 1);
  image.Set(0, 0, kColor | 200u << 24);
  image.Set(1, 0, 200u << 24);
  return image;
}

void ColorOrder(Subject& subject) {
  RequireOrder(subject, "IQELColorTransform",
               {[](Slot& slot) {
                  WatchedImage& image = Pair(slot);
                  slot.on().color->Colorize(&image, 0, 0, 1);
                  const uint32_t lightness =
                      image.At(0, 0) & 0xFF;  // of 10 to 60, give or take rounding
                  return image.At(0, 0) == Gray(lightness) && lightness >= 33 && lightness <= 36;
                },
                [](Slot& slot) {
                  WatchedImage& image = Pair(slot);
                  std::array<uint8_t, 256> table;
                  table.fill(7);
                  slot.on().color->Lut(&image, table.data());
                  return image.At(0, 0) == Gray(7) && image.At(1, 0) == Gray(7);
                },
                [](Slot& slot) {
                  WatchedImage& image = Pair(slot);
                  slot.on().color->Negative(&image);
                  return image.At(0, 0) == (kColor ^ 0xFFFFFF) && image.At(1, 0) == 0xFFFFFF;
                },
                [](Slot& slot) {
                  WatchedImage& image = Pair(slot);
                  slot.on().color->GrayScale(&image);
                  return image.At(0, 0) == Gray(30);
                },
                [](Slot& slot) {
                  WatchedImage& image = Pair(slot);
                  slot.on().color->ShiftRGB(&image, 1, 2, 3);
                  return image.At(0, 0) == kColor + 0x010203;
                },
                [](Slot& slot) {
                  WatchedImage& image = Pair(slot);
                  image.Set(1, 0, 0xFFFFFF);
                  slot.on().color->Gamma(&image, 2);
                  const uint32_t pixel = image.At(0, 0);  // brighter, by more in the dark
                  return (pixel & 0xFF) > 40 && (pixel >> 16) > 110 && image.At(1, 0) == 0xFFFFFF;
                },
                [](Slot& slot) {
                  WatchedImage& image = Pair(slot);
                  slot.on().color->Light(&image, 10, 0);
                  return image.At(0, 0) == kColor + 0x0A0A0A;
                },
                [](Slot& slot) {
                  WatchedImage& image = Pair(slot, 32);
                  slot.on().color->SetImageAlpha(&image, 77, 0);
                  return image.At(0, 0) >> 24 == 77 && image.At(1, 0) >> 24 == 77;
                },
                [](Slot& slot) {
                  WatchedImage& image = Pair(slot, 32);
                  slot.on().color->SetImageAlphaTransparency(&image, 50, kKey);
                  return image.At(0, 0) >> 24 == 0 && image.At(1, 0) >> 24 == 50;
                },
                [](Slot& slot) {
                  WatchedImage& image = Pair(slot, 32);
                  slot.on().color->SetImageTransparentPixel(&image, kKey);
                  return image.At(0, 0) >> 24 == 0 && image.At(1, 0) >> 24 == 200;
                },
                [](Slot& slot) {
                  WatchedImage& image = Pair(slot);
                  slot.on().color->Threshold(&image, 29);
                  return image.At(0, 0) == 0xFFFFFF && image.At(1, 0) == 0;
                }});
}

/// Leaves points where they are and counts them.
class Counter final : public ITransform {
 public:
  int points = 0;
  result_t QueryInterface(const IID&, void** object) override {
    *object = nullptr;
    return kNoInterface;
  }
  uint32_t AddRef() override { return 2; }
  uint32_t Release() override { return 1; }
  result_t TransformPoint(double*, double*, double*) override {
    ++points;
    return kOk;
  }
};

uint32_t SwapEnds(uint32_t pixel) { return (pixel & 0xFF) << 16 | (pixel & 0xFF00) | pixel >> 16; }

void TransformOrder(Subject& subject) {
  RequireOrder(
      subject, "IQELTransform",
      {[](Slot& slot) {
         WatchedImage& source = slot.Image(24, 3, 2);
         slot.on().transform->Flip(&source, slot.Out());
         return slot.Result().At(2, 0) == source.At(2, 1);
       },
       [](Slot& slot) {
         WatchedImage& source = slot.Image(24, 3, 2);
         slot.on().transform->Mirror(&source, slot.Out());
         return slot.Result().At(2, 1) == source.At(0, 1);
       },
       [](Slot& slot) {
         WatchedImage& source = slot.Image(24, 3, 2);
         slot.on().transform->Rotate(&source, slot.Out(), 90, 0, 0, 0);
         return HasShape(slot.Result(), 2, 3, 24) && slot.Result().At(1, 0) == source.At(0, 0);
       },
       [](Slot& slot) {
         WatchedImage& source = slot.Image(24, 3, 2);
         slot.on().transform->Skew(&source, slot.Out(), 0, 0, 0, 0, 0, 1);
         return HasShape(slot.Result(), 3, 2, 32) &&
                slot.Result().At(2, 1) == (source.At(2, 1) | 0xFF000000);
       },
       [](Slot& slot) {
         WatchedImage& source = slot.Image(24, 3, 2);
         slot.on().transform->Resample(&source, slot.Out(), 6, 4, 0, 1);
         return HasShape(slot.Result(), 6, 4, 24) && slot.Result().At(0, 0) == source.At(0, 0);
       },
       [](Slot& slot) {
         WatchedImage& source = slot.Image(24, 3, 2);
         slot.on().transform->IncreaseBpp(&source, slot.Out(), 32, kModelAbgr);
         return HasShape(slot.Result(), 3, 2, 32) && slot.Result().model() == kModelAbgr;
       },
       [](Slot& slot) {
         WatchedImage& source = slot.Flat(kColor);
         WatchedImage& target = slot.Image(24, 9, 9);
         const uint32_t before = target.At(8, 8);
         slot.on().transform->RotatePaste(&source, &target, 0, 0, 0xFFFFFF);
         return target.At(2, 2) == kColor && target.At(8, 8) == before;
       },
       [](Slot& slot) {
         WatchedImage& image = slot.Flat(kColor);
         slot.on().transform->FlipBits(&image);
         return image.At(1, 1) == SwapEnds(kColor);
       },
       [](Slot& slot) {
         WatchedImage& source = slot.Image(24);
         slot.on().transform->Quad(&source, slot.Out(), 0, 0, 4, 0, 0, 4, 4, 4, 7, 6, 0);
         return HasShape(slot.Result(), 7, 6, 24);
       },
       [](Slot& slot) {
         WatchedImage& source = slot.Image(24);
         Counter counter;
         slot.on().transform->Transform(&counter, &source, slot.Out(), 1, 0, 4, 3, 0, 0);
         return counter.points == 12 && slot.Result().At(0, 0) == source.At(1, 0);
       },
       [](Slot& slot) {
         WatchedImage& source = slot.Image(24);
         WatchedImage& target = slot.Image(24, 9, 9);
         Counter counter;
         slot.on().transform->TransformPaste(&counter, &source, &target, 3, 2, 0, 0);
         return counter.points == kSide * kSide && target.At(3, 2) == source.At(0, 0);
       },
       [](Slot& slot) {
         WatchedImage& image = slot.Image(24, 3, 2);
         const uint32_t below = image.At(1, 1);
         slot.on().transform->FlipImageAndBits(&image);
         return image.At(1, 0) == SwapEnds(below);
       }});
}

void DeformOrder(Subject& subject) {
  RequireOrder(subject, "IQELDeform", {[](Slot& slot) {
                 WatchedImage& image = slot.Image(24);
                 const bool refused =
                     slot.on().deform->CircleTransform(&image, -1, 0, 1) == kInvalidArgument;
                 slot.on().deform->CircleTransform(&image, kCircleUnwrap, 1, 1);
                 return refused && HasShape(image, kSide, kSide, 32);
               }});
}

/// Runs a random operation twice: whether the outcomes differ, and whether all their colours come
/// from the source.
struct Drawn {
  bool differ = false;
  bool from_source = true;
};
Drawn Draw(Slot& slot, const std::function<void(IQEL* source, IQEL** result)>& operation) {
  WatchedImage& source = slot.Image(24, 9, 9);
  const std::string colors = source.Pixels();
  Drawn drawn;
  std::string first;
  for (int run = 0; run < 2; ++run) {
    operation(&source, slot.Out());
    const std::string pixels = slot.Result().Pixels();
    drawn.differ = pixels != first;
    first = pixels;
    for (size_t i = 0; i < pixels.size(); i += 3) {
      size_t at = 0;
      while (at < colors.size() && colors.compare(at, 3, pixels, i, 3) != 0) at += 3;
      drawn.from_source &= at < colors.size();
    }
  }
  return drawn;
}

void FilterOrder(Subject& subject) {
  RequireOrder(subject, "IQELFilterTransform",
               {[](Slot& slot) {
                  slot.on().filter->Erode(&slot.Dot(50), 3, slot.Out());
                  return slot.Result().At(1, 1) == Gray(50) && slot.Result().At(4, 4) == Gray(100);
                },
                [](Slot& slot) {
                  slot.on().filter->Edge(&slot.Dot(250), 3, slot.Out());
                  return slot.Result().At(1, 1) == Gray(150) && slot.Result().At(4, 4) == 0;
                },
                [](Slot& slot) {
                  slot.on().filter->Dilate(&slot.Dot(250), 3, slot.Out());
                  return slot.Result().At(1, 1) == Gray(250) && slot.Result().At(4, 4) == Gray(100);
                },
                [](Slot& slot) {
                  int kernel[9] = {0, 0, 0, 0, 1, 0, 0, 0, 0};
                  slot.on().filter->Filter(&slot.Dot(200), kernel, 3, 2, 9, slot.Out());
                  return slot.Result().At(2, 2) == Gray(109) && slot.Result().At(1, 1) == Gray(59);
                },
                [](Slot& slot) {
                  WatchedImage& source = slot.Flat(0);
                  source.Set(2, 2, Gray(100));
                  slot.on().filter->Contour(&source, slot.Out());
                  return slot.Result().At(1, 1) == Gray(155) && slot.Result().At(2, 2) == Gray(255);
                },
                [](Slot& slot) {
                  const Drawn drawn = Draw(slot, [&](IQEL* source, IQEL** result) {
                    slot.on().filter->Jitter(source, 2, result);
                  });
                  return drawn.differ && drawn.from_source;
                },
                [](Slot& slot) {
                  const Drawn drawn = Draw(slot, [&](IQEL* source, IQEL** result) {
                    slot.on().filter->Noise(source, 40, result);
                  });
                  return drawn.differ && !drawn.from_source;
                },
                [](Slot& slot) {
                  slot.on().filter->Median(&slot.Dot(0), 3, slot.Out());
                  return slot.Result().At(2, 2) == Gray(100) && slot.Result().At(1, 1) == Gray(100);
                },
                [](Slot& slot) {
                  slot.on().filter->Emboss(&slot.Flat(Gray(100)), slot.Out());
                  return slot.Result().At(2, 2) == Gray(127);
                },
                [](Slot& slot) {
                  slot.on().filter->Blur(&slot.Dot(190), slot.Out());
                  return slot.Result().At(2, 2) == Gray(110);
                },
                [](Slot& slot) {
                  slot.on().filter->Soften(&slot.Dot(190), slot.Out());
                  return slot.Result().At(2, 2) == Gray(145);
                },
                [](Slot& slot) {
                  slot.on().filter->Sharpen(&slot.Dot(190), slot.Out());
                  return slot.Result().At(1, 1) == Gray(87);
                },
                [](Slot& slot) {
                  slot.on().filter->GaussianBlur(&slot.Dot(190), 0, slot.Out());
                  return slot.Result().At(2, 2) == Gray(122);
                }});
}

void MathsOrder(Subject& subject) {
  RequireOrder(subject, "IQELMaths",
               {[](Slot& slot) {
                  WatchedImage& image = slot.Image(24);
                  slot.on().maths->Equal(&image, nullptr, 0x112233);
                  return image.At(4, 4) == 0x332211;
                },
                [](Slot& slot) {
                  WatchedImage& dest = slot.Flat(0);
                  slot.on().maths->Copy(&dest, &slot.Image(24, 1, 1), nullptr, 1, 2);
                  return dest.At(1, 2) != 0 && dest.At(0, 0) == 0 && dest.At(2, 2) == 0;
                },
                [](Slot& slot) {
                  WatchedImage& dest = slot.Flat(0);
                  slot.on().maths->AddScale(&dest, &slot.Flat(Gray(100)), &slot.Flat(Gray(50)),
                                            nullptr, 0.5f, 0.5f, 3);
                  return dest.At(4, 4) == Gray(78);
                },
                [](Slot& slot) {
                  WatchedImage& dest = slot.Flat(0);
                  slot.on().maths->Scale(&dest, &slot.Flat(Gray(100)), nullptr, 0.5f, 1);
                  return dest.At(4, 4) == Gray(51);
                },
                [](Slot& slot) {
                  WatchedImage& dest = slot.Flat(0);
                  const result_t tally = slot.on().maths->Subtract(&dest, &slot.Flat(Gray(100)),
                                                                   &slot.Flat(Gray(40)), 0);
                  return dest.At(4, 4) == Gray(60) && tally == 3 * kSide * kSide;
                },
                [](Slot& slot) {
                  slot.on().maths->CreateDestImage(slot.Out(), &slot.Image(24, 3, 2), 8,
                                                   static_cast<int>(kModelMono));
                  return HasShape(slot.Result(), 3, 2, 8) && slot.Result().model() == kModelMono;
                },
                [](Slot& slot) {
                  WatchedImage& dest = slot.Image(8, 1, 1);
                  slot.on().maths->Add(&dest, &slot.Flat(Gray(100)), &slot.Flat(Gray(40)), 0);
                  return HasShape(dest, kSide, kSide, 24) && dest.At(4, 4) == Gray(140);
                },
                [](Slot& slot) {
                  WatchedImage& source = slot.Image(32);
                  source.Create(2, 1, 1, 32, kModelMono);
                  source.SetAll(101);
                  WatchedImage& dest = slot.Image(24, 1, 1);
                  slot.on().maths->Scale8(&dest, &source, 10, 0.5);
                  return HasShape(dest, 2, 1, 8) && dest.At(1, 0) == 60;
                }});
}

}  // namespace

Rules SlotRules() {
  return {
      {"slots", "color", "Slots of IQELColorTransform stand in their order.", &ColorOrder},
      {"slots", "transform", "Slots of IQELTransform stand in their order.", &TransformOrder},
      {"slots", "deform", "Slots of IQELDeform stand in their order.", &DeformOrder},
      {"slots", "filter", "Slots of IQELFilterTransform stand in their order.", &FilterOrder},
      {"slots", "maths", "Slots of IQELMaths stand in their order.", &MathsOrder},
  };
}

}  // namespace qel::check
