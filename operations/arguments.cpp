#include "operations/arguments.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>
#include <stdexcept>

#include "operations/errors.h"
#include "operations/text/nearest_name.h"
#include "operations/text/numbers.h"
#include "operations/text/words.h"

namespace qel::operations {
namespace {

/// "brightness takes a whole number from -255 to 255".
std::string Expectation(const Parameter& parameter) {
  const bool open_ended = parameter.minimum <= std::numeric_limits<int>::min() ||
                          parameter.maximum >= std::numeric_limits<int>::max();
  std::string limit;
  if (open_ended && parameter.kind == Kind::kInt) limit = ", as far as 32 bits hold it";
  if (open_ended && parameter.kind == Kind::kNumber) limit = ", as far as 2147483647";
  return std::string(parameter.name) + " takes " + DescribeValues(parameter) + limit;
}

bool ParseNumber(std::string_view text, double& number) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  return ParseReal(text, number) && std::isfinite(number);
}

bool ParseColor(std::string_view text, double& number) {
  if (text.starts_with("#")) text.remove_prefix(1);
  uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value, 16);
  number = value;
  return error == std::errc() && rest == end && text.size() == 6;
}

/// Colours by name, as 0xRRGGBBAA.
struct NamedPaint {
  std::string_view name;
  uint32_t value;
};
constexpr NamedPaint kNamedPaints[] = {
    {"black", 0x000000FF},  {"white", 0xFFFFFFFF}, {"grey", 0x808080FF},    {"gray", 0x808080FF},
    {"red", 0xFF0000FF},    {"green", 0x008000FF}, {"blue", 0x0000FFFF},    {"yellow", 0xFFFF00FF},
    {"orange", 0xFFA500FF}, {"cyan", 0x00FFFFFF},  {"magenta", 0xFF00FFFF}, {"brown", 0xA52A2AFF},
    {"navy", 0x000080FF},   {"transparent", 0}};

/// Gives 0xAARRGGBB.
bool ParsePaint(std::string_view text, double& number) {
  for (const NamedPaint& paint : kNamedPaints) {
    if (text != paint.name) continue;
    number = static_cast<double>(paint.value >> 8 | paint.value << 24);
    return true;
  }
  if (text.starts_with("#")) text.remove_prefix(1);
  double alpha = 255;
  if (text.size() == 8) {
    // As a colour whose last byte is the alpha.
    if (!ParseColor("0000" + std::string(text.substr(6)), alpha)) return false;
    text.remove_suffix(2);
  }
  if (!ParseColor(text, number)) return false;
  number += alpha * 0x1000000;
  return true;
}

bool ParseFlag(std::string_view text, double& number) {
  constexpr std::string_view kYes[] = {"yes", "true", "on", "1"};
  constexpr std::string_view kNo[] = {"no", "false", "off", "0"};
  const bool is_yes = std::ranges::find(kYes, text) != std::end(kYes);
  if (!is_yes && std::ranges::find(kNo, text) == std::end(kNo)) return false;
  number = is_yes ? 1 : 0;
  return true;
}

/// A word in place of a number.
bool ParseLabel(const Parameter& parameter, std::string_view text, double& number) {
  const auto found = std::ranges::find(parameter.choices, text, &Choice::label);
  if (found == parameter.choices.end()) return false;
  number = found->value;
  return true;
}

bool ParseChoice(const Parameter& parameter, std::string_view text, double& number) {
  double typed = 0;
  const bool is_number = ParseNumber(text, typed);
  const std::string label = BritishSpelling(text);
  for (const Choice& choice : parameter.choices) {
    if (label == choice.label || (is_number && typed == choice.value)) {
      number = choice.value;
      return true;
    }
  }
  return false;
}

bool ParseExtent(const Parameter& parameter, std::string_view text, double& number) {
  const bool percent = text.ends_with('%');
  if (percent) text.remove_suffix(1);
  if (!ParseNumber(text, number)) return false;
  if (percent) return number > 0 && number <= parameter.maximum;
  return number == std::floor(number) && number >= parameter.minimum && number <= parameter.maximum;
}

bool ParseValue(const Parameter& parameter, std::string_view text, double& number) {
  switch (parameter.kind) {
    case Kind::kInt:
      if (ParseLabel(parameter, text, number)) return true;
      return ParseNumber(text, number) && number == std::floor(number) &&
             number >= parameter.minimum && number <= parameter.maximum;
    case Kind::kNumber:
      return ParseNumber(text, number) && number >= parameter.minimum &&
             number <= parameter.maximum;
    case Kind::kExtent:
      return ParseExtent(parameter, text, number);
    case Kind::kFlag:
      return ParseFlag(text, number);
    case Kind::kColor:
      return ParseColor(text, number);
    case Kind::kPaint:
      return ParsePaint(text, number);
    case Kind::kChoice:
      return ParseChoice(parameter, text, number);
    case Kind::kNumbers:
    case Kind::kPoint:
    case Kind::kText:
    case Kind::kPicture:
      return !text.empty();
  }
  return false;
}

std::vector<std::string_view> ChoiceLabels(const Parameter& parameter) {
  std::vector<std::string_view> labels;
  for (const Choice& choice : parameter.choices) labels.push_back(choice.label);
  return labels;
}

/// True when a value that came as a number is one that the parameter takes.
bool Fits(const Parameter& parameter, double number) {
  switch (parameter.kind) {
    case Kind::kInt:
    case Kind::kExtent:
      if (std::ranges::find(parameter.choices, number, &Choice::value) != parameter.choices.end()) {
        return true;
      }
      return number == std::floor(number) && number >= parameter.minimum &&
             number <= parameter.maximum;
    case Kind::kNumber:
      return number >= parameter.minimum && number <= parameter.maximum;
    case Kind::kFlag:
      return number == 0 || number == 1;
    case Kind::kColor:
      return number == std::floor(number) && number >= 0 && number <= 0xFFFFFF;
    case Kind::kPaint:
      return number == std::floor(number) && number >= 0 && number <= 0xFFFFFFFF;
    case Kind::kChoice:
      return std::ranges::find(parameter.choices, number, &Choice::value) !=
             parameter.choices.end();
    case Kind::kNumbers:
    case Kind::kPoint:
    case Kind::kText:
    case Kind::kPicture:
      break;
  }
  return false;
}

std::string ParameterNames(const Operation& operation) {
  if (operation.parameters.empty()) return "it takes none";
  std::string names = "it takes";
  for (const Parameter& parameter : operation.parameters) {
    names += &parameter == &operation.parameters.front() ? " " : ", ";
    names += parameter.name;
  }
  return names;
}

/// " from 0 to 255", " of at least 1", " of any size".
std::string DescribeRange(const Parameter& parameter) {
  const bool has_minimum = parameter.minimum > std::numeric_limits<int>::min();
  const bool has_maximum = parameter.maximum < std::numeric_limits<int>::max();
  std::ostringstream text;
  text << std::setprecision(12);
  if (has_minimum && has_maximum) {
    text << " from " << parameter.minimum << " to " << parameter.maximum;
  } else if (has_minimum) {
    text << " of at least " << parameter.minimum;
  } else if (has_maximum) {
    text << " of at most " << parameter.maximum;
  } else {
    text << " of any size";
  }
  return text.str();
}

}  // namespace

std::string DescribeValues(const Parameter& parameter) {
  std::ostringstream text;
  switch (parameter.kind) {
    case Kind::kInt:
    case Kind::kNumber:
      text << (parameter.kind == Kind::kInt ? "a whole number" : "a number")
           << DescribeRange(parameter);
      if (!parameter.unit.empty()) text << " (" << parameter.unit << ")";
      for (const Choice& choice : parameter.choices) text << ", or " << choice.label;
      break;
    case Kind::kExtent:
      text << "a number of pixels" << DescribeRange(parameter) << ", or a percentage such as 50%";
      break;
    case Kind::kFlag:
      text << "yes or no";
      break;
    case Kind::kColor:
      text << "a colour as #RRGGBB";
      break;
    case Kind::kPaint:
      text << "a colour as #RRGGBB or #RRGGBBAA, or a name such as white or transparent";
      break;
    case Kind::kChoice:
      text << "one of";
      for (const Choice& choice : parameter.choices) {
        text << (&choice == &parameter.choices.front() ? " " : ", ") << choice.label;
      }
      break;
    case Kind::kNumbers:
      text << "numbers between blanks or commas, or @ and the path of a text file with them";
      break;
    case Kind::kPoint:
      text << "a point as x,y in pixels, or with % of the picture";
      break;
    case Kind::kText:
      text << "text";
      break;
    case Kind::kPicture:
      text << "the path of a picture";
      break;
  }
  return text.str();
}

NumberRows ParseNumbers(std::string_view text) {
  constexpr std::string_view kBetweenRows = ";\n";
  constexpr std::string_view kSeparators = " ,;\t\r\n";
  NumberRows rows;
  bool begins = true;
  for (size_t at = 0; at < text.size();) {
    if (kSeparators.find(text[at]) != kSeparators.npos) {
      begins |= kBetweenRows.find(text[at++]) != kBetweenRows.npos;
      continue;
    }
    const size_t end = std::min(text.find_first_of(kSeparators, at), text.size());
    const std::string_view item = text.substr(at, end - at);
    double number = 0;
    if (!ParseNumber(item, number)) throw std::invalid_argument(std::string(item));
    if (begins) rows.lengths.push_back(0);
    begins = false;
    rows.numbers.push_back(number);
    ++rows.lengths.back();
    at = end;
  }
  return rows;
}

Arguments::Arguments(const Operation& operation)
    : operation_(&operation), values_(operation.parameters.size()) {}

Arguments::Value& Arguments::Slot(std::string_view name) {
  const Parameter* const parameter = operation_->Find(name);
  const std::string step(operation_->name);
  if (parameter == nullptr) {
    if (const std::string_view meant = MeantStep(step, name); !meant.empty()) {
      throw StepError(
          step + ": there is no argument " + std::string(name) + "; write " + std::string(meant),
          step, name);
    }
    throw StepError(step + ": there is no argument " + std::string(name) + "; " +
                        ParameterNames(*operation_) +
                        DidYouMean(name, NamesOf(operation_->parameters), ""),
                    step, name);
  }
  Value& value = values_[static_cast<size_t>(parameter - operation_->parameters.data())];
  if (value.given) {
    throw StepError(step + ": " + std::string(name) + "= is given twice", step, name);
  }
  return value;
}

bool Arguments::Value::Take(const Parameter& parameter, std::string from) {
  if (!ParseValue(parameter, from, number)) return false;
  given = true;
  text = std::move(from);
  if (parameter.kind != Kind::kNumbers) return true;
  try {
    rows = ParseNumbers(text);
  } catch (const std::invalid_argument& error) {
    no_number = error.what();
  }
  return true;
}

void Arguments::Set(std::string_view name, std::string text) {
  Value& value = Slot(name);
  const Parameter& parameter = *operation_->Find(name);
  if (!value.Take(parameter, text)) {
    throw StepError(std::string(operation_->name) + ": " + std::string(name) + "=" + text +
                        (text.empty() ? " is empty: " : " does not fit: ") +
                        Expectation(parameter) + DidYouMean(text, ChoiceLabels(parameter), ""),
                    operation_->name, name);
  }
}

void Arguments::Set(std::string_view name, double number) {
  Value& value = Slot(name);
  const Parameter& parameter = *operation_->Find(name);
  if (!Fits(parameter, number)) {
    std::ostringstream text;
    text << operation_->name << ": " << name << "=" << std::setprecision(17) << number
         << " does not fit: " << Expectation(parameter);
    throw StepError(text.str(), operation_->name, name);
  }
  value.given = true;
  value.number = number;
}

void Arguments::Complete() {
  for (size_t i = 0; i < values_.size(); ++i) {
    Value& value = values_[i];
    const Parameter& parameter = operation_->parameters[i];
    if (value.given || (parameter.optional && parameter.standard.empty())) continue;
    if (parameter.required()) {
      throw StepError(std::string(operation_->name) + ": " + std::string(parameter.name) +
                          "= is missing: " + Expectation(parameter),
                      operation_->name, parameter.name);
    }
    value.Take(parameter, std::string(parameter.standard));
  }
  if (operation_->check != nullptr) operation_->check({operation_->name, *this});
}

const Arguments::Value* Arguments::Find(std::string_view name) const {
  const Parameter* const parameter = operation_->Find(name);
  if (parameter == nullptr) return nullptr;
  const Value& value = values_[static_cast<size_t>(parameter - operation_->parameters.data())];
  return value.given ? &value : nullptr;
}

const Arguments::Value& Arguments::Get(std::string_view name) const {
  const Value* const value = Find(name);
  if (value == nullptr) throw std::logic_error("no parameter " + std::string(name));
  return *value;
}

double Arguments::Pixels(std::string_view name, int whole) const {
  const Value& value = Get(name);
  return value.text.ends_with('%') ? whole * value.number / 100 : value.number;
}

const NumberRows& Arguments::RowsOf(std::string_view name) const {
  const Value& value = Get(name);
  if (value.no_number.empty()) return value.rows;
  throw StepError(std::string(operation_->name) + ": " + std::string(name) + ": \"" +
                      value.no_number + "\" is no number",
                  operation_->name, name);
}

}  // namespace qel::operations
