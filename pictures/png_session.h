#ifndef QEL_PICTURES_PNG_SESSION_H_
#define QEL_PICTURES_PNG_SESSION_H_

#include <png.h>

#include <csetjmp>
#include <cstring>
#include <string_view>

namespace qel::pictures {

inline constexpr size_t kPngSignatureBytes = 8;

// Texts that writers agree on to hold metadata.
inline constexpr std::string_view kPngXmpName = "XML:com.adobe.xmp";
inline constexpr std::string_view kPngIptcName = "Raw profile type iptc";

/// What the callbacks of libpng need. It leaves by longjmp when something is wrong: every call
/// that can fail runs inside `Run`, in functions that hold nothing to be destroyed.
class PngSession {
 public:
  PngSession() = default;
  PngSession(const PngSession&) = delete;
  PngSession& operator=(const PngSession&) = delete;

  /// Runs `step`; false when libpng has left it, with `message` saying why.
  template <typename Step>
  [[gnu::noinline]] bool Run(const Step& step) {
    if (setjmp(png_jmpbuf(png)) != 0) return false;
    step();
    return true;
  }

  static void OnError(png_structp png, png_const_charp text) {
    auto* const session = static_cast<PngSession*>(png_get_error_ptr(png));
    std::strncpy(session->message, text, sizeof(session->message) - 1);
    png_longjmp(png, 1);
  }
  static void OnWarning(png_structp, png_const_charp) {}

  png_structp png = nullptr;
  png_infop info = nullptr;
  char message[200] = "";
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_PNG_SESSION_H_
