#include "filter/filter_kernels.h"
#include "filter/filter_transform.h"
#include "filter/neighbourhood.h"
#include "module/result_image.h"

namespace qel {
namespace {

constexpr int kRows = 3;

void Trace(const ImageView& source, const ImageView& dest) {
  alignas(64) uint8_t scratch[kScratchBytes];
  const SourceRows rows(source);
  DestRows out(dest, source, 0);
  const auto step = static_cast<size_t>(rows.sample_bytes());
  const auto most = static_cast<int64_t>((kScratchBytes / kRows - kRowSlack - 128) / step - 2);
  ForEachStrip(rows, out, {-1, kRows}, {most, kTileColumns}, 0, [&](Strip& strip) {
    const size_t pitch = ScratchPitch(strip.InBytes());
    const auto read = [&](int64_t y) {
      return strip.Read(y, scratch + static_cast<size_t>((y + kRows) % kRows) * pitch);
    };
    const uint8_t* about[kRows] = {nullptr, read(-1), read(0)};
    for (int64_t y = 0; y < strip.Rows(); ++y) {
      strip.Prefetch(y, 1);
      about[0] = about[1];
      about[1] = about[2];
      about[2] = read(y + 1);
      ActiveFilterKernels().contour(strip.Open(y), about, strip.OutBytes(), step);
      strip.Close(y);
    }
  });
}

}  // namespace

result_t CQELFilterTransform::Contour(IQEL* image, IQEL** result) {
  if (image == nullptr) return kFail;
  const ImageView source = ReadView(*image);
  ResultImage output = ResultImage::Like(source);
  if (!output) return kFail;
  const ImageView dest = output.View();
  if (StoresPixels(dest)) Trace(source, dest);
  return output.HandOver(image, result);
}

}  // namespace qel
