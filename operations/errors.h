#ifndef QEL_OPERATIONS_ERRORS_H_
#define QEL_OPERATIONS_ERRORS_H_

#include <stdexcept>
#include <string>
#include <string_view>

#include "qel/types.h"

namespace qel::operations {

/// A step that cannot be carried out as it was asked for: an unknown operation or argument, a value
/// that does not fit, pictures that do not go together. Nothing was changed. The message says what
/// was wrong, where, and what would be right.
class StepError : public std::runtime_error {
 public:
  /// `operation` and `argument` are empty where the error concerns none.
  StepError(const std::string& message, std::string_view operation = {},
            std::string_view argument = {})
      : std::runtime_error(message), operation_(operation), argument_(argument) {}

  const std::string& operation() const { return operation_; }
  const std::string& argument() const { return argument_; }

 private:
  std::string operation_;
  std::string argument_;
};

/// A step that does not take the depth of a picture.
class DepthError : public StepError {
 public:
  using StepError::StepError;
};

/// The module answered a call with a failure.
class CallError : public std::runtime_error {
 public:
  CallError(const std::string& message, std::string_view operation, result_t code)
      : std::runtime_error(message), operation_(operation), code_(code) {}

  const std::string& operation() const { return operation_; }
  result_t code() const { return code_; }

 private:
  std::string operation_;
  result_t code_;
};

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_ERRORS_H_
