#ifndef QEL_OPERATIONS_TEXT_JSON_H_
#define QEL_OPERATIONS_TEXT_JSON_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace qel::operations {

/// A JSON object on one line, its members in the order in which they are added.
class JsonObject {
 public:
  /// Bytes of file names that are not UTF-8 become lone surrogates U+DC80 to U+DCFF, which readers
  /// such as Python's turn back into the bytes.
  JsonObject& Text(std::string_view name, std::string_view value);
  JsonObject& Number(std::string_view name, int64_t value);
  JsonObject& Real(std::string_view name, double value);
  JsonObject& Flag(std::string_view name, bool value);
  /// One digit after the point.
  JsonObject& Tenths(std::string_view name, double value);

  /// Adds what is JSON already.
  JsonObject& Json(std::string_view name, std::string_view value) { return Member(name, value); }

  std::string Object() const { return text_ + "}"; }
  std::string Line() const { return Object() + "\n"; }

 private:
  JsonObject& Member(std::string_view name, std::string_view value);

  std::string text_ = "{";
};

/// An array of what is JSON already; `separator` stands before each element.
std::string JsonArray(const std::vector<std::string>& elements, std::string_view separator = "");

/// A number, exactly.
std::string JsonReal(double value);

/// A text with its quotes.
std::string JsonText(std::string_view text);

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_TEXT_JSON_H_
