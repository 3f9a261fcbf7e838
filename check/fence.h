#ifndef QEL_CHECK_FENCE_H_
#define QEL_CHECK_FENCE_H_

#include <cstddef>
#include <cstdint>
#include <optional>

namespace qel::check {

/// While one lives, memory that loaded libraries allocate lies against pages that cannot be
/// touched, and memory that they give back cannot be touched any more: who reaches past it, or uses
/// it afterwards, is ended by a signal. The allocation functions are exchanged in the tables
/// through which libraries call them, so this works on libraries as they are, but is for processes
/// that end soon: blocks are pages, and none is used twice. Threads: one fence at a time;
/// allocation from any.
class Fence {
 public:
  /// Which end of a block touches the page.
  enum class Side { kBehind, kBefore };

  /// Requests for more than `largest` bytes are refused.
  explicit Fence(Side side, size_t largest = SIZE_MAX);
  Fence(const Fence&) = delete;
  Fence& operator=(const Fence&) = delete;
  ~Fence();

  /// The block that `address` lies in, as it was asked for; nothing when it was not allocated
  /// behind a fence or was given back.
  struct Block {
    const uint8_t* begin;
    const uint8_t* end;
  };
  static std::optional<Block> BlockOf(const uint8_t* address);
};

}  // namespace qel::check

#endif  // QEL_CHECK_FENCE_H_
