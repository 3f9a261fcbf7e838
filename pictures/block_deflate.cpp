#include "pictures/block_deflate.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace qel::pictures {
namespace {

constexpr int kWindowBits = 15;
constexpr size_t kWindowBytes = size_t{1} << kWindowBits;
constexpr int kMemoryLevel = 8;
constexpr size_t kStreamHeadBytes = 2;
constexpr size_t kStreamEndBytes = 4;
/// What a flush takes, and more heads of stored blocks than zlib counts in its bound.
constexpr size_t kFlushBytes = 1024;
/// Of zlib: window and links of 4 bytes for each of its places, heads and symbols by memory level.
constexpr size_t kStateBytes = (kWindowBytes << 2) + (size_t{1} << (kMemoryLevel + 9));

/// The two bytes in front of a stream: its window, and how hard it was packed.
void PutHeader(int level, uint8_t* out) {
  const int effort = level < 2 ? 0 : level < 6 ? 1 : level == 6 ? 2 : 3;
  const int header = ((kWindowBits - 8) << 4 | Z_DEFLATED) << 8 | effort << 6;
  const int check = 31 - header % 31;
  out[0] = static_cast<uint8_t>(header >> 8);
  out[1] = static_cast<uint8_t>(header + check);
}

void PutU32(uint32_t value, uint8_t* out) {
  for (int i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}

}  // namespace

/// A part of what is to be packed and what becomes of it. All memory is taken when it is made:
/// packing cannot fail.
class BlockDeflate::Block {
 public:
  explicit Block(DeflateEffort effort) : effort_(effort) {
    if (deflateInit2(&stream_, effort.level, Z_DEFLATED, -kWindowBits, kMemoryLevel,
                     effort.strategy) != Z_OK) {
      throw std::bad_alloc();
    }
    try {
      input_.resize(kWindowBytes + kBlockBytes);
      output_.resize(kStreamHeadBytes + deflateBound(&stream_, kBlockBytes) + kFlushBytes +
                     kStreamEndBytes);
    } catch (...) {
      deflateEnd(&stream_);
      throw;
    }
  }
  Block(const Block&) = delete;
  Block& operator=(const Block&) = delete;
  ~Block() { deflateEnd(&stream_); }

  /// Empties the block, which references may go back from into `window`.
  void Begin(Bytes window) {
    std::ranges::copy(window, input_.begin());
    window_ = end_ = window.size();
    done = false;
  }
  /// The end of what there is, for the window of the next block.
  Bytes Tail() const { return Bytes(input_).first(end_).last(std::min(kWindowBytes, end_)); }
  bool Full() const { return content_bytes() == kBlockBytes; }
  size_t content_bytes() const { return end_ - window_; }

  /// Takes as many of the bytes as there is room for, and returns their number.
  size_t Fill(Bytes bytes) {
    const size_t count = std::min(bytes.size(), kBlockBytes - content_bytes());
    std::memcpy(input_.data() + end_, bytes.data(), count);
    end_ += count;
    return count;
  }

  void Pack() {
    const Bytes content(input_.data() + window_, content_bytes());
    Run(ChooseEffort(), content, last ? Z_FINISH : Z_SYNC_FLUSH);
    checksum_ =
        static_cast<uint32_t>(adler32(1, content.data(), static_cast<uInt>(content.size())));
  }
  uint32_t checksum() const { return checksum_; }

  /// The packed bytes, with room for the stream's header before them and its trailer behind.
  uint8_t* packed() { return output_.data() + kStreamHeadBytes; }
  size_t packed_bytes() const { return stream_.total_out; }

  bool last = false;
  bool done = false;

 private:
  static constexpr DeflateEffort kNoSearch{1, Z_RLE};

  /// Packs bytes of the input, which references may go back before; returns their packed size.
  size_t Run(DeflateEffort effort, Bytes content, int flush) {
    deflateReset(&stream_);
    deflateParams(&stream_, effort.level, effort.strategy);
    const auto before = static_cast<size_t>(content.data() - input_.data());
    const size_t window = effort.strategy == Z_RLE ? 0 : std::min(before, kWindowBytes);
    if (window > 0) {
      deflateSetDictionary(&stream_, content.data() - window, static_cast<uInt>(window));
    }
    stream_.next_in = const_cast<Bytef*>(content.data());  // the library only reads it
    stream_.avail_in = static_cast<uInt>(content.size());
    stream_.next_out = packed();
    stream_.avail_out = static_cast<uInt>(output_.size() - kStreamHeadBytes - kStreamEndBytes);
    deflate(&stream_, flush);
    return stream_.total_out;
  }

  /// A search takes long where little repeats: there it has to save a seventh of a sample.
  DeflateEffort ChooseEffort() {
    constexpr size_t kSampleBytes = size_t{8} << 10;
    if (effort_.level == 0 || content_bytes() < 8 * kSampleBytes) return effort_;
    const Bytes sample(input_.data() + window_ + content_bytes() / 2, kSampleBytes);
    const size_t plain = Run(kNoSearch, sample, Z_FINISH);
    if (4 * plain < kSampleBytes) return effort_;
    return 7 * Run(effort_, sample, Z_FINISH) < 6 * plain ? effort_ : kNoSearch;
  }

  const DeflateEffort effort_;
  z_stream stream_{};
  std::vector<uint8_t> input_;  ///< the window and what is to be packed
  std::vector<uint8_t> output_;
  size_t window_ = 0;
  size_t end_ = 0;
  uint32_t checksum_ = 0;
};

BlockDeflate::BlockDeflate(DeflateEffort effort, int threads, Sink sink)
    : effort_(effort), threads_(std::max(threads, 1)), sink_(std::move(sink)) {}

BlockDeflate::~BlockDeflate() {
  {
    const Lock lock(mutex_);
    ending_ = true;
    waiting_.clear();
  }
  changed_.notify_all();
  helpers_.clear();
}

/// With the one that is filled. Several threads need a store to take blocks from.
size_t BlockDeflate::MostBlocks(int threads) {
  return threads > 1 ? 2 * static_cast<size_t>(threads) : 1;
}

uint64_t BlockDeflate::HeldBytes(uint64_t total, int threads) {
  const uint64_t blocks = std::min<uint64_t>(total / kBlockBytes + 1, MostBlocks(threads));
  return blocks * (2 * kBlockBytes + kWindowBytes + kStateBytes);
}

void BlockDeflate::Append(Bytes bytes) {
  while (!bytes.empty()) {
    if (filling_ == nullptr) Begin();
    if (filling_->Full()) {
      // Only now that more follows: the last one has to be known.
      Submit(false);
      Begin();
    }
    bytes = bytes.subspan(filling_->Fill(bytes));
  }
}

void BlockDeflate::Finish() {
  if (filling_ == nullptr) Begin();
  Submit(true);
  while (!submitted_.empty()) PassOn();
}

/// Makes an empty block the one that is filled.
void BlockDeflate::Begin() {
  if (spare_.empty()) {
    filling_ = std::make_unique<Block>(effort_);
  } else {
    filling_ = std::move(spare_.back());
    spare_.pop_back();
  }
  filling_->Begin(window_);
}

/// Has the block that is filled packed, by whoever comes to it first.
void BlockDeflate::Submit(bool last) {
  if (!last) StartHelpers();
  filling_->last = last;
  const Bytes tail = filling_->Tail();
  window_.assign(tail.begin(), tail.end());
  {
    const Lock lock(mutex_);
    waiting_.push_back(filling_.get());
  }
  submitted_.push_back(std::move(filling_));
  changed_.notify_one();
  while (submitted_.size() >= MostBlocks(threads_)) PassOn();
}

void BlockDeflate::StartHelpers() {
  try {
    while (static_cast<int>(helpers_.size()) + 1 < threads_)
      helpers_.emplace_back([this] { Help(); });
  } catch (const std::system_error&) {
    // Fewer threads do the same.
  }
}

void BlockDeflate::Help() {
  Lock lock(mutex_);
  while (!ending_) {
    if (waiting_.empty()) {
      changed_.wait(lock);
    } else {
      PackFirst(lock);
    }
  }
}

/// Packs the block that has waited longest.
void BlockDeflate::PackFirst(Lock& lock) {
  Block& block = *waiting_.front();
  waiting_.pop_front();
  lock.unlock();
  block.Pack();
  lock.lock();
  block.done = true;
  changed_.notify_all();
}

/// Passes the first block on, and packs until it is done.
void BlockDeflate::PassOn() {
  Block& block = *submitted_.front();
  {
    Lock lock(mutex_);
    while (!block.done) {
      if (waiting_.empty()) {
        changed_.wait(lock);
      } else {
        PackFirst(lock);
      }
    }
  }
  uint8_t* begin = block.packed();
  uint8_t* end = begin + block.packed_bytes();
  if (std::exchange(first_, false)) {
    begin -= kStreamHeadBytes;
    PutHeader(effort_.level, begin);
  }
  checksum_ = static_cast<uint32_t>(
      adler32_combine(checksum_, block.checksum(), static_cast<z_off_t>(block.content_bytes())));
  if (block.last) {
    PutU32(checksum_, end);
    end += kStreamEndBytes;
  }
  sink_({begin, end});
  spare_.push_back(std::move(submitted_.front()));
  submitted_.pop_front();
}

}  // namespace qel::pictures
