// One reader of picture files: the input is the file, after the bytes by which its format is known.

#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

#include "pictures/picture_file.h"
#include "pictures/rows.h"
#include "tests/fuzz/fuzz.h"

namespace {

using namespace qel::pictures;

void PutBigEndian(uint8_t* at, uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) *at++ = static_cast<uint8_t>(value >> shift);
}

/// Makes the checksums of PNG chunks right, where few changed files would get past.
void RepairChecksums(std::vector<uint8_t>& file) {
  constexpr size_t kSignature = 8, kAround = 12;
  for (size_t at = kSignature; at + kAround <= file.size();) {
    size_t size = 0;
    for (size_t i = 0; i < 4; ++i) size = size << 8 | file[at + i];
    if (size > file.size() - at - kAround) return;
    uint8_t* const type = file.data() + at + 4;
    PutBigEndian(type + 4 + size,
                 static_cast<uint32_t>(crc32(0, type, static_cast<uInt>(size + 4))));
    at += size + kAround;
  }
}

// Memory as in the tool; pixels bounded for the sake of time.
constexpr int64_t kMostPixels = 1 << 22;

size_t RowBytes(const PictureInfo& info) {
  return (static_cast<size_t>(info.width) * static_cast<size_t>(info.bit_count) + 7) / 8;
}

void ReadWhole(const std::vector<uint8_t>& file) {
  ReadOptions options;
  options.limits.max_pixels = kMostPixels;
  FreshPages pixels;
  ReadPictureFromMemory(file, "fuzz", options, [&](const PictureInfo& info) {
    pixels.Resize(RowBytes(info) * static_cast<size_t>(info.height));
    if (pixels.size() > size_t{4} * kMostPixels) std::abort();  // beyond the limits
    return PixelBuffer{pixels.data(), static_cast<ptrdiff_t>(RowBytes(info))};
  });
}

/// With all that `ReadWhole` leaves as it is.
void ReadByRows(const std::vector<uint8_t>& file) {
  ReadOptions options;
  options.limits.max_pixels = kMostPixels;
  options.keep_palette_depth = options.to_srgb = true;
  options.upright = false;
  ByteSource source(file);
  const auto reader = OpenRows(source, "fuzz", options);
  const PictureInfo& info = reader->info();
  constexpr int kAtATime = 7;
  const int most = reader->streams() ? std::min(info.height, kAtATime) : info.height;
  if (!options.limits.AllowSize(info.width, most)) return;
  const FreshPages pixels(RowBytes(info) * static_cast<size_t>(most));
  for (int64_t done = 0; reader->rows_read() < info.height && done < kMostPixels;) {
    const int count = std::min(most, info.height - reader->rows_read());
    reader->Read({pixels.data(), static_cast<ptrdiff_t>(RowBytes(info))}, count);
    done += int64_t{info.width} * count;
  }
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<uint8_t> file(data, data + size);
  std::copy_n(kMagic.begin(), std::min(kMagic.size(), file.size()), file.begin());
  if (kMagic.starts_with("\x89PNG")) RepairChecksums(file);
  for (const auto read : {&ReadWhole, &ReadByRows}) {
    try {
      read(file);
    } catch (const qel::pictures::PictureError&) {
      // What a damaged file is answered with.
    }
  }
  return 0;
}
