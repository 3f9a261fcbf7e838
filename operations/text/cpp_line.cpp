#include "operations/text/cpp_line.h"

#include "operations/text/numbers.h"

namespace qel::operations {
namespace {

/// 1.8f, and 1.0f instead of 1.
std::string Single(double value) {
  const std::string text = FormatReal(static_cast<float>(value));
  return text + (text.find_first_of(".e") == text.npos ? ".0f" : "f");
}

}  // namespace

std::string CppLine(const Step& step) {
  const Operation& operation = *step.operation;
  if (operation.method == nullptr) return {};
  const Method& method = *operation.method;
  const std::vector<double> numbers = operation.ArgumentsOf(step.arguments).numbers;
  size_t next = 0;
  const auto number = [&] { return next < numbers.size() ? numbers[next++] : 0; };
  std::string values;
  for (const Method::Parameter parameter : method.parameters) {
    if (!values.empty()) values += ", ";
    values += parameter == Method::Parameter::kImage    ? "image"
              : parameter == Method::Parameter::kResult ? "result"
              : parameter == Method::Parameter::kSingle ? Single(number())
                                                        : FormatReal(number());
  }
  return std::string(method.component) + "->" + std::string(method.name) + "(" + values + ");";
}

}  // namespace qel::operations
