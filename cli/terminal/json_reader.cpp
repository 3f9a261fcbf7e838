#include "cli/terminal/json_reader.h"

#include <fmt/core.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <stdexcept>

namespace qel::cli {
namespace {

constexpr int kDeepest = 64;

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text), rest_(text) {}

  std::map<std::string, std::string> Object() {
    std::map<std::string, std::string> texts;
    Members([&](std::string name) {
      if (Next() == '"') {
        texts[std::move(name)] = Text();
      } else {
        Value(1);
      }
    });
    Next();
    if (!rest_.empty()) Fail("there is more than one object");
    return texts;
  }

 private:
  [[noreturn]] void Fail(const std::string& what) const {
    throw std::invalid_argument(
        fmt::format("{}, after {} bytes", what, text_.size() - rest_.size()));
  }

  /// The next character that is no blank; 0 at the end.
  char Next() {
    rest_.remove_prefix(std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size()));
    return rest_.empty() ? '\0' : rest_.front();
  }

  bool Take(char c) {
    if (Next() != c) return false;
    rest_.remove_prefix(1);
    return true;
  }

  void Expect(char c) {
    if (!Take(c)) Fail(std::string("there is no ") + c);
  }

  template <typename Element>
  void List(char open, char close, const Element& element) {
    Expect(open);
    if (Take(close)) return;
    do {
      element();
    } while (Take(','));
    Expect(close);
  }

  template <typename Member>
  void Members(const Member& member) {
    List('{', '}', [&] {
      if (Next() != '"') Fail("there is no name of a member");
      std::string name = Text();
      Expect(':');
      member(std::move(name));
    });
  }

  /// Reads past a value that is `depth` deep.
  void Value(int depth) {
    if (depth > kDeepest) Fail("it is nested too deep");
    switch (Next()) {
      case '"':
        Text();
        break;
      case '{':
        Members([&](const std::string&) { Value(depth + 1); });
        break;
      case '[':
        List('[', ']', [&] { Value(depth + 1); });
        break;
      default:
        Word();
    }
  }

  /// true, false, null, or a number.
  void Word() {
    const std::string_view word = rest_.substr(0, rest_.find_first_of(" \t\r\n,]}"));
    double number = 0;
    const char* const end = word.data() + word.size();
    const auto [stop, error] = std::from_chars(word.data(), end, number);
    const bool is_number = error == std::errc() && stop == end && word.back() <= '9';
    if (!is_number && word != "true" && word != "false" && word != "null") {
      Fail("there is no value");
    }
    rest_.remove_prefix(word.size());
  }

  std::string Text() {
    Expect('"');
    std::string text;
    while (true) {
      const size_t plain = std::min(rest_.find_first_of("\"\\"), rest_.size());
      text += rest_.substr(0, plain);
      rest_.remove_prefix(plain);
      if (rest_.size() < 2 && rest_ != "\"") Fail("a text is not closed");
      const char c = rest_.front();
      rest_.remove_prefix(1);
      if (c == '"') return text;
      AppendEscaped(text);
    }
  }

  void AppendEscaped(std::string& text) {
    constexpr std::string_view kLetters = "\"\\/bfnrt", kMeanings = "\"\\/\b\f\n\r\t";
    const char letter = rest_.front();
    rest_.remove_prefix(1);
    if (letter == 'u') {
      AppendCharacter(text);
    } else if (const size_t at = kLetters.find(letter); at != kLetters.npos) {
      text += kMeanings[at];
    } else {
      Fail("a backslash stands before nothing that it could mean");
    }
  }

  uint32_t HexNumber() {
    uint32_t number = 0;
    const char* const begin = rest_.data();
    const char* const end = begin + std::min<size_t>(4, rest_.size());
    const auto [stop, error] = std::from_chars(begin, end, number, 16);
    if (error != std::errc() || stop != begin + 4) Fail("\\u has no four digits after it");
    rest_.remove_prefix(4);
    return number;
  }

  void AppendCharacter(std::string& text) {
    uint32_t number = HexNumber();
    if (number >= 0xDC80 && number <= 0xDCFF) {
      text += static_cast<char>(number & 0xFF);
      return;
    }
    if (number >= 0xD800 && number < 0xDC00 && rest_.starts_with("\\u")) {
      rest_.remove_prefix(2);
      const uint32_t low = HexNumber();
      if (low < 0xDC00 || low > 0xDFFF) Fail("half a character stands alone");
      number = 0x10000 + ((number & 0x3FF) << 10 | (low & 0x3FF));
    }
    if (number >= 0xD800 && number < 0xE000) Fail("half a character stands alone");
    const int more = number < 0x80 ? 0 : number < 0x800 ? 1 : number < 0x10000 ? 2 : 3;
    constexpr uint32_t kFirst[] = {0, 0xC0, 0xE0, 0xF0};
    text += static_cast<char>(kFirst[more] | number >> 6 * more);
    for (int i = more - 1; i >= 0; --i) text += static_cast<char>(0x80 | (number >> 6 * i & 0x3F));
  }

  const std::string_view text_;
  std::string_view rest_;
};

}  // namespace

std::map<std::string, std::string> ReadJsonTexts(std::string_view text) {
  return Reader(text).Object();
}

}  // namespace qel::cli
