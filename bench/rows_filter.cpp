#include <cstdlib>

#include "bench/row.h"
#include "reference/filter.h"

namespace qel::bench {
namespace {

namespace oracle = test::oracle;

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

/// As many numbers as the random filters draw.
Peer Draws(int per_pixel) {
  return [per_pixel](PeerStage& p) {
    for (int64_t i = int64_t{p.width} * p.height * per_pixel; i > 0; --i) std::rand();
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

// No products of a row and a column, so OpenCV's own Gaussian is other work.
constexpr int kGauss[3][25] = {
    {0, 1, 2, 1, 0, 1, 3, 4, 3, 1, 2, 4, 8, 4, 2, 1, 3, 4, 3, 1, 0, 1, 2, 1, 0},
    {1, 4, 7, 4, 1, 4, 16, 26, 16, 4, 2, 26, 41, 26, 7, 4, 16, 26, 16, 4, 1, 4, 7, 4, 1},
    {2, 4, 5, 4, 2, 4, 9, 12, 9, 4, 5, 12, 15, 12, 5, 4, 9, 12, 9, 4, 2, 4, 5, 4, 2}};
constexpr int kGaussDivisors[] = {52, 273, 159};
constexpr int kSoft[] = {1, 1, 1, 1, 8, 1, 1, 1, 1};
constexpr int kSharp[] = {-1, -1, -1, -1, 15, -1, -1, -1, -1};
constexpr int kRelief[] = {0, 0, -1, 0, 0, 0, 1, 0, 0};

#endif

}  // namespace

std::vector<Row> FilterRows() {
  std::vector<Row> rows;
  const auto add = [&](Row row) { rows.push_back(std::move(row)); };
  for (const auto& [n, goal] : {std::pair(3, 1.8), {15, 3.0}, {31, 3.5}}) {
    const int size = n;
    add({"erode " + std::to_string(n), goal, QEL_CALL(c.filter->Erode(s[0], size, s.Result())),
         QEL_READ(oracle::Erode(r[0], size, result)),
         QEL_PEER(cv::erode(p[0], p.result, Square(size)))});
  }
  for (const auto& [n, goal] : {std::pair(1, 0.0), {3, 1.8}, {15, 3.0}, {31, 3.5}}) {
    const int size = n;
    add({"dilate " + std::to_string(n), goal, QEL_CALL(c.filter->Dilate(s[0], size, s.Result())),
         QEL_READ(oracle::Dilate(r[0], size, result)),
         QEL_PEER(cv::dilate(p[0], p.result, Square(size)))});
  }
  for (const auto& [n, goal] : {std::pair(3, 3.0), {15, 5.0}, {31, 6.0}}) {
    const int size = n;
    add({"edge " + std::to_string(n), goal, QEL_CALL(c.filter->Edge(s[0], size, s.Result())),
         QEL_READ(oracle::Edge(r[0], size, result)),
         QEL_PEER(cv::morphologyEx(p[0], p.result, cv::MORPH_GRADIENT, Square(size)))});
  }
  for (const auto& [n, goal] :
       {std::pair(3, 5.0), {5, 12.0}, {7, 0.0}, {9, 40.0}, {15, 90.0}, {31, 0.0}}) {
    const int size = n;
    add({"median " + std::to_string(n), goal, QEL_CALL(c.filter->Median(s[0], size, s.Result())),
         QEL_READ(oracle::Median(r[0], size, result)),
         QEL_PEER(cv::medianBlur(p[0], p.result, size))});
  }
  for (const auto& [n, goal] : {std::pair(1, 0.0), {3, 3.5}, {5, 8.0}, {7, 17.0}, {15, 40.0}}) {
    const int size = n;
    add({"filter " + std::to_string(n), goal,
         QEL_CALL(c.filter->Filter(s[0], Weights(), size, size * size, 3, s.Result())),
         QEL_READ(oracle::Filter(r[0], Weights(), size, size * size, 3, result)),
         QEL_PEER(Convolve(p, Weights(), size, size * size, 3))});
  }
  add({"filter box 15", 4, QEL_CALL(c.filter->Filter(s[0], Ones(), 15, 225, 0, s.Result())),
       QEL_READ(oracle::Filter(r[0], Ones(), 15, 225, 0, result)),
       QEL_PEER(cv::blur(p[0], p.result, {15, 15}))});
  add({"blur", 1.5, QEL_CALL(c.filter->Blur(s[0], s.Result())),
       QEL_READ(oracle::Blur(r[0], result)), QEL_PEER(cv::blur(p[0], p.result, {3, 3}))});
  add({"soften", 3.5, QEL_CALL(c.filter->Soften(s[0], s.Result())),
       QEL_READ(oracle::Soften(r[0], result)), QEL_PEER(Convolve(p, kSoft, 3, 16, 0))});
  add({"sharpen", 3.5, QEL_CALL(c.filter->Sharpen(s[0], s.Result())),
       QEL_READ(oracle::Sharpen(r[0], result)), QEL_PEER(Convolve(p, kSharp, 3, 7, 0))});
  add({"emboss", 2, QEL_CALL(c.filter->Emboss(s[0], s.Result())),
       QEL_READ(oracle::Emboss(r[0], result)), QEL_PEER(Convolve(p, kRelief, 3, 1, 127))});
  add({"gaussian_blur 0", 1.6, QEL_CALL(c.filter->GaussianBlur(s[0], 0, s.Result())),
       QEL_READ(oracle::GaussianBlur(r[0], 0, result)),
       QEL_PEER(cv::GaussianBlur(p[0], p.result, {3, 3}, 0))});
  for (const int level : {1, 2, 3}) {
    add({"gaussian_blur " + std::to_string(level), 8,
         QEL_CALL(c.filter->GaussianBlur(s[0], level, s.Result())),
         QEL_READ(oracle::GaussianBlur(r[0], level, result)),
         QEL_PEER(Convolve(p, kGauss[level - 1], 5, kGaussDivisors[level - 1], 0))});
  }
  add({"contour",
       0,
       QEL_CALL(c.filter->Contour(s[0], s.Result())),
       QEL_READ(oracle::Contour(r[0], result)),
       {}});
  add(Row{"noise", 1.15, QEL_CALL(c.filter->Noise(s[0], 40, s.Result())),
          QEL_READ(oracle::Noise(r[0], 40, result)), Draws(3)}
          .Above("rand"));
  add(Row{"jitter", 1.15, QEL_CALL(c.filter->Jitter(s[0], 5, s.Result())),
          QEL_READ(oracle::Jitter(r[0], 5, result)), Draws(2)}
          .Above("rand"));
  return rows;
}

}  // namespace qel::bench
