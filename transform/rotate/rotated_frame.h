#ifndef QEL_TRANSFORM_ROTATE_ROTATED_FRAME_H_
#define QEL_TRANSFORM_ROTATE_ROTATED_FRAME_H_

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "image/numeric.h"

namespace qel {

/// The turn of both rotations: cosine and sine in single precision.
struct Turn {
  float cosine;
  float sine;

  static Turn By(double radians) {
    return {static_cast<float>(std::cos(radians)), static_cast<float>(std::sin(radians))};
  }
  /// The turn of `Rotate`: minus the angle.
  static Turn ByDegrees(int angle) {
    const float theta = static_cast<float>(WrapSubtract(0, angle)) * 1.5707964f / 90.0f;
    return By(static_cast<double>(theta));
  }
};

/// The bounding box of a turned rectangle and the way back from its pixels to the source. All in
/// single precision; positions are formed from the pixel's number each time, never stepped.
class RotatedFrame {
 public:
  /// The box round a source of `width` x `height` pixels whose edges are turned by `turn`.
  static RotatedFrame Bounding(int width, int height, const Turn& turn) {
    RotatedFrame frame(turn);
    frame.Measure(width, height, turn);
    return frame;
  }

  /// A box of the source's own size; the source turns about its middle.
  static RotatedFrame SameSize(int width, int height, const Turn& turn) {
    RotatedFrame frame(turn);
    frame.width_ = width;
    frame.height_ = height;
    frame.shift_x_ = static_cast<float>(width) * 0.5f;
    frame.shift_y_ = static_cast<float>(height) * 0.5f;
    frame.start_x_ = Start(kEdge, static_cast<float>(width) + kEdge, width) - frame.shift_x_;
    frame.start_y_ = Start(kEdge, static_cast<float>(height) + kEdge, height) - frame.shift_y_;
    return frame;
  }

  int width() const { return width_; }
  int height() const { return height_; }

  /// The part of the way back that is the same for a whole row of the box.
  struct Row {
    float start_x;
    float cosine;
    float sine;
    float sine_y;    // sine * Y
    float cosine_y;  // cosine * Y
    float shift_x;
    float shift_y;

    float SourceX(int i) const {
      const float x = start_x + static_cast<float>(i);
      return cosine * x + sine_y + shift_x;
    }
    float SourceY(int i) const {
      const float x = start_x + static_cast<float>(i);
      return cosine_y - sine * x + shift_y;
    }
  };
  Row RowAt(int j) const {
    const float y = start_y_ + static_cast<float>(j);
    return {start_x_,         turn_.cosine, turn_.sine, turn_.sine * y,
            turn_.cosine * y, shift_x_,     shift_y_};
  }

 private:
  explicit RotatedFrame(const Turn& turn) : turn_(turn) {}

  /// Where pixel 0 begins.
  static constexpr float kEdge = -0.5f;

  void Measure(int width, int height, const Turn& turn) {
    const float right = static_cast<float>(width) + kEdge;
    const float bottom = static_cast<float>(height) + kEdge;
    const float corners[4][2] = {{kEdge, kEdge}, {right, kEdge}, {kEdge, bottom}, {right, bottom}};
    float x[4];
    float y[4];
    for (int i = 0; i < 4; ++i) {
      x[i] = turn.cosine * corners[i][0] - turn.sine * corners[i][1];
      y[i] = turn.sine * corners[i][0] + turn.cosine * corners[i][1];
    }
    Span(x, width_, start_x_);
    Span(y, height_, start_y_);
  }

  static void Span(const float (&positions)[4], int& size, float& start) {
    const auto [lowest, highest] =
        std::minmax({positions[0], positions[1], positions[2], positions[3]});
    size = TruncateToInt(std::floor(highest - lowest + 0.5f));
    start = Start(lowest, highest, size);
  }

  /// The first of `size` pixels in the middle between two edges.
  static float Start(float lowest, float highest, int size) {
    return (lowest + highest - static_cast<float>(WrapSubtract(size, 1))) * 0.5f;
  }

  Turn turn_;
  int width_ = 0;
  int height_ = 0;
  float start_x_ = 0.0f;
  float start_y_ = 0.0f;
  float shift_x_ = 0.0f;
  float shift_y_ = 0.0f;
};

/// A run of pixels of a row, from `begin` to before `end`.
struct PixelRun {
  int begin;
  int end;
};

/// Where a run began or ended in the rows before, which tells where it will in the next one.
class EdgeGuess {
 public:
  int Next() const { return WrapAdd(last_, WrapSubtract(last_, before_)); }
  void Found(int edge) {
    before_ = last_;
    last_ = edge;
  }

 private:
  int last_ = 0;
  int before_ = 0;
};

/// The first number from `begin` to `end` that does not fail, where none fails after one that does
/// not. Looks round the guess, in growing steps: halving all of a row costs a wrong turn of the
/// processor at every second step.
template <typename Fails>
int FirstWithout(int begin, int end, EdgeGuess& guess, Fails fails) {
  const int guessed = std::clamp(guess.Next(), begin, end);
  int64_t reach = 1;
  if (guessed < end && fails(guessed)) {
    begin = guessed + 1;
    for (; begin + reach <= end; reach *= 2) {
      const int probe = begin + static_cast<int>(reach) - 1;
      if (!fails(probe)) {
        end = probe;
        break;
      }
      begin = probe + 1;
    }
  } else {
    end = guessed;
    for (; end - reach >= begin; reach *= 2) {
      const int probe = end - static_cast<int>(reach);
      if (fails(probe)) {
        begin = probe + 1;
        break;
      }
      end = probe;
    }
  }
  while (begin < end) {
    const int middle = begin + (end - begin) / 2;
    if (fails(middle)) {
      begin = middle + 1;
    } else {
      end = middle;
    }
  }
  guess.Found(begin);
  return begin;
}

/// The pixels of `run` whose `position(i)` is neither `too_low` nor `too_high`. Positions rise or
/// fall along the row without a turn, because each step of their computation rounds
/// monotonically; so the pixels are a run. `guesses` are those of its ends.
template <typename Position, typename TooLow, typename TooHigh>
PixelRun RunWithin(const PixelRun& run, bool rising, EdgeGuess (&guesses)[2], Position position,
                   TooLow too_low, TooHigh too_high) {
  const auto is_within = [&](int i) { return !too_low(position(i)) && !too_high(position(i)); };
  // Mostly the source is larger than what is looked at of a row.
  if (run.begin < run.end && is_within(run.begin) && is_within(run.end - 1)) return run;
  const auto first_without = [&](int begin, EdgeGuess& guess, auto fails) {
    return FirstWithout(begin, run.end, guess, [&](int i) { return fails(position(i)); });
  };
  if (rising) {
    const int begin = first_without(run.begin, guesses[0], too_low);
    return {begin, first_without(begin, guesses[1], [&](float v) { return !too_high(v); })};
  }
  const int begin = first_without(run.begin, guesses[0], too_high);
  return {begin, first_without(begin, guesses[1], [&](float v) { return !too_low(v); })};
}

}  // namespace qel

#endif  // QEL_TRANSFORM_ROTATE_ROTATED_FRAME_H_
