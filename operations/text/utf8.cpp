#include "operations/text/utf8.h"

#include <cstdint>
#include <cstdio>

namespace qel::operations {
namespace {

/// The number of a character that is known to be one.
uint32_t NumberOf(std::string_view character) {
  const auto first = static_cast<unsigned char>(character[0]);
  uint32_t number = first & (character.size() == 1 ? 0x7Fu : 0x7Fu >> character.size());
  for (const char c : character.substr(1)) number = number << 6 | (c & 0x3Fu);
  return number;
}

bool Controls(uint32_t number) {
  const bool control = number < 0x20 || (number >= 0x7F && number < 0xA0);
  const bool line = number == 0x2028 || number == 0x2029;
  const bool direction =
      (number >= 0x202A && number <= 0x202E) || (number >= 0x2066 && number <= 0x2069);
  return control || line || direction;
}

std::string Escape(uint32_t number) {
  if (number == '\n') return "\\n";
  if (number == '\t') return "\\t";
  char escape[16];
  std::snprintf(escape, sizeof(escape), number < 0x100 ? "\\x%02x" : "\\u%04x", number);
  return escape;
}

}  // namespace

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

std::string Printable(std::string_view text) {
  std::string printable;
  while (!text.empty()) {
    const size_t length = CharacterLength(text);
    const std::string_view character = text.substr(0, length == 0 ? 1 : length);
    if (length == 0) {
      printable += Escape(static_cast<unsigned char>(text.front()));
    } else {
      const uint32_t number = NumberOf(character);
      printable += Controls(number) ? Escape(number) : std::string(character);
    }
    text.remove_prefix(character.size());
  }
  return printable;
}

}  // namespace qel::operations
