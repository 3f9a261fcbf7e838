#include "operations/text/numbers.h"

#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace qel::operations {

#ifdef __cpp_lib_to_chars

bool ParseReal(std::string_view text, double& value) {
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value);
  return error == std::errc() && rest == end;
}

std::string FormatReal(double value) {
  char text[40];
  return std::string(text, std::to_chars(text, text + sizeof(text), value).ptr);
}

#else  // libraries that convert whole numbers only; there the locale is always "C"

bool ParseReal(std::string_view text, double& value) {
  constexpr std::string_view kFirst = "-.0123456789in";  // no blanks, no plus sign
  if (text.empty() || kFirst.find(text.front()) == std::string_view::npos) return false;
  const std::string copy(text);
  char* rest = nullptr;
  const double number = std::strtod(copy.c_str(), &rest);
  if (rest != copy.c_str() + copy.size()) return false;
  value = number;
  return true;
}

std::string FormatReal(double value) {
  char text[40];
  for (int digits = 1; digits <= 17; ++digits) {
    std::snprintf(text, sizeof(text), "%.*g", digits, value);
    if (std::strtod(text, nullptr) == value) break;
  }
  return text;
}

#endif

}  // namespace qel::operations
