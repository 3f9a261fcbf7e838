#include <cstring>
#include <memory>
#include <new>

#include "filter/median/key_columns.h"
#include "image/pixel_layout.h"

// The sliding histogram (Huang, Yang and Tang 1979): of the window's part inside the image, with a
// column of keys entering and one leaving from pixel to pixel; the middle key moves a short way.

namespace qel {
namespace {

/// Windows of any size.
class SlidingHistogram {
 public:
  SlidingHistogram(const ImageView& source, const ImageView& dest, int size)
      : source_(source), dest_(dest), reach_(size), size_(size), columns_(source, size) {
    const auto keys = static_cast<size_t>(source.Columns());
    const size_t kept = source.HasPixels() ? columns_.BytesFor(source.Columns()) : 0;
    memory_.reset(new (std::nothrow) uint8_t[kept + keys]);
    read_ = memory_.get() + kept;
    columns_.Keep(memory_.get(), 0, source.Columns());
  }

  /// False when there is no memory for the keys.
  explicit operator bool() const { return memory_ != nullptr; }

  void Run() {
    for (int64_t row = 0; row < std::min(reach_.after, source_.Rows()); ++row) Read(row);
    for (int64_t y = 0; y < dest_.Rows(); ++y) {
      Read(y + reach_.after);
      VisitAccessLayout(dest_.bit_count, [&](auto codec) { RunRow(codec, y); });
    }
  }

 private:
  void Read(int64_t row) {
    if (!source_.HasPixels() || row >= source_.Rows()) return;
    columns_.Spread(row, columns_.Read(row, read_));
  }

  template <typename Codec>
  void RunRow(Codec codec, int64_t y) {
    Enter(y);
    uint8_t* const to = dest_.Row(y);
    for (int64_t x = 0; x < dest_.Columns(); ++x) {
      if (x + reach_.after < columns_.end()) Count(x + reach_.after, 1);
      if (x > reach_.before) Count(x - reach_.before - 1, ~0u);
      codec.Store(to, x, Pick(codec, x));
    }
  }

  /// Prepares the histogram for row `y`: all columns of the first window but its last.
  void Enter(int64_t y) {
    columns_.Enter(y);
    std::memset(taps_, 0, sizeof(taps_));
    below_ = 0;
    for (int64_t x = 0; x < std::min(reach_.after, columns_.end()); ++x) Count(x, 1);
  }

  /// Adds `change`, 1 or all ones for -1, for every key of column `x`.
  void Count(int64_t x, uint32_t change) {
    const uint8_t* const column = columns_.Column(x);
    uint32_t below = 0;
    for (size_t i = 0; i < columns_.length(); ++i) {
      taps_[column[i]] += change;
      below += column[i] < key_ ? change : 0;
    }
    below_ += below;
  }

  /// The color in the middle of the window of column `x`.
  template <typename Codec>
  uint32_t Pick(Codec codec, int64_t x) {
    const int64_t first = std::max<int64_t>(x - reach_.before, 0);
    const int64_t end = std::min(x + reach_.after + 1, columns_.end());
    const int64_t inside =
        std::max<int64_t>(end - first, 0) * static_cast<int64_t>(columns_.length());
    const int64_t rest = MoveKey(size_ * size_ - inside);
    if constexpr (!Codec::kDirect) {
      return GrayColor(static_cast<uint32_t>(key_));
    } else {
      return FindTap(codec, x, first, end - first, rest);
    }
  }

  /// The color of tap number `rest` among those of the key in the order of visiting: the columns
  /// to the left of the image, its own columns with what lies above and below them, and the rest.
  template <typename Codec>
  uint32_t FindTap(Codec codec, int64_t x, int64_t first, int64_t columns, int64_t rest) const {
    const bool outside_too = key_ == columns_.outside_key();
    if (outside_too) rest -= std::max<int64_t>(reach_.before - x, 0) * size_;
    if (rest < 0 || columns <= 0) return columns_.outside();
    const auto length = static_cast<int64_t>(columns_.length());
    const auto found = static_cast<int64_t>(ActiveKeyCountKernels().find_column(
        columns_.Column(first), columns_.pitch(), static_cast<size_t>(columns), columns_.length(),
        static_cast<uint8_t>(key_), outside_too ? size_ - length : 0, &rest));
    if (found == columns) return columns_.outside();
    return columns_.FindTap(codec, first + found, key_, rest);
  }

  /// Moves the key to that of the middle tap, `outside` taps having the outside color. Windows of
  /// neighbours have much in common, so the way is short. Returns the middle tap's number among
  /// those of its key.
  int64_t MoveKey(int64_t outside) {
    const int outside_key = columns_.outside_key();
    int64_t rest = size_ * size_ / 2 - below_ - (outside_key < key_ ? outside : 0);
    const auto taps = [&] { return taps_[key_] + (outside_key == key_ ? outside : 0); };
    while (rest < 0) {
      --key_;
      below_ -= taps_[key_];
      rest += taps();
    }
    while (rest >= taps()) {
      rest -= taps();
      below_ += taps_[key_];
      ++key_;
    }
    return rest;
  }

  const ImageView source_;
  const ImageView dest_;
  const Reach reach_;
  const int64_t size_;
  KeyColumns columns_;
  std::unique_ptr<uint8_t[]> memory_;
  uint8_t* read_;  // a row of keys

  // The histogram of the window's part inside the image.
  uint32_t taps_[256];
  int key_ = 0;
  uint32_t below_ = 0;  // taps below `key_`
};

}  // namespace

bool MedianBySlidingHistogram(const ImageView& source, const ImageView& dest, int size) {
  SlidingHistogram histogram(source, dest, size);
  if (!histogram) return false;
  histogram.Run();
  return true;
}

}  // namespace qel
