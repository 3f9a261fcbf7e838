#ifndef QEL_CLI_TERMINAL_JSON_READER_H_
#define QEL_CLI_TERMINAL_JSON_READER_H_

#include <map>
#include <string>
#include <string_view>

namespace qel::cli {

/// Reads one JSON object and returns those of its members that are texts. The others are read past.
/// Lone surrogates U+DC80 to U+DCFF become the bytes that they stand for (see `JsonObject::Text`),
/// which common libraries refuse.
/// Throws `std::invalid_argument` that says what is wrong and after how many bytes.
std::map<std::string, std::string> ReadJsonTexts(std::string_view text);

}  // namespace qel::cli

#endif  // QEL_CLI_TERMINAL_JSON_READER_H_
