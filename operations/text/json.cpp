#include "operations/text/json.h"

#include <cstdio>

#include "operations/text/numbers.h"
#include "operations/text/utf8.h"

namespace qel::operations {

std::string JsonText(std::string_view text) {
  std::string quoted = "\"";
  while (!text.empty()) {
    const char c = text.front();
    const size_t length = CharacterLength(text);
    if (length == 0 || static_cast<unsigned char>(c) < 0x20) {
      char escape[8];
      const unsigned high = length == 0 ? 0xDC00 : 0;
      std::snprintf(escape, sizeof(escape), "\\u%04x", high | static_cast<unsigned char>(c));
      quoted += escape;
    } else {
      if (c == '"' || c == '\\') quoted += '\\';
      quoted += text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return quoted + "\"";
}

JsonObject& JsonObject::Member(std::string_view name, std::string_view value) {
  if (text_.size() > 1) text_ += ", ";
  text_.append(JsonText(name)).append(": ").append(value);
  return *this;
}

JsonObject& JsonObject::Text(std::string_view name, std::string_view value) {
  return Member(name, JsonText(value));
}

JsonObject& JsonObject::Number(std::string_view name, int64_t value) {
  return Member(name, std::to_string(value));
}

JsonObject& JsonObject::Real(std::string_view name, double value) {
  return Member(name, JsonReal(value));
}

JsonObject& JsonObject::Flag(std::string_view name, bool value) {
  return Member(name, value ? "true" : "false");
}

JsonObject& JsonObject::Tenths(std::string_view name, double value) {
  char text[40];
  std::snprintf(text, sizeof(text), "%.1f", value);
  return Member(name, text);
}

std::string JsonReal(double value) { return FormatReal(value); }

std::string JsonArray(const std::vector<std::string>& elements, std::string_view separator) {
  std::string text = "[";
  for (const std::string& element : elements) {
    if (text.size() > 1) text += separator.empty() ? ", " : ",";
    text.append(separator).append(element);
  }
  return text + "]";
}

}  // namespace qel::operations
