#ifndef QEL_OPERATIONS_TEXT_UTF8_H_
#define QEL_OPERATIONS_TEXT_UTF8_H_

#include <string>
#include <string_view>

namespace qel::operations {

/// Bytes of the UTF-8 character at the start of `text`, 0 when there is none.
size_t CharacterLength(std::string_view text);

/// The text for people to read: characters that control a terminal or turn the direction of
/// writing, and bytes that are no UTF-8, stand as "\n", "\x1b" or "\u202e".
std::string Printable(std::string_view text);

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_TEXT_UTF8_H_
