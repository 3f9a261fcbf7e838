#ifndef QEL_BENCH_CHECK_H_
#define QEL_BENCH_CHECK_H_

#include <string>

#include "bench/row.h"

namespace qel::bench {

/// How a call on a small picture compares with the plain reading of the operation.
struct Verdict {
  enum class Kind { kUnknown, kRight, kNotAvailable, kWrong } kind = Kind::kUnknown;
  std::string reason = {};  ///< why it is not right
};

/// The picture of the checks. Rows of such images have no padding at 8, 24 and 32 bits.
inline constexpr Size kSmallPicture = {128, 72};

Verdict Check(const Row& row, const Components& components, int depth);

}  // namespace qel::bench

#endif  // QEL_BENCH_CHECK_H_
