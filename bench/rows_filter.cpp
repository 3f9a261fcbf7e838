#include <algorithm>
#include <cstdlib>

#include "bench/row.h"
#include "filter/convolution/convolution_plan.h"
#include "filter/convolution/fixed_kernels.h"
#include "filter/median/median_plan.h"
#include "filter/morphology/extrema_plan.h"

namespace qel::bench {
namespace {

/// Weights without symmetry or zeros, of either sign.
int* Weights() {
  static std::vector<int> weights;
  for (int i = 0; weights.size() < 15 * 15; ++i) weights.push_back(i * 37 % 19 - 6 + i % 2 * 3);
  return weights.data();
}

int* Ones() {
  static std::vector<int> ones(15 * 15, 1);
  return ones.data();
}

MethodCall Filter(const int* weights, double size, double divisor, double offset) {
  const auto count = static_cast<ptrdiff_t>(size * size);
  return MethodCall("Filter",
                    {.numbers = {size, divisor, offset}, .weights = {weights, weights + count}});
}

/// As many numbers as the random filters draw.
Peer Draws(int per_pixel) {
  return [per_pixel](PeerStage& p) {
    for (int64_t i = int64_t{p.width} * p.height * per_pixel; i > 0; --i) std::rand();
  };
}

std::function<std::string(int)> ConvolutionBy(const int* kernel, int size, int divisor,
                                              int offset) {
  return [=](int depth) {
    const auto plan = PlanConvolution(kernel, size, divisor, offset, depth);
    return TextOf(kConvolutionMethods, plan.method).name;
  };
}
std::function<std::string(int)> ConvolutionBy(const FixedKernel& kernel) {
  return ConvolutionBy(kernel.weights, kernel.size, kernel.divisor, kernel.offset);
}

std::function<std::string(int)> ExtremaBy(Extrema extrema, int size) {
  return [=](int depth) {
    static uint8_t pixel;
    ImageView view;
    static_cast<ImageShape&>(view) = {1920, 1080, 1, depth, 0};
    view.bits = &pixel;
    return TextOf(kExtremaMethods, PlanExtrema(extrema, size, view).method).name;
  };
}

#ifdef QEL_BENCH_OPENCV

void Convolve(PeerStage& p, const int* kernel, int size, int divisor, int offset) {
  cv::Mat_<float> weights(size, size);
  for (int i = 0; i < size * size; ++i) {
    weights(i) = static_cast<float>(kernel[i]) / static_cast<float>(divisor);
  }
  cv::filter2D(p[0], p.result, -1, weights, {-1, -1}, offset);
}

cv::Mat Square(int size) { return cv::Mat::ones(size, size, CV_8U); }

// OpenCV's own Gaussian is separable, and so other work than these kernels.
void Convolve(PeerStage& p, const FixedKernel& kernel) {
  Convolve(p, kernel.weights, kernel.size, std::max(kernel.divisor, 1), kernel.offset);
}

#endif

}  // namespace

std::vector<Row> FilterRows() {
  std::vector<Row> rows;
  const auto add = [&](Row row) { rows.push_back(std::move(row)); };
  for (const auto& [n, goal] : {std::pair(3, 1.8), {5, 1.8}, {15, 3.0}, {31, 3.5}}) {
    const int size = n;
    add(Row{"erode " + std::to_string(n), goal, Of("Erode", "0", size),
            QEL_PEER(cv::erode(p[0], p.result, Square(size)))}
            .By(ExtremaBy(Extrema::kMinimum, size)));
  }
  for (const auto& [n, goal] : {std::pair(1, 0.0), {3, 1.8}, {15, 3.0}, {31, 3.5}}) {
    const int size = n;
    add(Row{"dilate " + std::to_string(n), goal, Of("Dilate", "0", size),
            QEL_PEER(cv::dilate(p[0], p.result, Square(size)))}
            .By(ExtremaBy(Extrema::kMaximum, size)));
  }
  for (const auto& [n, goal] : {std::pair(3, 3.0), {15, 5.0}, {31, 6.0}}) {
    const int size = n;
    add(Row{"edge " + std::to_string(n), goal, Of("Edge", "0", size),
            QEL_PEER(cv::morphologyEx(p[0], p.result, cv::MORPH_GRADIENT, Square(size)))}
            .By(ExtremaBy(Extrema::kRange, size)));
  }
  for (const auto& [n, goal] :
       {std::pair(3, 5.0), {5, 12.0}, {7, 0.0}, {9, 40.0}, {15, 90.0}, {31, 0.0}}) {
    const int size = n;
    add(Row{"median " + std::to_string(n), goal, Of("Median", "0", size),
            QEL_PEER(cv::medianBlur(p[0], p.result, size))}
            .By([=](int depth) {
              return TextOf(kMedianMethods, PlanMedian(size, depth).method).name;
            }));
  }
  for (const auto& [n, goal] : {std::pair(1, 0.0), {3, 3.5}, {5, 8.0}, {7, 17.0}, {15, 40.0}}) {
    const int size = n;
    add(Row{"filter " + std::to_string(n), goal, Filter(Weights(), size, size * size, 3),
            QEL_PEER(Convolve(p, Weights(), size, size * size, 3))}
            .By(ConvolutionBy(Weights(), size, size * size, 3)));
  }
  add(Row{"filter box 15", 4, Filter(Ones(), 15, 225, 0),
          QEL_PEER(cv::blur(p[0], p.result, {15, 15}))}
          .By(ConvolutionBy(Ones(), 15, 225, 0)));
  add(Row{"blur", 1.5, Of("Blur", "0"), QEL_PEER(cv::blur(p[0], p.result, {3, 3}))}.By(
      ConvolutionBy(kBlur)));
  add(Row{"soften", 3.5, Of("Soften", "0"), QEL_PEER(Convolve(p, kSoften))}.By(
      ConvolutionBy(kSoften)));
  add(Row{"sharpen", 3.5, Of("Sharpen", "0"), QEL_PEER(Convolve(p, kSharpen))}.By(
      ConvolutionBy(kSharpen)));
  add(Row{"emboss", 2, Of("Emboss", "0"), QEL_PEER(Convolve(p, kEmboss))}.By(
      ConvolutionBy(kEmboss)));
  add(Row{"gaussian_blur 0", 1.6, Of("GaussianBlur", "0", 0),
          QEL_PEER(cv::GaussianBlur(p[0], p.result, {3, 3}, 0))}
          .By(ConvolutionBy(kGaussianBlur[0])));
  for (const int level : {1, 2, 3}) {
    add(Row{"gaussian_blur " + std::to_string(level), 8, Of("GaussianBlur", "0", level),
            QEL_PEER(Convolve(p, kGaussianBlur[level]))}
            .By(ConvolutionBy(kGaussianBlur[level])));
  }
  add({"contour", 0, Of("Contour", "0"), {}});
  add(Row{"noise", 1.15, Of("Noise", "0", 40), Draws(3)}.Above("rand"));
  add(Row{"jitter", 1.15, Of("Jitter", "0", 5), Draws(2)}.Above("rand"));
  return rows;
}

}  // namespace qel::bench
