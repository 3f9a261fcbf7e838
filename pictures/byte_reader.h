#ifndef QEL_PICTURES_BYTE_READER_H_
#define QEL_PICTURES_BYTE_READER_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace qel::pictures {

using Bytes = std::span<const uint8_t>;

/// Whether a file begins with these characters.
inline bool StartsWith(Bytes file, const char* characters) {
  size_t i = 0;
  for (; characters[i] != '\0'; ++i) {
    if (i >= file.size() || file[i] != static_cast<uint8_t>(characters[i])) return false;
  }
  return true;
}

inline Bytes BytesOf(const std::string& text) {
  return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

enum class ByteOrder { kLittle, kBig };

/// Numbers at positions that the file itself states: what lies outside reads as 0.
class ByteReader {
 public:
  explicit ByteReader(Bytes bytes, ByteOrder order = ByteOrder::kLittle)
      : bytes_(bytes), order_(order) {}

  bool Holds(size_t at, size_t count) const {
    return at <= bytes_.size() && count <= bytes_.size() - at;
  }
  uint8_t U8(size_t at) const { return static_cast<uint8_t>(Number(at, 1)); }
  uint16_t U16(size_t at) const { return static_cast<uint16_t>(Number(at, 2)); }
  uint32_t U32(size_t at) const { return Number(at, 4); }
  int32_t S32(size_t at) const { return static_cast<int32_t>(U32(at)); }

 private:
  uint32_t Number(size_t at, size_t count) const {
    if (!Holds(at, count)) return 0;
    uint32_t value = 0;
    for (size_t i = 0; i < count; ++i) {
      value = value << 8 | bytes_[at + (order_ == ByteOrder::kLittle ? count - 1 - i : i)];
    }
    return value;
  }

  Bytes bytes_;
  ByteOrder order_;
};

/// Appends `count` bytes of `value`, the lowest first.
inline void AppendLittle(std::vector<uint8_t>& bytes, uint32_t value, int count) {
  for (int i = 0; i < count; ++i) bytes.push_back(static_cast<uint8_t>(value >> (8 * i)));
}

}  // namespace qel::pictures

#endif  // QEL_PICTURES_BYTE_READER_H_
