#ifndef QEL_TYPES_H_
#define QEL_TYPES_H_

#include <cstdint>

namespace qel {

/// Result of an interface operation. Negative values are failures.
using result_t = int32_t;

/// The operation did what it promises.
inline constexpr result_t kOk = 0;
/// There was nothing to do; the output is the input itself.
inline constexpr result_t kNothingToDo = 1;
/// General failure: a null image, table, kernel or transform that is needed, an unsupported format,
/// an unknown name, no new image from the host, no memory.
inline constexpr result_t kFail = static_cast<result_t>(0x80004005u);
/// The object does not answer the interface asked for.
inline constexpr result_t kNoInterface = static_cast<result_t>(0x80004002u);
/// A required output pointer is null; nothing was made or changed.
inline constexpr result_t kNullOutput = static_cast<result_t>(0x80004003u);
/// An argument is outside what the operation accepts.
inline constexpr result_t kInvalidArgument = static_cast<result_t>(0x80070057u);
/// The source image is not of the colour model "MONO".
inline constexpr result_t kNotMono = static_cast<result_t>(0xF0040031u);

constexpr bool Succeeded(result_t result) { return result >= 0; }
constexpr bool Failed(result_t result) { return result < 0; }

/// Counted wide string, passed by value in two registers: length first, then the text.
/// Only the low 32 bits of `length` count; the text need not be terminated. The receiver of such
/// a value does not own the text and may read it during the call only.
struct tagREFString {
  uint64_t length;
  const wchar_t* text;
};
static_assert(sizeof(void*) < 8 || sizeof(tagREFString) == 16, "travels in two registers");
static_assert(sizeof(wchar_t) == 4, "characters are 32-bit code units");

/// One colour in memory order. `reserved` is the alpha of 32-bit images.
struct RGBQUAD {
  uint8_t blue;
  uint8_t green;
  uint8_t red;
  uint8_t reserved;
};
static_assert(sizeof(RGBQUAD) == 4, "four bytes, no padding");

/// Packs four characters as a colour-model code, the first in the lowest byte.
constexpr uint32_t ModelCode(const char (&text)[5]) {
  uint32_t code = 0;
  for (int i = 0; i < 4; ++i) code |= uint32_t{static_cast<unsigned char>(text[i])} << (8 * i);
  return code;
}

/// Grey images: 8-bit levels, or one signed 32-bit integer per pixel.
inline constexpr uint32_t kModelMono = ModelCode("MONO");
/// 24-bit images.
inline constexpr uint32_t kModelBgr = ModelCode("BGR ");
/// 32-bit images whose fourth byte is alpha.
inline constexpr uint32_t kModelArgb = ModelCode("ARGB");
/// 32-bit images whose fourth byte is alpha, other channel order.
inline constexpr uint32_t kModelAbgr = ModelCode("ABGR");

}  // namespace qel

#endif  // QEL_TYPES_H_
