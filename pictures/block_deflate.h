#ifndef QEL_PICTURES_BLOCK_DEFLATE_H_
#define QEL_PICTURES_BLOCK_DEFLATE_H_

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "pictures/byte_reader.h"

namespace qel::pictures {

/// How hard zlib looks for repetitions: the arguments of `deflateInit2` of these names.
struct DeflateEffort {
  int level = 6;
  int strategy = 0;
};

/// Packs bytes as a zlib stream (RFC 1950) on several threads; the stream is the same for any
/// number of them.
///
/// The bytes are cut into blocks of `kBlockBytes`. Each becomes a run of deflate blocks (RFC 1951)
/// that ends at a whole byte, so that runs can be joined, and refers back into the 32 KiB before
/// it, which costs next to nothing compared with one run (Adler, pigz). Blocks in which a look at
/// a sample finds few repetitions, as in filtered photos, are packed without a search for them
/// (`Z_RLE`): that is five times as fast and no larger. Threads: one at a time, whichever.
class BlockDeflate {
 public:
  static constexpr size_t kBlockBytes = size_t{256} << 10;

  /// Takes the next part of the stream, which has at least one byte. Called by `Append` and
  /// `Finish`, on the thread that called these; what it throws passes through.
  using Sink = std::function<void(Bytes)>;

  /// Uses `threads` threads, the caller's among them, or less where no more can be started.
  BlockDeflate(DeflateEffort effort, int threads, Sink sink);
  BlockDeflate(const BlockDeflate&) = delete;
  BlockDeflate& operator=(const BlockDeflate&) = delete;
  ~BlockDeflate();

  /// Takes the next bytes. Throws `std::bad_alloc`.
  void Append(Bytes bytes);
  /// Ends the stream. Throws as `Append`.
  void Finish();

  /// Bytes of memory that packing `total` bytes takes at most.
  static uint64_t HeldBytes(uint64_t total, int threads);

 private:
  class Block;
  using Lock = std::unique_lock<std::mutex>;

  static size_t MostBlocks(int threads);
  void Begin();
  void Submit(bool last);
  void StartHelpers();
  void Help();
  void PassOn();
  void PackFirst(Lock& lock);

  const DeflateEffort effort_;
  const int threads_;
  const Sink sink_;
  std::unique_ptr<Block> filling_;
  std::vector<std::unique_ptr<Block>> spare_;
  std::vector<uint8_t> window_;                   ///< the end of what has been submitted
  std::deque<std::unique_ptr<Block>> submitted_;  ///< in order
  bool first_ = true;
  uint32_t checksum_ = 1;  ///< of what has been passed on, as Adler-32

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Block*> waiting_;  ///< submitted, and no thread has begun with them
  bool ending_ = false;
  std::vector<std::jthread> helpers_;
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_BLOCK_DEFLATE_H_
