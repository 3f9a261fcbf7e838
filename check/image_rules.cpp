// Rules about a host's images.

#include <algorithm>
#include <cstring>
#include <fstream>
#include <new>

#include "check/fence.h"
#include "check/host_desk.h"
#include "check/watched_host.h"
#include "host/pixel_slack.h"

namespace qel::cli {
namespace {

constexpr int kDepths[] = {1, 4, 8, 16, 24, 32};
constexpr std::pair<int, int> kSizes[] = {{33, 21}, {1, 1}, {64, 5}, {7, 40}};

std::string Describe(int width, int height, int depth) {
  return std::to_string(width) + " x " + std::to_string(height) + " at " + std::to_string(depth) +
         " bits";
}

/// Calls `body(image, width, height, depth)` with an image of every size and depth, made behind a
/// fence on `side` where one is given. Depths that the host refuses are noted.
template <typename Body>
void ForEachShape(const HostDesk& desk, std::optional<Fence::Side> side, uint32_t model,
                  Body&& body) {
  bool supports_any = false;
  for (const int depth : kDepths) {
    size_t refused = 0;
    for (const auto& [width, height] : kSizes) {
      Doing(Describe(width, height, depth));
      const SmartPtr<IQELImageDIB> image = desk.MakeImage();
      std::optional<Fence> fence;
      if (side) fence.emplace(*side);
      const result_t created =
          image->Create(width, height, 1, depth, model != 0 ? model : UsualModel(depth));
      fence.reset();
      if (Succeeded(created)) {
        body(*image, width, height, depth);
      } else {
        ++refused;
      }
    }
    Require(refused == 0 || refused == std::size(kSizes), "Create fails at some sizes only");
    if (refused != 0) NotSupported(std::to_string(depth) + " bits");
    supports_any |= refused == 0;
  }
  Require(supports_any, "Create fails at every depth");
}

template <typename Body>
void ForEachShape(const HostDesk& desk, Body&& body) {
  ForEachShape(desk, std::nullopt, 0, body);
}

/// A depth that the host has, an ordinary one if possible.
int UsualDepth(const HostDesk& desk) {
  for (const int depth : {24, 32, 8, 4, 1}) {
    if (Succeeded(desk.MakeImage()->Create(3, 2, 1, depth, UsualModel(depth)))) return depth;
  }
  throw Broken("Create fails at every depth");
}

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

/// Fills rows so that every byte tells its place.
void WritePattern(const ReportedImage& image, int salt) {
  for (int y = 0; y < image.height; ++y) {
    for (int64_t i = 0; i < image.RowBytes(); ++i) {
      image.Row(y)[i] = static_cast<uint8_t>(y * 31 + i * 7 + salt);
    }
  }
}

std::string Pattern(const ReportedImage& image, int salt) {
  std::string pattern;
  for (int y = 0; y < image.height; ++y) {
    for (int64_t i = 0; i < image.RowBytes(); ++i) {
      pattern += static_cast<char>(static_cast<uint8_t>(y * 31 + i * 7 + salt));
    }
  }
  return pattern;
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

/// The rows of an image as one piece of memory.
struct Rows {
  uint8_t* begin;
  uint8_t* end;

  explicit Rows(const ReportedImage& image) {
    const int64_t step = std::abs(int64_t{image.stride});
    begin = image.stride < 0 ? image.Row(image.height - 1) : image.bits;
    end = begin + image.height * step;
  }
};

/// Reads and writes back what a byte in each page from `begin` to `end` holds, and the outermost.
void Touch(uint8_t* begin, uint8_t* end) {
  constexpr int64_t kStep = 1024;
  for (volatile uint8_t* byte = begin; byte < end;) {
    *byte = *byte;
    byte = byte + 1 == end ? end : std::min<volatile uint8_t*>(byte + kStep, end - 1);
  }
}

/// Throws `Broken` unless the image owns its rows and so many bytes round them: all that can be
/// said of memory behind a fence, and that any can be read and written.
void RequireOwned(const ReportedImage& image, const host::PixelSlack& slack) {
  const Rows rows(image);
  if (const auto block = Fence::BlockOf(rows.begin); block) {
    Require(rows.end <= block->end, "the rows end " + std::to_string(rows.end - block->end) +
                                        " bytes behind the memory that the image has");
    const auto demand = [](const char* where, int64_t needed, int64_t there) {
      Require(there >= needed, std::string("operations reach ") + std::to_string(needed) +
                                   " bytes " + where + " the rows, of which " +
                                   std::to_string(there) + " are the image's");
    };
    demand("before", slack.before, rows.begin - block->begin);
    demand("behind", slack.after, block->end - rows.end);
  }
  const std::string shape = Describe(image.width, image.height, image.bit_count);
  Doing(shape + ", writing " + std::to_string(slack.before) + " bytes before the rows");
  Touch(rows.begin - slack.before, rows.begin);
  Doing(shape + ", writing " + std::to_string(slack.after) + " bytes behind the rows");
  Touch(rows.end, rows.end + slack.after);
  Doing(shape);
}

/// Tries the bytes round the rows for which `part` asks; see docs/host-guide.md.
void TrySlack(Subject& subject, uint32_t model,
              host::PixelSlack (*part)(const ReportedImage& image)) {
  const HostDesk desk(subject);
  for (const Fence::Side side : {Fence::Side::kBehind, Fence::Side::kBefore}) {
    ForEachShape(desk, side, model, [&](IQELImage& image, int width, int height, int depth) {
      const ReportedImage reported(image);
      const host::PixelSlack slack = part(reported);
      if (reported.bits == nullptr || slack.before + slack.after == 0) return;
      RequireOwned(reported, slack);
      WritePattern(reported, 3);
      const SmartPtr<IQELImageDIB> other = desk.MakeImage(width, height, depth);
      WritePattern(ReportedImage(*other), 90);
      const Rows rows(reported);
      std::memset(rows.begin - slack.before, 0x5A, static_cast<size_t>(slack.before));
      std::memset(rows.end, 0x5A, static_cast<size_t>(slack.after));
      Require(reported.Pixels() == Pattern(reported, 3) &&
                  ReportedImage(*other).Pixels() == Pattern(reported, 90),
              "what lies round the rows belongs to other pixels as well");
    });
  }
}

/// The slack of an image that is not walked as rows of words.
host::PixelSlack EndsOf(const ReportedImage& image) {
  const int64_t end = std::min(
      host::SlackOf(image.width, image.height, image.stride, image.bit_count, image.model).before,
      host::SlackOf(image.width, image.height, image.stride, image.bit_count, image.model).after);
  return {end, end};
}

void OwnsTheBytesRoundIt(Subject& subject) { TrySlack(subject, 0, &EndsOf); }

void OwnsRowsOfWords(Subject& subject) {
  TrySlack(subject, kModelMono, [](const ReportedImage& image) {
    return host::SlackOf(image.width, image.height, image.stride, image.bit_count, image.model);
  });
}

void MakesPixelsAnew(Subject& subject) {
  const HostDesk desk(subject);
  ForEachShape(desk, Fence::Side::kBehind, 0, [&](IQELImage& image, int, int, int depth) {
    for (const auto& [width, height] : {std::pair(3, 2), {90, 70}, {5, 4}, {70, 90}}) {
      Doing("Create on an image with pixels, to " + Describe(width, height, depth));
      {
        const Fence fence(Fence::Side::kBehind);
        Require(Succeeded(image.Create(width, height, 1, depth, UsualModel(depth))),
                "Create fails on an image that has pixels");
      }
      const ReportedImage reported(image);
      Require(reported.width == width && reported.height == height && reported.bits != nullptr,
              "the image does not tell its new shape");
      RequireOwned(reported, {});
      WritePattern(reported, 17);
      Require(reported.Pixels() == Pattern(reported, 17), "the rows do not hold what is written");
    }
  });
}

/// Shapes that a host may refuse; when it takes them, the memory must be there.
void HasTheMemoryItPromises(Subject& subject) {
  const HostDesk desk(subject);
  constexpr size_t kLargestRequest = size_t{1} << 28;
  const struct {
    int width, height, depth;
  } shapes[] = {
      {2100, 2100, 32},       {4100, 1030, 24},       {70'000, 65, 8},
      {65, 70'000, 8},                                                      // 4 megapixels
      {65'536, 65'537, 8},    {32'768, 32'769, 32},   {46'341, 46'341, 8},  // 2^31 and 2^32
      {1 << 16, 1 << 16, 32}, {(1 << 27) + 1, 8, 32}, {INT32_MAX, 3, 24},
      {3, INT32_MAX, 24},
  };
  for (const auto& [width, height, depth] : shapes) {
    const std::string shape = Describe(width, height, depth);
    Doing(shape);
    const SmartPtr<IQELImageDIB> image = desk.MakeImage();
    image->Create(4, 3, 1, UsualDepth(desk), kModelMono);
    result_t created = kFail;
    try {
      const Fence fence(Fence::Side::kBehind, kLargestRequest);
      created = image->Create(width, height, 1, depth, UsualModel(depth));
    } catch (const std::bad_alloc&) {
    }
    const ReportedImage reported(*image);
    if (Succeeded(created)) {
      Require(reported.bits != nullptr, "Create succeeds, but GetBits gives no memory");
      Require(std::abs(int64_t{reported.stride}) >= reported.RowBytes(),
              "Create succeeds with a stride that is shorter than a row");
    } else if (int64_t{width} * height < 1 << 23) {
      NotSupported(shape);
    }
    if (reported.bits == nullptr || reported.height <= 0 || reported.width <= 0) continue;
    Doing(shape + (Succeeded(created) ? "" : ", after Create failed") + ", writing the rows");
    RequireOwned(reported, {});
    for (const int64_t y : {0, reported.height / 2, reported.height - 1}) {
      Touch(reported.Row(y), reported.Row(y) + reported.RowBytes());
    }
  }
}

/// Address space of this process in bytes.
int64_t AddressSpace() {
  int64_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * 4096;
}

void GivesOldPixelsBack(Subject& subject) {
  constexpr int kSide = 512;
  constexpr int kTimes = 700;
  constexpr int64_t kKept = 400;  // hosts may keep some of them for later
  const HostDesk desk(subject);
  const int depth = UsualDepth(desk);
  const int64_t pixels = int64_t{kSide} * kSide * depth / 8;
  const SmartPtr<IQELImageDIB> image = desk.MakeImage();
  const auto grows = [&](const std::string& what, auto&& repeat) {
    Doing(what);
    const int64_t before = AddressSpace();
    for (int i = 0; i < kTimes; ++i) repeat();
    Require(AddressSpace() - before < kKept * pixels,
            "memory grows by about " + std::to_string((AddressSpace() - before) / kTimes) +
                " bytes each time");
  };
  grows("Create, again and again",
        [&] { image->Create(kSide, kSide, 1, depth, UsualModel(depth)); });
  const SmartPtr<IQELImageDIB> source = desk.MakeImage(kSide, kSide, depth);
  grows("Assign, again and again", [&] { image->Assign(source.Get(), 0); });
  grows("new images, again and again", [&] { desk.MakeImage(kSide, kSide, depth); });
}

void CountsFromThreads(Subject& subject) {
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

void CopiesItself(Subject& subject) {
  const HostDesk desk(subject);
  ForEachShape(
      desk, Fence::Side::kBehind, 0, [&](IQELImage& image, int width, int height, int depth) {
        WritePattern(ReportedImage(image), 61);
        {
          // Pixels that it gives back on the way cannot be read any more.
          const Fence fence(Fence::Side::kBehind);
          image.Assign(&image, 0);
        }
        const ReportedImage after(image);
        Require(after.width == width && after.height == height && after.bit_count == depth &&
                    after.bits != nullptr,
                "Assign to itself loses the image");
        Require(after.Pixels() == Pattern(after, 61), "Assign to itself changes the pixels");
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
      {"image", "threads", "References may be counted from several threads.", &CountsFromThreads},
      {"image", "shape", "After Create, an image tells the shape it was given.", &ReportsItsShape},
      {"image", "rows", "Every row is memory of its own, four bytes or a multiple apart.",
       &HoldsItsRows},
      {"image", "reach", "The bytes round the rows that operations read and write are there.",
       &OwnsTheBytesRoundIt},
      {"image", "words", "Rows of bytes, and \"MONO\" rows, can be walked as rows of words.",
       &OwnsRowsOfWords},
      {"image", "anew", "Create makes pixels for the new shape, whatever was there before.",
       &MakesPixelsAnew},
      {"image", "large", "Create fails unless there is memory for the whole shape.",
       &HasTheMemoryItPromises},
      {"image", "memory", "Pixels that are replaced or released are given back.",
       &GivesOldPixelsBack},
      {"image", "assign", "Assign copies shape and pixels of any image, and keeps nothing of it.",
       &CopiesImages},
      {"image", "itself", "Assign to itself keeps shape and pixels.", &CopiesItself},
      {"image", "fill", "Fill sets every pixel to the colour.", &FillsEveryPixel},
      {"image", "empty", "Images without pixels are possible.", &TakesEmptyShapes},
  };
}

}  // namespace qel::cli
