#ifndef QEL_BENCH_ROW_H_
#define QEL_BENCH_ROW_H_

#include <functional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#ifdef QEL_BENCH_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

#include "bench/stage.h"
#include "operations/method.h"
#include "reference/raster.h"

namespace qel::bench {

using reference::Raster;

/// What a peer works on: copies of the images of the call, and room for results that it keeps from
/// call to call as our host keeps memory.
struct PeerStage {
  int width = 0;
  int height = 0;
#ifdef QEL_BENCH_OPENCV
  std::vector<cv::Mat> images;
  cv::Mat result;
  cv::Mat scratch[6];
  cv::Mat& operator[](size_t index) { return images[index]; }
#endif
};

using Peer = std::function<void(PeerStage& p)>;

/// A call with these numbers; `images` as in `MethodCall`.
template <typename... Numbers>
MethodCall Of(std::string_view method, std::string images, Numbers... numbers) {
  return MethodCall(method, {{static_cast<double>(numbers)...}}, std::move(images));
}

/// One operation with its arguments: everything that the benchmark knows about it.
struct Row {
  std::string name;
  double goal;  ///< multiples of the copy, 0 for none
  MethodCall call;
  Peer peer;  ///< the nearest equivalent of another library, or empty

  std::string component = {};
  std::vector<int> depths = {8, 24, 32};
  std::vector<int> peer_depths = {8, 24, 32};
  std::vector<Input> inputs = {{}};
  int changes = -1;  ///< the image that the call changes and that is set back before each call
  std::string floor = {};  ///< not empty: the peer is no library but this, which the operation
                           ///< cannot do without, and the goal is a multiple of it

  /// The method that the module carries the operation out by at a depth, where it has several.
  std::function<std::string(int depth)> method = {};

  /// The numbers of the call on pictures of a size, where they depend on it.
  std::function<std::vector<double>(Size size)> numbers = {};

  MethodCall CallFor(Size size) const {
    MethodCall sized = call;
    if (numbers) sized.arguments.numbers = numbers(size);
    return sized;
  }

  Row&& Sized(decltype(numbers) function) && {
    return numbers = std::move(function), std::move(*this);
  }
  // For rows that are not as the values above.
  Row&& At(std::vector<int> values) && { return depths = std::move(values), std::move(*this); }
  Row&& PeerAt(std::vector<int> values) && {
    return peer_depths = std::move(values), std::move(*this);
  }
  Row&& On(std::vector<Input> values) && { return inputs = std::move(values), std::move(*this); }
  Row&& Changing(int index) && { return changes = index, std::move(*this); }
  Row&& By(std::function<std::string(int depth)> value) && {
    return method = std::move(value), std::move(*this);
  }
  Row&& Above(std::string value) && { return floor = std::move(value), std::move(*this); }
};

// The peer's side of a row: `p` is its stage. Without OpenCV there are no peers of that kind.
#ifdef QEL_BENCH_OPENCV
#define QEL_PEER(...) Peer([=]([[maybe_unused]] PeerStage& p) { __VA_ARGS__; })
#else
#define QEL_PEER(...) Peer()
#endif

// The rows of each component. A new operation is one row in one of them.
std::vector<Row> ColorRows();
std::vector<Row> TransformRows();
std::vector<Row> DeformRows();
std::vector<Row> FilterRows();
std::vector<Row> MathsRows();

}  // namespace qel::bench

#endif  // QEL_BENCH_ROW_H_
