#ifndef QEL_PICTURES_JPEG_SESSION_H_
#define QEL_PICTURES_JPEG_SESSION_H_

#include <csetjmp>
#include <cstdio>  // before the library's header, which uses its types

// clang-format off
#include <jpeglib.h>
#include <jerror.h>
// clang-format on

#include <string_view>

namespace qel::pictures {

inline constexpr int kExifMarker = JPEG_APP0 + 1;
inline constexpr int kProfileMarker = JPEG_APP0 + 2;
inline constexpr int kResourceMarker = JPEG_APP0 + 13;
inline constexpr size_t kMostInSegment = 65533;

// What the contents of segments begin with; each ends with a 0.
using std::string_view_literals::operator""sv;
inline constexpr std::string_view kExifPrefix = "Exif\0\0"sv;
inline constexpr std::string_view kXmpPrefix = "http://ns.adobe.com/xap/1.0/\0"sv;
inline constexpr std::string_view kMoreXmpPrefix = "http://ns.adobe.com/xmp/extension/\0"sv;
inline constexpr std::string_view kResourcePrefix = "Photoshop 3.0\0"sv;

/// The library leaves by longjmp when something is wrong: every call that can fail runs inside
/// `Run`, in functions that hold nothing to be destroyed.
struct JpegErrors {
  JpegErrors() {
    jpeg_std_error(&manager);
    manager.error_exit = &OnError;
    manager.emit_message = &OnMessage;
  }

  /// Runs `step`; false when the library has left it.
  template <typename Step>
  [[gnu::noinline]] bool Run(const Step& step) {
    if (setjmp(escape) != 0) return false;
    step();
    return true;
  }

  [[noreturn]] static void OnError(j_common_ptr jpeg) {
    auto* const errors = static_cast<JpegErrors*>(jpeg->client_data);
    errors->code = jpeg->err->msg_code;
    jpeg->err->format_message(jpeg, errors->message);
    std::longjmp(errors->escape, 1);
  }

  /// Warnings say that the library makes up what is damaged. Where that is pixels they are errors
  /// here; of others the first is kept.
  static void OnMessage(j_common_ptr jpeg, int level) {
    if (level >= 0) return;
    auto* const errors = static_cast<JpegErrors*>(jpeg->client_data);
    const bool harmless = errors->is_harmless != nullptr && errors->is_harmless(jpeg);
    if (!harmless) OnError(jpeg);
    if (errors->warning[0] == '\0') jpeg->err->format_message(jpeg, errors->warning);
  }

  jpeg_error_mgr manager;
  bool (*is_harmless)(j_common_ptr jpeg) = nullptr;
  std::jmp_buf escape;
  int code = 0;
  char message[JMSG_LENGTH_MAX] = "";
  char warning[JMSG_LENGTH_MAX] = "";
};

}  // namespace qel::pictures

#endif  // QEL_PICTURES_JPEG_SESSION_H_
