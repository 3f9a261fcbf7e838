#ifndef QEL_CHECK_OPERATION_CALLS_H_
#define QEL_CHECK_OPERATION_CALLS_H_

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "operations/components.h"

namespace qel::check {

using operations::Components;

/// A call of one operation with ordinary arguments, for checks that run all operations alike.
struct OperationCall {
  std::string name;
  int images;          ///< how many images it takes
  int changed_images;  ///< how many of them, from the first on, it may change
  bool makes_image;    ///< whether it needs a new image from the host
  std::function<result_t(const Components&, std::span<IQELImage* const> images, IQEL** result)>
      call;
};

/// Every operation of the five interfaces; those with an optional result both ways.
const std::vector<OperationCall>& AllOperationCalls();

}  // namespace qel::check

#endif  // QEL_CHECK_OPERATION_CALLS_H_
