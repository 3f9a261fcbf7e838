#include "bench/row.h"

namespace qel::bench {
namespace {

constexpr Input kPhoto = {};
constexpr Input kOther = {.content = Content::kOther};
constexpr Input kMask = {.content = Content::kMask, .depth = 8};
constexpr Input kIntegers = {.content = Content::kIntegers, .depth = 32};
constexpr Input kNothing = {.content = Content::kNothing};

constexpr Input Other(int depth) { return {.content = Content::kOther, .depth = depth}; }

#ifdef QEL_BENCH_OPENCV

/// Counts the samples of the result that are 2 or more, where the operation does.
void Tally(PeerStage& p) {
  if (p.result.channels() == 1) return;
  cv::threshold(p.result, p.scratch[0], 1, 1, cv::THRESH_BINARY);
  cv::countNonZero(p.scratch[0].reshape(1));
}

void FillZeros(PeerStage& p) {
  cv::compare(p[1].reshape(1), 0, p.scratch[0], cv::CMP_EQ);
  p[0].reshape(1).copyTo(p[1].reshape(1), p.scratch[0]);
}

void Mix(PeerStage& p, cv::Mat& dest) { cv::addWeighted(p[0], 0.6, p[1], 0.3, 10, dest); }

const cv::Scalar kFill(0x80, 0x60, 0x40, 0x20);

#endif

void AddCopies(std::vector<Row>& rows) {
  const auto add = [&](int from, int to, double goal, Peer peer) {
    rows.push_back(Row{from == to ? "copy" : "copy to " + std::to_string(to), goal,
                       Of("Copy", "10-", 0, 0), std::move(peer)}
                       .At({from})
                       .On({kPhoto, Other(to)}));
  };
  for (const int depth : {8, 24, 32}) add(depth, depth, 1.05, QEL_PEER(p[0].copyTo(p[1])));
  add(8, 24, 0.75, QEL_PEER(cv::cvtColor(p[0], p[1], cv::COLOR_GRAY2BGR)));
  add(8, 32, 0.95, QEL_PEER(cv::cvtColor(p[0], p[1], cv::COLOR_GRAY2BGRA)));
  add(24, 8, 0.8, QEL_PEER(cv::cvtColor(p[0], p[1], cv::COLOR_BGR2GRAY)));
  add(24, 32, 0.95, QEL_PEER(cv::cvtColor(p[0], p[1], cv::COLOR_BGR2BGRA)));
  add(32, 8, 0.8, QEL_PEER(cv::cvtColor(p[0], p[1], cv::COLOR_BGRA2GRAY)));
  add(32, 24, 0.95, QEL_PEER(cv::cvtColor(p[0], p[1], cv::COLOR_BGRA2BGR)));
  rows.push_back(Row{"copy into zeros", 0, Of("Copy", "101", 0, 0), QEL_PEER(FillZeros(p))}
                     .On({kPhoto, {.content = Content::kMask}})
                     .Changing(1));
}

void AddScalings(std::vector<Row>& rows) {
  const auto add = [&](std::string name, double goal, Peer peer, std::vector<int> depths,
                       Input source, Input dest) {
    const float factor = source.content == Content::kIntegers ? 0.03f : 1.2f;
    rows.push_back(Row{"scale" + name, goal, Of("Scale", "10-", factor, 20.0f), std::move(peer)}
                       .At(std::move(depths))
                       .On({source, dest}));
  };
  const Peer to_bytes = QEL_PEER(p[0].convertTo(p[1], CV_8U, 0.03, 20));
  add("", 1, QEL_PEER(p[0].convertTo(p[1], -1, 1.2, 20)), {8, 24, 32}, kPhoto, kOther);
  add(" to 8", 1, {}, {24, 32}, kPhoto, Other(8));
  add(" to 24", 1, {}, {8, 32}, kPhoto, Other(24));
  add(" integers to 8", 0.6, to_bytes, {32}, kIntegers, Other(8));
  add(" integers", 1, QEL_PEER(p[0].convertTo(p[1], -1, 0.03, 20)), {32}, kIntegers, kIntegers);
  rows.push_back(Row {
    "scale masked", 2.5, Of("Scale", "102", 1.2f, 20.0f),
        QEL_PEER(p[0].convertTo(p.scratch[0], -1, 1.2, 20); p.scratch[0].copyTo(p[1], p[2]))
  }.At({8})
                     .On({kPhoto, kOther, kMask}));
  rows.push_back(Row{"scale8", 0.6, Of("Scale8", "10", 20, 0.03), to_bytes}.At({32}).On(
      {kIntegers, kNothing}));
}

}  // namespace

std::vector<Row> MathsRows() {
  std::vector<Row> rows;
  const auto add = [&](Row row) { rows.push_back(std::move(row)); };
  add({"equal", 0.55, Of("Equal", "0-", 0x20406080), QEL_PEER(p[0].setTo(kFill))});
  add(Row{"equal masked", 1, Of("Equal", "01", 0x20406080), QEL_PEER(p[0].setTo(kFill, p[1]))}
          .At({8, 32})
          .On({kPhoto, kMask})
          .Changing(0));
  AddCopies(rows);
  add(Row{"add", 1.5, Of("Add", "201", 0), QEL_PEER(cv::add(p[0], p[1], p.result))}.On(
      {kPhoto, kOther, kNothing}));
  add(Row{"add with divisor", 1.7, Of("Add", "201", 3),
          QEL_PEER(cv::addWeighted(p[0], 1 / 3.0, p[1], 1 / 3.0, 0, p.result))}
          .On({kPhoto, kOther, kNothing}));
  add(Row {
    "subtract", 1.6, Of("Subtract", "201", 0),
        QEL_PEER(cv::subtract(p[0], p[1], p.result); Tally(p))
  }.On({kPhoto, kOther, kPhoto}));
  add(Row {
    "subtract absolute", 1.6, Of("Subtract", "201", 1),
        QEL_PEER(cv::absdiff(p[0], p[1], p.result); Tally(p))
  }.On({kPhoto, kOther, kPhoto}));
  add(Row{"add_scale", 1.7, Of("AddScale", "201-", 0.6f, 0.3f, 10), QEL_PEER(Mix(p, p.result))}.On(
      {kPhoto, kOther, kPhoto}));
  add(Row {
    "add_scale masked", 2.5, Of("AddScale", "2013", 0.6f, 0.3f, 10),
        QEL_PEER(Mix(p, p.scratch[0]); p.scratch[0].copyTo(p[2], p[3]))
  }.On({kPhoto, kOther, kPhoto, kMask}));
  AddScalings(rows);
  add({"create_dest_image", 0, Of("CreateDestImage", "0", 0, 0), {}});
  return rows;
}

}  // namespace qel::bench
