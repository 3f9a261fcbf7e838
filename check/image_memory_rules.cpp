// Rules about the memory of a host's images.

#include <algorithm>
#include <cstring>
#include <fstream>
#include <new>

#include "check/fence.h"
#include "check/image_trial.h"
#include "host/pixel_slack.h"

namespace qel::check {
namespace {

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

host::PixelSlack WholeSlack(const ReportedImage& image) {
  return host::SlackOf(image.width, image.height, image.stride, image.bit_count, image.model);
}

/// The slack of an image that is not walked as rows of words: the same at both ends.
host::PixelSlack EndsOnly(const ReportedImage& image) {
  const host::PixelSlack slack = WholeSlack(image);
  const int64_t end = std::min(slack.before, slack.after);
  return {end, end};
}

void OwnsTheBytesRoundIt(Subject& subject) { TrySlack(subject, 0, &EndsOnly); }

void OwnsRowsOfWords(Subject& subject) { TrySlack(subject, kModelMono, &WholeSlack); }

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
  constexpr int kTimes = 1000;
  constexpr int64_t kKept = 600;  // hosts may keep some of them for later
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

}  // namespace

Rules ImageMemoryRules() {
  return {
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
      {"image", "itself", "Assign to itself keeps shape and pixels.", &CopiesItself},
  };
}

}  // namespace qel::check
