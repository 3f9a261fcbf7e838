#include <cstring>
#include <memory>
#include <new>

#include "filter/median/median.h"
#include "filter/median/median_kernels.h"
#include "filter/median/tile_kernels.h"
#include "filter/neighbourhood.h"

// Medians of windows that are taken in tiles (Adams 2021). Keys are spread over the columns of the
// tiles once, when their row comes in. Colors are copied from where the taps were found.

namespace qel {
namespace {

class TiledMedian {
 public:
  TiledMedian(const ImageView& source, const ImageView& dest, int size)
      : source_(source),
        out_(dest),
        size_(static_cast<size_t>(size)),
        tile_height_(TileHeight(size_)),
        reach_(size),
        step_(static_cast<size_t>(source_.pixel_bytes())) {
    const auto windows = static_cast<size_t>(std::min(dest.Columns(), kStripWindows));
    const size_t keys = windows + size_ - 1;
    run_pitch_ = ScratchPitch((keys / kTileWidth + kVectorBytes) * (HasColors() ? 2 : 1));
    keys_pitch_ = ScratchPitch(keys + 2 * kTileWidth * kVectorBytes);
    pixel_pitch_ = ScratchPitch((static_cast<size_t>(AssembledWindows()) + size_ - 1) * step_);
    const size_t spread = (Slots() + 1 + size_ + 1 - tile_height_) * RowPitch();
    const size_t rows = (1 + tile_height_) * keys_pitch_;
    scratch_bytes_ =
        HasColors() ? std::max((Slots() + 1) * pixel_pitch_, ScratchPitch(keys * step_)) : 0;
    memory_.reset(new (std::nothrow) uint8_t[spread + rows + scratch_bytes_]);
    if (memory_ == nullptr) return;
    keys_ = memory_.get() + spread;
    scratch_ = keys_ + rows;
  }

  /// False when there is no memory.
  explicit operator bool() const { return memory_ != nullptr; }

  void Run() {
    const Interval columns = Window::Square(static_cast<int>(size_)).columns;
    if (HasColors()) {
      ForEachStrip(source_, out_, columns, {AssembledWindows(), kStripWindows}, kRowSlack,
                   {scratch_, scratch_bytes_}, [this](Strip& strip) { RunStrip(strip); });
      return;
    }
    ForEachTile(0, out_.Columns(), kStripWindows, [&](int64_t x, int64_t count) {
      AssembledStrip strip(source_, out_, columns, {x, count});
      first_ = x;
      RunStrip(strip);
    });
  }

 private:
  static constexpr int64_t kStripWindows = 1024;
  /// Of the longest vectors.
  static constexpr size_t kVectorBytes = 64;

  bool HasColors() const { return step_ > 1; }
  /// Pixels of colors are kept for all rows under the tiles, unless they are read in place.
  int64_t AssembledWindows() const { return HasColors() ? 128 : kStripWindows; }
  /// Rows under a row of tiles.
  size_t Slots() const { return size_ + tile_height_ - 1; }
  /// All rows outside are alike, and have one slot.
  size_t Slot(int64_t row) const {
    return IsInside(row) ? static_cast<size_t>(row) % Slots() : Slots();
  }
  bool IsInside(int64_t row) const { return row >= 0 && row < out_.Rows(); }
  size_t RowPitch() const { return kTileWidth * run_pitch_; }
  uint8_t* Results(size_t j) const { return keys_ + (1 + j) * keys_pitch_; }

  void RunStrip(Strip& strip) {
    Read(strip, -1);
    for (int64_t row = 0; row < std::min(reach_.after, strip.Rows()); ++row) Read(strip, row);
    const auto tile_height = static_cast<int64_t>(tile_height_);
    for (int64_t y = 0; y < strip.Rows(); y += tile_height) {
      // The last tiles may reach beyond the last row.
      for (int64_t j = 0; j < tile_height; ++j) {
        if (strip.Step() > 1 && !strip.InPlace()) strip.Prefetch(y + j, reach_.after);
        if (IsInside(y + j + reach_.after)) Read(strip, y + j + reach_.after);
      }
      FindMiddle(y, Ahead(strip, y + tile_height), static_cast<size_t>(strip.Count()));
      const int64_t rows = std::min(tile_height, strip.Rows() - y);
      for (int64_t j = 0; j < rows; ++j) {
        Store(strip, y + j, Results(static_cast<size_t>(j)));
      }
    }
  }

  /// What the tiles from row `y` on read and write, where it lies in one piece.
  RowsAhead Ahead(Strip& strip, int64_t y) const {
    RowsAhead ahead = {{}, 0, step_};
    if (HasColors() ? !strip.InPlace() : !source_.InPlace()) return ahead;
    const int64_t end = std::min(y + static_cast<int64_t>(tile_height_), strip.Rows());
    for (; y < end; ++y) {
      const int64_t last = std::min(y + reach_.after, strip.Rows() - 1);
      ahead.rows[ahead.count++] =
          HasColors() ? strip.Read(last, nullptr) : source_.At(last, first_);
      ahead.rows[ahead.count++] = HasColors() ? strip.Open(y) : out_.At(y, first_);
    }
    return ahead;
  }

  void Read(const Strip& strip, int64_t y) {
    const MedianTileKernels& kernels = ActiveMedianTileKernels();
    const size_t slot = Slot(y);
    uint8_t* const runs = memory_.get() + slot * RowPitch();
    const size_t count = static_cast<size_t>(strip.InCount()) / kTileWidth + 1;
    if (!HasColors()) {
      kernels.spread_keys(runs, run_pitch_, strip.Read(y, keys_), count);
      return;
    }
    pixels_[slot] = strip.Read(y, scratch_ + slot * pixel_pitch_);
    WriteKeys(keys_, pixels_[slot], static_cast<int>(step_), strip.InCount());
    kernels.spread_placed(runs, run_pitch_, keys_, count);
  }

  /// The middle keys or taps of the tiles whose first row is `y`.
  void FindMiddle(int64_t y, const RowsAhead& ahead, size_t count) {
    const MedianTileKernels& kernels = ActiveMedianTileKernels();
    const uint8_t* rows[kMostTiled + kMostTileHeight - 1];
    uint8_t* results[kMostTileHeight];
    for (size_t j = 0; j < Slots(); ++j) {
      rows[j] = memory_.get() + Slot(y - reach_.before + static_cast<int64_t>(j)) * RowPitch();
    }
    for (size_t j = 0; j < tile_height_; ++j) results[j] = Results(j);
    uint8_t* const sorted = memory_.get() + (Slots() + 1) * RowPitch();
    const auto find = HasColors() ? kernels.middle_taps : kernels.middle_keys;
    find(results, rows, run_pitch_, sorted, ahead, size_, count);
  }

  void Store(Strip& strip, int64_t y, const uint8_t* results) {
    const auto count = static_cast<size_t>(strip.Count());
    uint8_t* const dest = strip.Open(y);
    if (!HasColors()) {
      std::memcpy(dest, results, count);
    } else {
      const MedianKernels& kernels = ActiveMedianKernels();
      const uint8_t* pixels[kMostTiled];
      for (size_t j = 0; j < size_; ++j) {
        pixels[j] = pixels_[Slot(y - reach_.before + static_cast<int64_t>(j))];
      }
      const auto copy = step_ == 4 ? kernels.copy_taps4 : kernels.copy_taps3;
      copy(dest, pixels, results, size_, count);
    }
    strip.Close(y);
  }

  const SourceRows source_;
  DestRows out_;
  const size_t size_;
  const size_t tile_height_;
  const Reach reach_;
  const size_t step_;
  int64_t first_ = 0;  ///< column of a strip of grays
  size_t run_pitch_;
  size_t keys_pitch_;
  size_t pixel_pitch_;
  size_t scratch_bytes_;
  std::unique_ptr<uint8_t[]> memory_;  ///< rows that are spread, sorted columns, and what follows
  uint8_t* keys_ = nullptr;            ///< a row, and the results of a row of tiles
  uint8_t* scratch_ = nullptr;         ///< pixels
  const uint8_t* pixels_[kMostTiled + kMostTileHeight];
};

}  // namespace

bool MedianByTiles(const ImageView& source, const ImageView& dest, int size) {
  TiledMedian median(source, dest, size);
  if (!median) return false;
  median.Run();
  return true;
}

}  // namespace qel
