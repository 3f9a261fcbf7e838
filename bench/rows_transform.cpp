#include <cmath>

#include "bench/row.h"
#include "operations/point_maps.h"
#include "transform/resample/resample_plan.h"
#include "transform/rotate/rotate_plan.h"
#include "transform/warp/circle_plan.h"

namespace qel::bench {
namespace {

/// The quadrilateral that is straightened, in an image of this size: x and y by turns.
std::vector<double> CornersIn(int width, int height) {
  const double w = width, h = height;
  return {0.1 * w, 0.05 * h, 0.95 * w, 0.1 * h, 0.05 * w, 0.9 * h, 0.9 * w, 0.97 * h};
}

/// A transform of the caller's, that nobody may look inside: a slight turn.
SmartPtr<ITransform> MakeTurner() {
  return SmartPtr<ITransform>::Adopt(new operations::AffineMap({0.98, -0.12, 60, 0.12, 0.98, -40}));
}

/// What the caller's own code takes: one call per pixel.
void TurnAll(PeerStage& p) {
  static const SmartPtr<ITransform> turner = MakeTurner();
  for (int y = 0; y < p.height; ++y) {
    for (int x = 0; x < p.width; ++x) {
      double point[3] = {static_cast<double>(x), static_cast<double>(y), 0};
      turner->TransformPoint(&point[0], &point[1], &point[2]);
    }
  }
}

#ifdef QEL_BENCH_OPENCV

void SwapChannels(const cv::Mat& from, cv::Mat& to) {
  cv::cvtColor(from, to, from.channels() == 3 ? cv::COLOR_BGR2RGB : cv::COLOR_BGRA2RGBA);
}

void Warp(PeerStage& p, cv::Mat& dest, int interpolation, int border) {
  const cv::Point2f center(static_cast<float>(p.width) / 2, static_cast<float>(p.height) / 2);
  cv::warpAffine(p[0], dest, cv::getRotationMatrix2D(center, 30, 1), p[0].size(), interpolation,
                 border);
}

void Shear(PeerStage& p) {
  const cv::Matx23f matrix(1, 0.2f, -100, 0.1f, 1, -100);
  cv::warpAffine(p[0], p.result, matrix, p[0].size(), cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
}

void Resize(PeerStage& p, double factor, int interpolation) {
  cv::resize(p[0], p.result, {}, factor, factor, interpolation);
}

void Straighten(PeerStage& p, int interpolation) {
  const std::vector<double> c = CornersIn(p.width, p.height);
  const auto point = [](double x, double y) {
    return cv::Point2f(static_cast<float>(x), static_cast<float>(y));
  };
  const cv::Point2f to[] = {point(0, 0), point(p.width, 0), point(0, p.height),
                            point(p.width, p.height)};
  const cv::Point2f from[] = {point(c[0], c[1]), point(c[2], c[3]), point(c[4], c[5]),
                              point(c[6], c[7])};
  cv::warpPerspective(p[0], p.result, cv::getPerspectiveTransform(to, from), p[0].size(),
                      interpolation | cv::WARP_INVERSE_MAP);
}

/// Polar coordinates about the centre, changed, and looked up.
void Deform(PeerStage& p, int mode) {
  const float cx = static_cast<float>(p.width) / 2, cy = static_cast<float>(p.height) / 2;
  const double limit = std::hypot(cx, cy);
  if (mode == kCircleUnwrap) {
    return cv::warpPolar(p[0], p.result, p[0].size(), {cx, cy}, limit,
                         cv::INTER_NEAREST | cv::WARP_INVERSE_MAP);
  }
  cv::Mat &dx = p.scratch[0], &dy = p.scratch[1], &radius = p.scratch[2], &angle = p.scratch[3];
  if (dx.empty()) {
    dx.create(p.height, p.width, CV_32F);
    dy.create(p.height, p.width, CV_32F);
    for (int x = 0; x < p.width; ++x) dx.col(x).setTo(static_cast<float>(x) - cx);
    for (int y = 0; y < p.height; ++y) dy.row(y).setTo(static_cast<float>(y) - cy);
  }
  cv::cartToPolar(dx, dy, radius, angle);
  if (mode == kCircleBulge) cv::multiply(radius, radius, radius, 1 / limit);
  if (mode == kCirclePinch) cv::sqrt(radius * limit, radius);
  if (mode == kCircleSwirl) cv::scaleAdd(radius, 1 / (limit * 0.75), angle, angle);
  cv::polarToCart(radius, angle, p.scratch[4], p.scratch[5]);
  cv::add(p.scratch[4], cx, p.scratch[4]);
  cv::add(p.scratch[5], cy, p.scratch[5]);
  cv::remap(p[0], p.result, p.scratch[4], p.scratch[5], cv::INTER_NEAREST);
}

void ExpandPalette(PeerStage& p) {
  static const cv::Mat palette(1, 256, CV_8UC3, cv::Scalar(1, 2, 3));
  cv::cvtColor(p[0], p.scratch[0], cv::COLOR_GRAY2BGR);
  cv::LUT(p.scratch[0], palette, p.result);
}

#endif

void AddDepthRows(std::vector<Row>& rows) {
  const auto add = [&](std::string name, double goal, Peer peer, int from, int to, bool palette) {
    const uint32_t model = to == 24 ? kModelBgr : kModelArgb;
    rows.push_back(
        Row{"increase_bpp to " + name, goal, Of("IncreaseBpp", "0", to, model), std::move(peer)}
            .At({from})
            .On({{.palette = palette}}));
  };
  add("24", 0.75, QEL_PEER(cv::cvtColor(p[0], p.result, cv::COLOR_GRAY2BGR)), 8, 24, false);
  add("32", 0.95, QEL_PEER(cv::cvtColor(p[0], p.result, cv::COLOR_GRAY2BGRA)), 8, 32, false);
  add("24 by palette", 1.5, QEL_PEER(ExpandPalette(p)), 8, 24, true);
  add("32 by palette", 1.5, {}, 8, 32, true);
  add("32", 0.95, QEL_PEER(cv::cvtColor(p[0], p.result, cv::COLOR_BGR2BGRA)), 24, 32, false);
}

/// A picture of some size, for plans; its memory is not looked at.
ImageView ViewOf(int width, int height, int depth) {
  static uint8_t pixel;
  ImageView view;
  static_cast<ImageShape&>(view) = {width, height, 1, depth, 0};
  view.bits = &pixel;
  return view;
}

void AddRotations(std::vector<Row>& rows) {
  const auto add = [&](std::string name, double goal, Peer peer, int angle, int method) {
    Row row = {"rotate " + name, goal, Of("Rotate", "0", angle, method, 0, 1), std::move(peer)};
    if (angle % 90 != 0) {
      row.method = [=](int depth) {
        return TextOf(kRotateMethods, PlanRotate(ViewOf(1920, 1080, depth), method, false).method)
            .name;
      };
    }
    rows.push_back(std::move(row));
  };
  add("by 90", 2.7, QEL_PEER(cv::rotate(p[0], p.result, cv::ROTATE_90_CLOCKWISE)), 90, 0);
  add("by 180", 1.1, QEL_PEER(cv::rotate(p[0], p.result, cv::ROTATE_180)), 180, 0);
  add("by 270", 2.7, QEL_PEER(cv::rotate(p[0], p.result, cv::ROTATE_90_COUNTERCLOCKWISE)), 270, 0);
  add("nearest", 4, QEL_PEER(Warp(p, p.result, cv::INTER_NEAREST, 0)), 30, 0);
  add("method 1", 4, {}, 30, 1);
  add("4 x 4", 40, QEL_PEER(Warp(p, p.result, cv::INTER_CUBIC, 0)), 30, 3);
  add("sinc", 250, QEL_PEER(Warp(p, p.result, cv::INTER_LANCZOS4, 0)), 30, 5);
}

/// Enlarged images end in the size that is measured, shrunk ones start from it.
void AddResampling(std::vector<Row>& rows) {
  const auto add = [&](std::string name, double goal, Peer peer, int up, int down, int method,
                       int nearest_only) {
    const int divide = up > down ? up : 1;
    const auto numbers = [=](Size size) -> std::vector<double> {
      return {1.0 * (size.width / divide * up / down), 1.0 * (size.height / divide * up / down),
              1.0 * method, 1.0 * nearest_only};
    };
    rows.push_back(Row{"resample " + name, goal, Of("Resample", "0"), std::move(peer)}
                       .Sized(numbers)
                       .On({{.divide = divide}})
                       .By([=](int depth) {
                         const auto plan =
                             PlanResample(ViewOf(960, 540, depth),
                                          ViewOf(960 * up / down, 540 * up / down, depth), method,
                                          nearest_only != 0);
                         return TextOf(kResampleMethods, plan.method).name;
                       }));
  };
  const Peer cubic = QEL_PEER(Resize(p, 2, cv::INTER_CUBIC));
  add("x2 nearest", 1, QEL_PEER(Resize(p, 2, cv::INTER_NEAREST)), 2, 1, 0, 0);
  add("x2 method 1", 0, {}, 2, 1, 1, 0);
  add("x2 cubic", 12, cubic, 2, 1, 3, 0);
  add("x2 cosine sum", 12, cubic, 2, 1, 10, 0);
  add("x2 Bessel", 12, cubic, 2, 1, 11, 0);
  add("x2 Gaussian", 12, cubic, 2, 1, 12, 0);
  add("x2 sinc", 70, QEL_PEER(Resize(p, 2, cv::INTER_LANCZOS4)), 2, 1, 5, 0);
  add("/2 box", 0.8, QEL_PEER(Resize(p, 0.5, cv::INTER_AREA)), 1, 2, 0, 0);
  add("/4 box", 1.6, QEL_PEER(Resize(p, 0.25, cv::INTER_AREA)), 1, 4, 0, 0);
  add("/2.5 box", 2.2, QEL_PEER(Resize(p, 0.4, cv::INTER_AREA)), 2, 5, 0, 0);
  add("/2.5 nearest", 0, QEL_PEER(Resize(p, 0.4, cv::INTER_NEAREST)), 2, 5, 0, 1);
}

MethodCall WithTurner(std::string_view method, std::string images, double fill_voids) {
  return MethodCall(method, {.numbers = {0, 0, fill_voids}, .map = MakeTurner()},
                    std::move(images));
}

}  // namespace

std::vector<Row> TransformRows() {
  const std::vector<Input> with_target = {{}, {.content = Content::kOther}};
  std::vector<Row> rows;
  const auto add = [&](Row row) { rows.push_back(std::move(row)); };
  add({"flip", 1.1, Of("Flip", "0"), QEL_PEER(cv::flip(p[0], p.result, 0))});
  add({"mirror", 1.1, Of("Mirror", "0"), QEL_PEER(cv::flip(p[0], p.result, 1))});
  add(Row{"flip_bits", 0.6, Of("FlipBits", "0"), QEL_PEER(SwapChannels(p[0], p.result))}
          .At({24, 32})
          .Changing(0));
  add(Row {
    "flip_image_and_bits", 1.2, Of("FlipImageAndBits", "0"),
        QEL_PEER(cv::flip(p[0], p.scratch[0], 0); SwapChannels(p.scratch[0], p.result))
  }.At({24, 32})
          .Changing(0));
  AddDepthRows(rows);
  AddRotations(rows);
  AddResampling(rows);
  add({"skew", 4, Of("Skew", "0", 0.2f, 0.1f, 0, 0, 0, 0), QEL_PEER(Shear(p))});
  for (const double blend : {0, 1}) {
    const auto numbers = [blend](Size size) {
      std::vector<double> values = CornersIn(size.width, size.height);
      values.insert(values.end(), {1.0 * size.width, 1.0 * size.height, blend});
      return values;
    };
    add(Row{blend == 0 ? "quad nearest" : "quad blended", blend == 0 ? 6.0 : 12.0, Of("Quad", "0"),
            QEL_PEER(Straighten(p, blend == 0 ? cv::INTER_NEAREST : cv::INTER_LINEAR))}
            .Sized(numbers));
  }
  add(Row{"rotate_paste nearest", 0, Of("RotatePaste", "01", 0.5, 0, 0),
          QEL_PEER(Warp(p, p[1], cv::INTER_NEAREST, cv::BORDER_TRANSPARENT))}
          .At({24, 32})
          .PeerAt({24})
          .On(with_target)
          .Changing(1));
  add(Row{"rotate_paste 4 x 4", 0, Of("RotatePaste", "01", 0.5, 3, 0),
          QEL_PEER(Warp(p, p[1], cv::INTER_CUBIC, cv::BORDER_TRANSPARENT))}
          .At({24, 32})
          .PeerAt({24})
          .On(with_target)
          .Changing(1));
  add(Row{"transform", 0, WithTurner("Transform", "0", 0), TurnAll}.Above("the caller's calls"));
  add(Row{"transform_paste", 0, WithTurner("TransformPaste", "01", 0), TurnAll}
          .On(with_target)
          .Changing(1)
          .Above("the caller's calls"));
  add(Row{"transform_paste with voids", 0, WithTurner("TransformPaste", "01", 1), TurnAll}
          .At({24, 32})
          .On(with_target)
          .Changing(1)
          .Above("the caller's calls"));
  return rows;
}

std::vector<Row> DeformRows() {
  std::vector<Row> rows;
  const auto add = [&](std::string name, double goal, Peer peer, int mode) {
    rows.push_back(Row{"circle_transform " + name, goal, Of("CircleTransform", "0", mode, 0, 1.5f),
                       std::move(peer)}
                       .Changing(0)
                       .By([=](int depth) {
                         const ImageView view = ViewOf(1920, 1080, depth);
                         const Circle circle(view, mode, 1.5f);
                         return TextOf(kCircleMethods, PlanCircle(circle, view, false).method).name;
                       }));
  };
  add("bulge", 18, QEL_PEER(Deform(p, kCircleBulge)), kCircleBulge);
  add("pinch", 18, QEL_PEER(Deform(p, kCirclePinch)), kCirclePinch);
  add("swirl", 25, QEL_PEER(Deform(p, kCircleSwirl)), kCircleSwirl);
  add("unwrap", 14, QEL_PEER(Deform(p, kCircleUnwrap)), kCircleUnwrap);
  add("fold", 2, {}, kCircleFold);
  return rows;
}

}  // namespace qel::bench
