#ifndef QEL_HOST_PIXEL_SLACK_H_
#define QEL_HOST_PIXEL_SLACK_H_

#include <algorithm>
#include <cstdint>

#include "qel/types.h"

namespace qel::host {

/// Bytes round the rows of a plane that operations may read and write, and a host must own. The
/// rows are the height x |stride| bytes from the lowest row in memory on. docs/abi.md says which
/// operation reaches how far.
struct PixelSlack {
  int64_t before = 0;
  int64_t after = 0;
};

/// The slack that is enough for every operation, on images of sizes that are not negative:
///   64 + max(|stride|, 4 x width) + height x |stride| / 2^21   at both ends, and
///   3 x height x |stride|   more at the end that the rows run to, below 24 bits and for "MONO".
/// The first covers rows taken for rows of larger pixels and places that single precision rounds,
/// the second rows of bytes that are walked as rows of 32-bit words, four times as far apart.
constexpr PixelSlack SlackOf(int64_t width, int64_t height, int64_t stride, int bit_count,
                             uint32_t model) {
  const int64_t step = stride < 0 ? -stride : stride;
  const int64_t ends = 64 + std::max(step, 4 * width) + (height * step >> 21);
  const int64_t words = bit_count < 24 || model == kModelMono ? 3 * height * step : 0;
  return stride < 0 ? PixelSlack{ends + words, ends} : PixelSlack{ends, ends + words};
}

}  // namespace qel::host

#endif  // QEL_HOST_PIXEL_SLACK_H_
