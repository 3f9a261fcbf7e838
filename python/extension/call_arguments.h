#ifndef QEL_PYTHON_CALL_ARGUMENTS_H_
#define QEL_PYTHON_CALL_ARGUMENTS_H_

#include <pybind11/pybind11.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "operations/arguments.h"
#include "python/extension/arrays.h"
#include "python/extension/call.h"
#include "python/extension/maps.h"

namespace qel::python {

/// The arguments of a call beside its picture, read from what Python gave.
class CallArguments {
 public:
  /// A second picture, by the name of its parameter, which steps call it by.
  using Second = std::pair<std::string_view, PixelArray>;

  /// With `exchanged`, pixels go to the module with red first, as they are, so that arguments
  /// exchange red and blue. Keeps the operation. Throws `operations::StepError` for values that do
  /// not fit.
  CallArguments(const FunctionCall& call, bool exchanged);

  const operations::Arguments& arguments() const { return arguments_; }
  const CallerMap& map() const { return map_; }
  std::vector<Second>& seconds() { return seconds_; }
  const std::vector<Second>& seconds() const { return seconds_; }

 private:
  [[noreturn]] void Refuse(std::string_view argument, const std::string& message) const;
  std::string TextFor(std::string_view name, pybind11::handle value) const;
  void Set(const operations::Parameter& parameter, pybind11::handle value);
  void SetColor(std::string_view name, pybind11::handle value);
  void SetPaint(std::string_view name, pybind11::handle value);
  void SetNumbers(std::string_view name, pybind11::handle value);
  void SetPicture(const operations::Parameter& parameter, pybind11::handle value);
  bool SetByMap(const operations::Parameter& parameter, pybind11::handle value);

  const operations::Operation& operation_;
  const bool exchanged_;
  operations::Arguments arguments_;
  CallerMap map_;
  std::vector<Second> seconds_;
};

}  // namespace qel::python

#endif  // QEL_PYTHON_CALL_ARGUMENTS_H_
