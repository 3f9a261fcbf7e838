#ifndef QEL_TESTS_SUPPORT_OPERATION_CALLS_H_
#define QEL_TESTS_SUPPORT_OPERATION_CALLS_H_

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "qel/qel.h"
#include "qel/smart_ptr.h"

namespace qel::test {

/// One object of each component, of whichever build of the module.
struct ComponentSet {
  SmartPtr<IQELColorTransform> color;
  SmartPtr<IQELTransform> transform;
  SmartPtr<IQELDeform> deform;
  SmartPtr<IQELFilterTransform> filter;
  SmartPtr<IQELMaths> maths;
};

/// A call of one operation with ordinary arguments, for tests that run all operations alike.
struct OperationCall {
  std::string name;
  int images;          ///< how many images it takes
  int changed_images;  ///< how many of them, from the first on, it may change
  bool makes_image;    ///< whether it needs a new image from the host
  std::function<result_t(const ComponentSet&, std::span<IQELImage* const> images, IQEL** result)>
      call;
};

/// Every operation of the five interfaces; those with an optional result both ways.
const std::vector<OperationCall>& AllOperationCalls();

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_OPERATION_CALLS_H_
