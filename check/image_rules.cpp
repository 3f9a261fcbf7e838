// Rules about a host's images.

#include "check/image_trial.h"

namespace qel::check {
namespace {

void IsOneObject(Subject& subject) {
  const HostDesk desk(subject);
  const SmartPtr<IQELImageDIB> image = desk.MakeImage();
  Doing("an image");
  for (const IID* const iid : {&IID_IUnknown, &IID_IQEL, &IID_IQELImage, &IID_IQELImageDIB}) {
    SmartPtr<IUnknown> answer;
    Require(image->QueryInterface(*iid, answer.PutVoid()) == kOk && answer,
            "an interface of images is not answered");
    Require(CountOf(image.Get()) == 2, "QueryInterface does not add exactly one reference");
  }
  Require(image->AddRef() == 2 && image->Release() == 1, "the count returned is wrong");
  void* other = &other;
  Require(Failed(image->QueryInterface(__IIDOfc("INobodyKnows"), &other)) && other == nullptr,
          "an unknown interface must fail with a null output");
  SmartPtr<IQELImagePalette> palette = QueryFor<IQELImagePalette>(image.Get());
  if (!palette) return;
  RGBQUAD* entries = nullptr;
  uint32_t count = 0;
  palette->GetPalette(&entries, &count);
  Require(count == 0 || entries != nullptr, "a palette has a count but no entries");
}

void ReportsItsShape(Subject& subject) {
  const HostDesk desk(subject);
  ForEachShape(desk, [&](IQELImage& image, int width, int height, int depth) {
    for (const uint32_t model : {kModelMono, kModelBgr, kModelAbgr, 0u}) {
      Require(Succeeded(image.Create(width, height, 1, depth, model)), "Create fails");
      const ReportedImage reported(image);
      Require(reported.width == width && reported.height == height, "GetSize tells another size");
      Require(reported.planes == 1, "GetSize tells another number of planes");
      Require(reported.bit_count == depth, "GetFormat tells another bit count");
      Require(reported.model == model, "GetFormat tells another colour model");
      Require(reported.bits != nullptr, "GetBits gives no memory");
    }
  });
}

void HoldsItsRows(Subject& subject) {
  const HostDesk desk(subject);
  ForEachShape(desk, [&](IQELImage& image, int width, int height, int depth) {
    const ReportedImage before(image);
    Require(std::abs(int64_t{before.stride}) >= before.RowBytes(),
            "the stride is shorter than a row");
    Require(before.stride % 4 == 0,
            "the stride is " + std::to_string(before.stride) + ", which is not divisible by four");
    WritePattern(before, 3);
    const SmartPtr<IQELImageDIB> other = desk.MakeImage(width, height, depth);
    WritePattern(ReportedImage(*other), 90);
    const ReportedImage after(image);
    Require(after.bits == before.bits && after.stride == before.stride,
            "GetBits gives another place each time");
    Require(after.Pixels() == Pattern(after, 3), "rows overlap, or images share their memory");
  });
}

void CountsImagesFromThreads(Subject& subject) {
  const HostDesk desk(subject);
  const SmartPtr<IQELImageDIB> image = desk.MakeImage();
  Doing("an image");
  IUnknown* const pointer = image.Get();
  RequireCountsFromThreads({&pointer, 1});
}

/// Sources of another make: their rows lie upside down, with padding.
void CopiesImages(Subject& subject) {
  const HostDesk desk(subject);
  WatchedHost foreign;
  foreign.layout.bottom_up = true;
  const SmartPtr<IQELImageDIB> image = desk.MakeImage(3, 2, UsualDepth(desk));
  ForEachShape(desk, [&](IQELImage& own, int width, int height, int depth) {
    WritePattern(ReportedImage(own), 50);
    WatchedImage& other = foreign.MakeImage(width, height, depth);
    const uint32_t model = other.model();
    for (IQEL* const source : {static_cast<IQEL*>(&own), static_cast<IQEL*>(&other)}) {
      const std::string pixels = ReportedImage(*source).Pixels();
      const uint32_t count = CountOf(source);
      Require(Succeeded(image->Assign(source, 0)), "Assign fails");
      Require(CountOf(source) == count, "Assign keeps or loses references to its source");
      const ReportedImage copy(*image);
      Require(copy.width == width && copy.height == height && copy.planes == 1,
              "Assign does not take the source's size");
      Require(copy.bit_count == depth && copy.model == model,
              "Assign does not take the source's format");
      Require(copy.Pixels() == pixels, "Assign does not copy the pixels row by row");
      WritePattern(copy, 120);
      Require(ReportedImage(*source).Pixels() == pixels, "the copy shares its source's memory");
    }
    foreign.ForgetImages();
  });
}

void FillsEveryPixel(Subject& subject) {
  const HostDesk desk(subject);
  ForEachShape(desk, [&](IQELImage& image, int, int, int depth) {
    if (depth % 8 != 0 || depth == 16) return;
    const auto dib = QueryFor<IQELImageDIB>(&image);
    Require(static_cast<bool>(dib), "the image does not answer IQELImageDIB");
    const ReportedImage reported(image);
    WritePattern(reported, 9);
    dib->Fill(0x44332211);
    const uint8_t bytes[] = {0x11, 0x22, 0x33, 0x44};
    for (int y = 0; y < reported.height; ++y) {
      for (int64_t i = 0; i < reported.RowBytes(); ++i) {
        Require(reported.Row(y)[i] == bytes[i % (depth / 8)],
                "a pixel does not hold blue, green, red and alpha of the colour, in this order");
      }
    }
  });
}

void TakesEmptyShapes(Subject& subject) {
  const HostDesk desk(subject);
  const int depth = UsualDepth(desk);
  for (const auto& [width, height] : {std::pair(0, 0), {0, 9}, {9, 0}}) {
    Doing(Describe(width, height, depth));
    const SmartPtr<IQELImageDIB> image = desk.MakeImage(5, 5, depth);
    image->Create(width, height, 1, depth, UsualModel(depth));
    const ReportedImage reported(*image);
    Require(reported.width == width && reported.height == height, "GetSize tells another size");
    image->Fill(1);
    desk.MakeImage(3, 3, depth)->Assign(image.Get(), 0);
  }
}

}  // namespace

Rules ImageRules() {
  return {
      {"image", "object", "Images count references and answer for themselves.", &IsOneObject,
       kCounting},
      {"image", "threads", "References may be counted from several threads.",
       &CountsImagesFromThreads},
      {"image", "shape", "After Create, an image tells the shape it was given.", &ReportsItsShape},
      {"image", "rows", "Every row is memory of its own, four bytes or a multiple apart.",
       &HoldsItsRows},
      {"image", "assign", "Assign copies shape and pixels of any image, and keeps nothing of it.",
       &CopiesImages},
      {"image", "fill", "Fill sets every pixel to the colour.", &FillsEveryPixel},
      {"image", "empty", "Images without pixels are possible.", &TakesEmptyShapes},
  };
}

}  // namespace qel::check
