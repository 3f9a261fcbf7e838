#include "pictures/icc.h"

#include "pictures/byte_reader.h"

namespace qel::pictures {
namespace {

constexpr size_t kTagTable = 128;
constexpr uint32_t kDescription = 0x64657363;  // "desc": the tag, and its type in version 2
constexpr uint32_t kTexts = 0x6D6C7563;        // "mluc": its type in version 4

/// Appends a character as UTF-8.
void Append(std::string& text, uint32_t character) {
  if (character < 0x80) {
    text += static_cast<char>(character);
  } else if (character < 0x800) {
    text += static_cast<char>(0xC0 | character >> 6);
    text += static_cast<char>(0x80 | (character & 0x3F));
  } else {
    text += static_cast<char>(0xE0 | character >> 12);
    text += static_cast<char>(0x80 | (character >> 6 & 0x3F));
    text += static_cast<char>(0x80 | (character & 0x3F));
  }
}

/// What can be shown of a text of `count` units of `size` bytes.
std::string ReadText(const ByteReader& reader, size_t at, size_t count, size_t size) {
  constexpr size_t kLongest = 200;
  std::string text;
  for (size_t i = 0; i < std::min(count, kLongest); ++i) {
    const uint32_t unit = size == 1 ? reader.U8(at + i) : reader.U16(at + 2 * i);
    const bool is_surrogate = unit >= 0xD800 && unit < 0xE000;
    if (unit == 0) break;
    Append(text,
           unit < ' ' || unit == 0x7F || is_surrogate || (size == 1 && unit > 0x7F) ? '?' : unit);
  }
  return text;
}

std::string Description(const ByteReader& reader, size_t at) {
  if (reader.U32(at) == kDescription) {
    return ReadText(reader, at + 12, reader.U32(at + 8), 1);
  }
  if (reader.U32(at) == kTexts && reader.U32(at + 8) > 0) {
    // The first language there is.
    return ReadText(reader, at + reader.U32(at + 24), reader.U32(at + 20) / 2, 2);
  }
  return {};
}

}  // namespace

std::string ProfileName(std::span<const uint8_t> profile) {
  const ByteReader reader(profile, ByteOrder::kBig);
  const size_t tags = std::min<size_t>(reader.U32(kTagTable), 200);
  for (size_t i = 0; i < tags; ++i) {
    const size_t entry = kTagTable + 4 + 12 * i;
    if (reader.U32(entry) != kDescription) continue;
    const std::string name = Description(reader, reader.U32(entry + 4));
    if (!name.empty()) return name;
  }
  return "unnamed";
}

}  // namespace qel::pictures
