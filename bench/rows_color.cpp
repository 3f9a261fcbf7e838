#include "bench/row.h"

namespace qel::bench {
namespace {

/// The colour of the flat white discs, as keys are written.
constexpr uint32_t kKey = 0xFFFEFF;

std::vector<uint8_t> Curve() {
  std::vector<uint8_t> curve;
  for (unsigned i = 0; curve.size() < 256; ++i) curve.push_back(static_cast<uint8_t>(i * 91 + 7));
  return curve;
}

#ifdef QEL_BENCH_OPENCV

void LookUp(PeerStage& p) {
  static std::vector<uint8_t> curve = Curve();
  cv::LUT(p[0], cv::Mat(1, 256, CV_8U, curve.data()), p[0]);
}

/// Grey, thresholded if `level` is not negative, in the depth of the image.
void Gray(PeerStage& p, int level) {
  const int channels = p[0].channels();
  cv::Mat& gray = channels == 1 ? p.result : p.scratch[0];
  if (channels == 1) {
    cv::filter2D(p[0], gray, -1, cv::Matx13f(0.114f, 0.587f, 0.299f));
  } else {
    cv::cvtColor(p[0], gray, channels == 3 ? cv::COLOR_BGR2GRAY : cv::COLOR_BGRA2GRAY);
  }
  if (level >= 0) cv::threshold(gray, gray, level, 255, cv::THRESH_BINARY);
  if (channels == 1) return;
  cv::cvtColor(gray, p.result, channels == 3 ? cv::COLOR_GRAY2BGR : cv::COLOR_GRAY2BGRA);
}

void MakeOpaque(PeerStage& p) { cv::bitwise_or(p[0], cv::Scalar(0, 0, 0, 255), p[0]); }

void ClearKeyed(PeerStage& p) {
  cv::inRange(p[0], cv::Scalar(255, 254, 255, 0), cv::Scalar(255, 254, 255, 255), p.scratch[0]);
  p[0].setTo(cv::Scalar(255, 254, 255, 0), p.scratch[0]);
}

void Tint(PeerStage& p) {
  cv::cvtColor(p[0], p.scratch[0], cv::COLOR_BGR2HLS);
  cv::bitwise_and(p.scratch[0], cv::Scalar(0, 255, 0), p.scratch[0]);
  cv::bitwise_or(p.scratch[0], cv::Scalar(100, 0, 120), p.scratch[0]);
  cv::cvtColor(p.scratch[0], p.scratch[1], cv::COLOR_HLS2BGR);
  cv::addWeighted(p[0], 0.25, p.scratch[1], 0.75, 0, p[0]);
}

#endif

}  // namespace

std::vector<Row> ColorRows() {
  std::vector<Row> rows;
  const auto add = [&](Row row) { rows.push_back(std::move(row).Changing(0)); };
  add(Row{"colorize", 2, Of("Colorize", "0", 142, 120, 0.75f), QEL_PEER(Tint(p))}.PeerAt({24}));
  add({"lut", 0.8, MethodCall("Lut", {.table = Curve()}), QEL_PEER(LookUp(p))});
  add({"negative", 0.6, Of("Negative", "0"), QEL_PEER(cv::bitwise_not(p[0], p[0]))});
  add({"gray_scale", 1.5, Of("GrayScale", "0"), QEL_PEER(Gray(p, -1))});
  add({"shift_rgb", 0.8, Of("ShiftRGB", "0", 20, 10, -15),
       QEL_PEER(cv::add(p[0], cv::Scalar(-15, 10, 20), p[0]))});
  add({"gamma", 0.8, Of("Gamma", "0", 2.2f), QEL_PEER(LookUp(p))});
  add({"light", 0.8, Of("Light", "0", 20, 10), QEL_PEER(LookUp(p))});
  add({"threshold", 1.5, Of("Threshold", "0", 127), QEL_PEER(Gray(p, 127))});
  add(Row{"set_image_alpha", 0.8, Of("SetImageAlpha", "0", 255, 0), QEL_PEER(MakeOpaque(p))}.At(
      {32}));
  add(Row {
    "set_image_alpha_transparency", 1, Of("SetImageAlphaTransparency", "0", 255, kKey),
        QEL_PEER(MakeOpaque(p); ClearKeyed(p))
  }.At({32}));
  add(Row{"set_image_transparent_pixel", 1, Of("SetImageTransparentPixel", "0", kKey),
          QEL_PEER(ClearKeyed(p))}
          .At({32}));
  return rows;
}

}  // namespace qel::bench
