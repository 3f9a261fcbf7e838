#include "cli/terminal/errors.h"

#include <new>

#include "operations/errors.h"
#include "pictures/picture_error.h"

namespace qel::cli {

ExitCode ExitCodeOf(const std::exception& error) {
  if (const auto* const failure = dynamic_cast<const Failure*>(&error)) return failure->code();
  if (dynamic_cast<const operations::DepthError*>(&error) != nullptr) return kWrongDepth;
  if (dynamic_cast<const operations::StepError*>(&error) != nullptr) return kUsage;
  if (const auto* const picture = dynamic_cast<const pictures::PictureError*>(&error)) {
    using Error = pictures::PictureError::Kind;
    const bool of_output =
        picture->kind() == Error::kNotWritable || picture->kind() == Error::kDoesNotFit;
    return of_output ? kNoOutput : kNoInput;
  }
  return kModuleFault;
}

std::string MessageOf(const std::exception& error) {
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) return "there is not enough memory";
  return error.what();
}

}  // namespace qel::cli
