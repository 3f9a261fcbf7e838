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
  const int64_t bytes = rows.sample_bytes();
  const auto most = static_cast<int64_t>(kScratchBytes / kRows - kRowSlack - 128) / bytes - 2;
  ForEachTile(dest.Columns(), most, [&](int64_t x, int64_t count) {
    const size_t pitch = ScratchPitch(static_cast<size_t>((count + 2) * bytes));
    const auto slot = [&](int64_t y) { return scratch + static_cast<size_t>(y % kRows) * pitch; };
    // Row y lies in slot y + 1: row -1 comes first.
    for (int64_t y = -1; y < 1; ++y) rows.Fetch(y, x - 1, count + 2, slot(y + 1));
    for (int64_t y = 0; y < dest.Rows(); ++y) {
      rows.Fetch(y + 1, x - 1, count + 2, slot(y + 2));
      const uint8_t* const about[kRows] = {slot(y), slot(y + 1), slot(y + 2)};
      ActiveFilterKernels().contour(out.Open(y, x), about, static_cast<size_t>(count * bytes),
                                    static_cast<size_t>(bytes));
      out.Close(y, x, count);
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
