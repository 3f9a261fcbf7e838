#include "cli/terminal/options.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <utility>

#include "cli/operations.h"
#include "cli/terminal/errors.h"

namespace qel::cli {

Options::Options(const std::vector<std::string>& words, const Known& known) {
  bool ended = false;
  for (size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (word == "--" && !ended) {
      ended = true;
      continue;
    }
    // A number is a word, also below zero.
    const bool is_number =
        word.size() > 1 &&
        (std::isdigit(static_cast<unsigned char>(word[1])) != 0 || word[1] == '.');
    const bool parts = (word == "-o" || word == "--in-place") && known.contains(word);
    if (word.size() < 2 || word[0] != '-' || is_number || (ended && !parts)) {
      rest_.push_back(word);
      continue;
    }
    const size_t equals = word.starts_with("--") ? word.find('=') : std::string::npos;
    const std::string name = word.substr(0, equals);
    const auto found = known.find(name);
    if (found == known.end()) {
      std::vector<std::string_view> names;
      std::string all = "; options here are";
      for (const auto& [option, takes] : known) {
        names.push_back(option);
        all += " " + option;
      }
      // A letter alone is the beginning of a name, as other tools shorten it.
      const std::string unshortened = name.size() == 2 ? "-" + name : name;
      throw Failure(kUsage, "there is no option {}{}", name,
                    DidYouMean(unshortened, names, known.empty() ? "; none is" : all));
    }
    rest_before_[name] = rest_.size();
    if (found->second == Takes::kNothing && equals != std::string::npos) {
      throw Failure(kUsage, "{} takes no value", name);
    }
    const bool needs_value = found->second == Takes::kValue || found->second == Takes::kFile;
    if (!needs_value && equals == std::string::npos) {
      values_[name];
      continue;
    }
    if (equals == std::string::npos && i + 1 == words.size()) {
      throw Failure(kUsage, "{} needs a value after it", name);
    }
    std::string value = equals != std::string::npos ? word.substr(equals + 1) : words[++i];
    if (found->second == Takes::kFile && value.empty()) {
      throw Failure(kUsage, "the name after {} is empty; is a variable empty?", name);
    }
    values_[name].push_back(std::move(value));
  }
}

std::string Options::Value(const std::string& name, const std::string& otherwise) const {
  const auto found = values_.find(name);
  return found == values_.end() || found->second.empty() ? otherwise : found->second.back();
}

std::vector<std::string> Options::Values(const std::string& name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? std::vector<std::string>() : found->second;
}

int Options::Number(const std::string& name, int minimum, int maximum, int otherwise) const {
  if (!Has(name)) return otherwise;
  const std::string text = Value(name);
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end || number < minimum || number > maximum) {
    throw Failure(kUsage, "{} takes a whole number from {} to {}, not {}", name, minimum, maximum,
                  text);
  }
  return number;
}

const std::vector<std::string>& Options::Files() const {
  if (std::ranges::find(rest_, "") != rest_.end()) throw Failure(kNoInput, "{}", kNamelessInput);
  return rest_;
}

int64_t Options::Size(const std::string& name, int64_t unit, int64_t otherwise) const {
  if (!Has(name)) return otherwise;
  const std::string text = Value(name);
  int64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  constexpr std::string_view kPowers = "KMGT";
  const size_t power =
      rest + 1 == end ? kPowers.find(static_cast<char>(std::toupper(*rest))) + 1 : 0;
  bool good = error == std::errc() && number >= 1 && (rest == end || power > 0);
  for (size_t i = 0; good && i < power; ++i) {
    good = !__builtin_mul_overflow(number, unit, &number);
  }
  if (!good) throw Failure(kUsage, "{} takes a number such as 500M or 4G, not {}", name, text);
  return number;
}

}  // namespace qel::cli
