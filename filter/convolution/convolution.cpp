#include <algorithm>
#include <cstring>

#include "component/result_image.h"
#include "filter/convolution/convolution_kernels.h"
#include "filter/convolution/exact_division.h"
#include "filter/convolution/kernel_weights.h"
#include "filter/filter_transform.h"
#include "filter/neighbourhood.h"
#include "image/numeric.h"

namespace qel {
namespace {

// Integer sums are the same in any order, so each kernel goes the shortest way: few weights go two
// by two, kernels that are a column times a row are summed across and down, equal weights slide,
// and all others go directly, with as many weights per instruction as their size allows. All sums
// wrap.

/// Words of the packed weights of the direct way.
constexpr size_t kWeightWords = kMostTaps * ((kMostTaps + 1) / 2);
/// Scratch rows of all ways.
constexpr size_t kTileBytes = 44 * 1024;
/// From these sizes on, sliding sums pay, and splitting where sums need 32 bits.
constexpr size_t kWorthSliding = 5;
constexpr size_t kWorthSplitting = 4;

/// What all ways share: a source, a destination, a kernel, scratch of `kTileBytes`.
struct Job {
  const SourceRows& source;
  DestRows& out;
  const Weights& weights;
  std::span<uint8_t> scratch;

  size_t Step() const { return static_cast<size_t>(source.sample_bytes()); }
  WindowColumns Window() const {
    return {weights.FirstColumn(), static_cast<int64_t>(weights.columns())};
  }
  /// Columns of a tile whose rows have room for `bytes` bytes; may be negative.
  int64_t TileWidth(int64_t bytes) const {
    return bytes / source.sample_bytes() - static_cast<int64_t>(weights.columns()) + 1;
  }
};

/// The rows of a strip's windows, each read once.
class RowRing {
 public:
  /// `scratch` has room for a scratch row of the strip for each row of the windows.
  RowRing(const Job& job, const Strip& strip, uint8_t* scratch)
      : strip_(strip),
        taps_(job.weights.rows()),
        first_row_(job.weights.FirstRow()),
        scratch_(scratch),
        pitch_(ScratchPitch(strip.InBytes())) {
    for (size_t j = 0; j + 1 < taps_; ++j) Read(static_cast<int64_t>(j));
  }

  /// The rows of the windows of output row `y`, which must be asked for in order.
  const uint8_t* const* RowsAt(int64_t y) {
    Read(y + static_cast<int64_t>(taps_) - 1);
    for (size_t j = 0; j < taps_; ++j) rows_[j] = read_[Slot(y + static_cast<int64_t>(j))];
    return rows_;
  }

 private:
  size_t Slot(int64_t row) const { return static_cast<size_t>(row) % taps_; }
  void Read(int64_t row) {
    const size_t slot = Slot(row);
    read_[slot] = strip_.Read(row + first_row_, scratch_ + slot * pitch_);
  }

  const Strip& strip_;
  const size_t taps_;
  const int64_t first_row_;
  uint8_t* const scratch_;
  const size_t pitch_;
  const uint8_t* read_[kMostTaps];
  const uint8_t* rows_[kMostTaps];
};

/// Calls row_function(dest, rows, bytes) with the rows of each output row's windows. It may read
/// `slack` bytes past them.
template <typename RowFunction>
void RunRing(const Job& job, size_t slack, RowFunction&& row_function) {
  const int64_t assembled =
      job.TileWidth(ScratchRowBytes(job.scratch.size(), static_cast<int64_t>(job.weights.rows())));
  ForEachStrip(job.source, job.out, job.Window(), {assembled, kTileColumns}, slack, job.scratch,
               [&](Strip& strip) {
                 RowRing ring(job, strip, job.scratch.data());
                 const int64_t after =
                     job.weights.FirstRow() + static_cast<int64_t>(job.weights.rows()) - 1;
                 for (int64_t y = 0; y < strip.Rows(); ++y) {
                   strip.Prefetch(y, after);
                   const uint8_t* const* const rows = ring.RowsAt(y);
                   strip.WriteParts(y, [&](uint8_t* dest, size_t first, size_t bytes) {
                     const uint8_t* here[kMostTaps];
                     for (size_t j = 0; j < job.weights.rows(); ++j) here[j] = rows[j] + first;
                     row_function(dest, here, bytes);
                   });
                 }
               });
}

/// Packs the weights of each row, `per_word` in a word, and returns the words of a row.
size_t PackWeights(const Weights& weights, size_t per_word, int32_t* words) {
  const size_t words_per_row = (weights.columns() + per_word - 1) / per_word;
  const size_t bits = 32 / per_word;
  const uint32_t mask = (uint32_t{1} << bits) - 1;
  for (size_t j = 0; j < weights.rows(); ++j) {
    for (size_t word = 0; word < words_per_row; ++word) {
      uint32_t packed = 0;
      for (size_t t = 0; t < per_word && word * per_word + t < weights.columns(); ++t) {
        const auto weight = static_cast<uint32_t>(weights.At(j, word * per_word + t));
        packed |= (weight & mask) << (bits * t);
      }
      *words++ = static_cast<int32_t>(packed);
    }
  }
  return words_per_row;
}

/// Every weight of the window for every pixel.
[[gnu::noinline]] void RunDirect(Job job, const Division& division) {
  constexpr size_t kWeightBytes = (kWeightWords * sizeof(int32_t) + 63) / 64 * 64;
  auto* const words = reinterpret_cast<int32_t*>(job.scratch.data());
  job.scratch = job.scratch.subspan(kWeightBytes);
  const ConvolutionKernels& kernels = ActiveConvolutionKernels();
  DirectWeights packed{job.weights.Row(0), job.weights.columns(), job.weights.stride(),
                       job.weights.rows(), job.Step()};
  ConvolutionKernels::Direct direct = kernels.direct32;
  const bool bytes = kernels.direct8 != nullptr && job.weights.Within(1 << 7);
  if (bytes || (kernels.direct16 != nullptr && job.weights.Within(1 << 15))) {
    direct = bytes ? kernels.direct8 : kernels.direct16;
    packed.words_per_row = packed.stride = PackWeights(job.weights, bytes ? 4 : 2, words);
    packed.words = words;
  }
  RunRing(job, kRowSlack, [&](uint8_t* dest, const uint8_t* const* rows, size_t count) {
    direct(dest, rows, packed, division, count);
  });
}

/// Few weights, two by two.
[[gnu::noinline]] void RunPairs(const Job& job, const Pairs& pairs) {
  PairWeights weights = pairs.Stored();
  const PairWeights::Place last{job.weights.rows() - 1, (job.weights.columns() - 1) * job.Step()};
  if (job.weights.Whole()) {
    weights.alpha = job.Step() == 4 ? &last : nullptr;
    job.out.KeepAlpha();
  }
  RunRing(job, 0, [&](uint8_t* dest, const uint8_t* const* rows, size_t count) {
    ActiveConvolutionKernels().pairs(dest, rows, weights, count);
  });
}

/// 3 x 3 weights of few different ones.
[[gnu::noinline]] void RunSquare(const Job& job, const SquareWeights& weights) {
  if (job.weights.Whole()) job.out.KeepAlpha();
  RunRing(job, 0, [&](uint8_t* dest, const uint8_t* const* rows, size_t count) {
    ActiveConvolutionKernels().square(dest, rows, weights, count);
  });
}

/// Sums across each row, read once, then down the columns.
[[gnu::noinline]] void RunAcrossDown(const Job& job, const Factors& factors,
                                     const ShortDivision& division) {
  int16_t down[kMostTaps];
  int16_t across[kMostTaps];
  const SplitWeights weights = factors.Store(down, across, job.Step());
  const ConvolutionKernels& kernels = ActiveConvolutionKernels();
  const size_t taps = job.weights.rows();
  // A row of bytes and a ring of rows of sums.
  const size_t row_bytes = (kTileBytes - (2 * taps + 1) * (kRowSlack + 128)) / (2 * taps + 1);
  const int64_t most =
      std::min(job.TileWidth(static_cast<int64_t>(row_bytes)), job.out.MostOpened());
  uint8_t* const scratch = job.scratch.data();
  ForEachStrip(job.source, job.out, job.Window(), {most, most}, 0, job.scratch, [&](Strip& strip) {
    const size_t pitch = ScratchPitch(strip.OutBytes() * sizeof(uint16_t));
    // In place, the row of bytes is the one outside.
    uint8_t* const ring = scratch + (strip.InPlace() ? 0 : ScratchPitch(strip.InBytes()));
    const auto sums_of = [&](int64_t row) {
      return reinterpret_cast<uint16_t*>(ring + static_cast<size_t>(row) % taps * pitch);
    };
    const auto read = [&](int64_t row) {
      const uint8_t* const samples = strip.Read(row + job.weights.FirstRow(), scratch);
      kernels.across16(sums_of(row), samples, weights, strip.OutBytes());
    };
    const auto last = static_cast<int64_t>(taps) - 1;
    for (int64_t row = 0; row < last; ++row) read(row);
    for (int64_t y = 0; y < strip.Rows(); ++y) {
      strip.Prefetch(y, last + job.weights.FirstRow());
      read(y + last);
      const uint16_t* sums[kMostTaps];
      for (size_t j = 0; j < taps; ++j) sums[j] = sums_of(y + static_cast<int64_t>(j));
      kernels.down16(strip.Open(y), sums, weights, division, strip.OutBytes());
      strip.Close(y);
    }
  });
}

/// Sums down the columns, then across them.
[[gnu::noinline]] void RunDownAcross(const Job& job, const Factors& factors,
                                     const Division& division) {
  int16_t down[kMostTaps];
  int16_t across[kMostTaps];
  const SplitWeights weights = factors.Store(down, across, job.Step());
  RunRing(job, kRowSlack, [&](uint8_t* dest, const uint8_t* const* rows, size_t count) {
    ActiveConvolutionKernels().split32(dest, rows, weights, division, count);
  });
}

/// Bytes of the rows of a box: sums, and the rows that enter and leave, stay in the nearest cache.
constexpr int64_t kBoxBytes = 6 * 1024;

/// Equal weights: from row to row, one row of the source enters the sums and one leaves them. False
/// when the windows are too wide for the scratch.
template <typename Lane, typename Quotient>
[[gnu::noinline]] bool RunBox(const Job& job, const BoxKernels<Lane, Quotient>& kernels,
                              const Quotient& division) {
  constexpr size_t kRows = 2;
  constexpr size_t kSlack = (kRows + 1) * (kRowSlack + 128);
  constexpr auto kRowBytes = static_cast<int64_t>((kTileBytes - kSlack) / (kRows + sizeof(Lane)));
  const int64_t most =
      std::min(job.TileWidth(std::min(kBoxBytes, kRowBytes)), job.out.MostOpened());
  if (most < 1) return false;
  const auto taps = static_cast<int64_t>(job.weights.rows());
  const auto weight = static_cast<Lane>(job.weights.At(0, 0));
  ForEachStrip(job.source, job.out, job.Window(), {most, most}, 0, job.scratch, [&](Strip& strip) {
    const size_t bytes = strip.InBytes();
    uint8_t* const leaving_slot = job.scratch.data();
    auto* const sums = reinterpret_cast<Lane*>(leaving_slot + ScratchPitch(bytes));
    // In place, the row outside lies here.
    uint8_t* const entering_slot =
        leaving_slot + ScratchPitch(bytes) + ScratchPitch(bytes * sizeof(Lane));
    std::memset(sums, 0, bytes * sizeof(Lane));
    std::memset(leaving_slot, 0, bytes);
    const uint8_t* leaving = leaving_slot;
    const auto enter = [&](int64_t row) {
      const uint8_t* const entering = strip.Read(row + job.weights.FirstRow(), entering_slot);
      kernels.slide(sums, entering, leaving, weight, bytes);
    };
    for (int64_t row = 0; row < taps - 1; ++row) enter(row);
    for (int64_t y = 0; y < strip.Rows(); ++y) {
      strip.Prefetch(y, taps - 1 + job.weights.FirstRow());
      if (y > 0) leaving = strip.Read(y - 1 + job.weights.FirstRow(), leaving_slot);
      enter(y + taps - 1);
      kernels.across(strip.Open(y), sums, job.weights.columns(), job.Step(), division,
                     strip.OutBytes());
      strip.Close(y);
    }
  });
  return true;
}

/// Windows too large for the other ways: one weight at a time, and of the weights that fall outside
/// for a whole tile only their sum.
[[gnu::noinline]] void RunLarge(const Job& job, const Division& division) {
  constexpr int64_t kColumns = 512;
  constexpr int64_t kPiece = 256;
  auto* const sums = reinterpret_cast<uint32_t*>(job.scratch.data());
  uint8_t* const samples = job.scratch.data() + kColumns * 4 * sizeof(uint32_t);
  static_assert(kTileBytes >= kColumns * 16 + (kColumns + kPiece) * 4 + kRowSlack);
  const ConvolutionKernels& kernels = ActiveConvolutionKernels();
  const Weights& weights = job.weights;
  const size_t step = job.Step();
  const auto columns = static_cast<int64_t>(weights.columns());
  const auto rows = static_cast<int64_t>(weights.rows());
  ForEachTile(0, job.out.Columns(), kColumns, [&](int64_t x, int64_t count) {
    const size_t bytes = static_cast<size_t>(count) * step;
    // The columns of the kernel that meet the image somewhere in this tile.
    const int64_t first = x + weights.FirstColumn();
    const int64_t begin = std::clamp<int64_t>(-(first + count - 1), 0, columns);
    const int64_t end = std::clamp<int64_t>(job.out.Columns() - first, begin, columns);
    for (int64_t y = 0; y < job.out.Rows(); ++y) {
      std::memset(sums, 0, bytes * sizeof(uint32_t));
      uint32_t outside = 0;
      for (int64_t j = 0; j < rows; ++j) {
        const int32_t* const row = weights.Row(static_cast<size_t>(j));
        const int64_t sy = y + weights.FirstRow() + j;
        const bool inside = sy >= 0 && sy < job.out.Rows();
        const int64_t from = inside ? begin : columns;
        const int64_t to = inside ? end : columns;
        for (int64_t i = 0; i < from; ++i) outside += static_cast<uint32_t>(row[i]);
        for (int64_t i = to; i < columns; ++i) outside += static_cast<uint32_t>(row[i]);
        for (int64_t piece = from; piece < to; piece += kPiece) {
          const int64_t piece_end = std::min(piece + kPiece, to);
          job.source.Fetch(sy, first + piece, count + piece_end - piece - 1, samples);
          for (int64_t i = piece; i < piece_end; ++i) {
            if (row[i] == 0) continue;
            kernels.accumulate(sums, samples + static_cast<size_t>(i - piece) * step,
                               static_cast<uint32_t>(row[i]), bytes);
          }
        }
      }
      for (size_t k = 0; k < bytes; ++k) sums[k] += outside * job.source.outside()[k % step];
      kernels.finish(job.out.Open(y, x), sums, division, bytes);
      job.out.Close(y, x, count);
    }
  });
}

void Convolve(const ImageView& source, const ImageView& dest, const int* kernel, int size,
              int divisor, int offset) {
  const SourceRows rows(source);
  const Weights weights(kernel, size);
  const ConvolutionKernels& kernels = ActiveConvolutionKernels();
  DestRows out(dest, source, Reach(size).after);
  ScratchBlock<kTileBytes> scratch;
  const Job job{rows, out, weights, scratch};
  SquareWeights square;
  if (kernels.square != nullptr && FindSquare(weights, job.Step(), divisor, offset, square)) {
    RunSquare(job, square);
    return;
  }
  int64_t lowest = 0;
  int64_t highest = 0;
  weights.Range(lowest, highest);
  const Division division = DivisionBy(divisor, offset, std::max(-lowest, highest));
  ShortDivision short_division;
  const bool is_short =
      lowest >= 0 && offset == 0 && FindShortDivision(divisor, highest, short_division);
  const size_t taps = weights.rows() + weights.columns();
  if (taps > 2 * kWorthSliding && weights.AllEqual() &&
      (is_short ? RunBox(job, kernels.box16, short_division)
                : RunBox(job, kernels.box32, division))) {
    return;
  }
  if (weights.rows() > kMostTaps || weights.columns() > kMostTaps) {
    RunLarge(job, division);
    return;
  }
  const Factors factors(weights);
  const bool splits = factors.Found() && is_short && factors.ShortAcross();
  if (kernels.pairs != nullptr && !(splits && taps > 2 * kWorthSplitting)) {
    const Pairs pairs(weights, job.Step(), divisor, offset);
    if (pairs.Found()) return RunPairs(job, pairs);
  }
  if (splits) return RunAcrossDown(job, factors, short_division);
  if (factors.Found() && factors.ShortDown() && taps > 2 * kWorthSplitting) {
    RunDownAcross(job, factors, division);
  } else {
    RunDirect(job, division);
  }
}

}  // namespace

result_t CQELFilterTransform::Filter(IQEL* image, int* kernel, int size, int divisor, int offset,
                                     IQEL** result) {
  if (image == nullptr || (kernel == nullptr && size > 0)) return kFail;
  const ImageView source = ReadSizeBitsAndFormat(*image);
  ResultImage output = ResultImage::Like(source);
  if (!output) return kFail;
  const ImageView dest = output.View();
  if (size <= 0) {
    const uint32_t level = ClampToByte(offset);
    FillPixels(dest, PackColour(level, level, level, 0));
  } else if (StoresPixels(dest)) {
    Convolve(source, dest, kernel, size, divisor, offset);
  }
  return output.HandOver(image, result);
}

}  // namespace qel
