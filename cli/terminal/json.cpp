#include "cli/terminal/json.h"

#include <cstdio>

namespace qel::cli {
namespace {

/// Bytes of the UTF-8 character at the start of `text`, 0 when there is none.
size_t CharacterLength(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char first = byte(0);
  const size_t length = first < 0x80   ? 1
                        : first < 0xC2 ? 0
                        : first < 0xE0 ? 2
                        : first < 0xF0 ? 3
                        : first < 0xF5 ? 4
                                       : 0;
  if (length > text.size()) return 0;
  for (size_t i = 1; i < length; ++i) {
    if (byte(i) >> 6 != 2) return 0;
  }
  // Overlong forms, surrogates and numbers beyond Unicode show in the second byte.
  const bool wrong = (first == 0xE0 && byte(1) < 0xA0) || (first == 0xED && byte(1) >= 0xA0) ||
                     (first == 0xF0 && byte(1) < 0x90) || (first == 0xF4 && byte(1) >= 0x90);
  return wrong ? 0 : length;
}

}  // namespace

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
  char text[40];
  std::snprintf(text, sizeof(text), "%.17g", value);
  return Member(name, text);
}

JsonObject& JsonObject::Flag(std::string_view name, bool value) {
  return Member(name, value ? "true" : "false");
}

JsonObject& JsonObject::Tenths(std::string_view name, double value) {
  char text[40];
  std::snprintf(text, sizeof(text), "%.1f", value);
  return Member(name, text);
}

std::string JsonArray(const std::vector<std::string>& elements, std::string_view separator) {
  std::string text = "[";
  for (const std::string& element : elements) {
    if (text.size() > 1) text += separator.empty() ? ", " : ",";
    text.append(separator).append(element);
  }
  return text + "]";
}

}  // namespace qel::cli
