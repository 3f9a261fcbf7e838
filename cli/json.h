#ifndef QEL_CLI_JSON_H_
#define QEL_CLI_JSON_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace qel::cli {

/// A JSON object on one line, its members in the order in which they are added.
class JsonObject {
 public:
  /// Bytes of file names that are not UTF-8 become lone surrogates U+DC80 to U+DCFF, which readers
  /// such as Python's turn back into the bytes.
  JsonObject& Text(std::string_view name, std::string_view value);
  JsonObject& Number(std::string_view name, int64_t value);
  /// One digit after the point.
  JsonObject& Tenths(std::string_view name, double value);

  std::string Line() const { return text_ + "}\n"; }

 private:
  JsonObject& Member(std::string_view name, std::string_view value);

  std::string text_ = "{";
};

}  // namespace qel::cli

#endif  // QEL_CLI_JSON_H_
