#include "cli/arguments.h"

#include <charconv>
#include <cmath>
#include <iomanip>
#include <limits>
#include <sstream>

#include "operations/errors.h"
#include "operations/nearest_name.h"

namespace qel::cli {
namespace {

/// "brightness: whole number from -255 to 255, default 0".
std::string Expectation(const Parameter& parameter) {
  std::ostringstream text;
  text << parameter.name << " takes " << DescribeValues(parameter);
  return text.str();
}

bool ParseNumber(std::string_view text, double& number) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  return error == std::errc() && rest == end && std::isfinite(number);
}

bool ParseColour(std::string_view text, double& number) {
  if (text.starts_with("#")) text.remove_prefix(1);
  uint32_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, value, 16);
  number = value;
  return error == std::errc() && rest == end && text.size() == 6;
}

bool ParseFlag(std::string_view text, double& number) {
  for (const std::string_view yes : {"yes", "true", "on", "1"}) {
    if (text == yes) return number = 1, true;
  }
  for (const std::string_view no : {"no", "false", "off", "0"}) {
    if (text == no) return number = 0, true;
  }
  return false;
}

bool ParseChoice(const Parameter& parameter, std::string_view text, double& number) {
  double typed = 0;
  const bool is_number = ParseNumber(text, typed);
  for (const Choice& choice : parameter.choices) {
    if (text == choice.label || (is_number && typed == choice.value)) {
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
      return ParseNumber(text, number) && number == std::floor(number) &&
             number >= parameter.minimum && number <= parameter.maximum;
    case Kind::kNumber:
      return ParseNumber(text, number) && number >= parameter.minimum &&
             number <= parameter.maximum;
    case Kind::kExtent:
      return ParseExtent(parameter, text, number);
    case Kind::kFlag:
      return ParseFlag(text, number);
    case Kind::kColour:
      return ParseColour(text, number);
    case Kind::kChoice:
      return ParseChoice(parameter, text, number);
    case Kind::kText:
    case Kind::kPicture:
      return !text.empty();
  }
  return false;
}

const Parameter* FindParameter(const Operation& operation, std::string_view name) {
  for (const Parameter& parameter : operation.parameters) {
    if (parameter.name == name) return &parameter;
  }
  return nullptr;
}

std::vector<std::string_view> ChoiceLabels(const Parameter& parameter) {
  std::vector<std::string_view> labels;
  for (const Choice& choice : parameter.choices) labels.push_back(choice.label);
  return labels;
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
      break;
    case Kind::kExtent:
      text << "a number of pixels, or a percentage such as 50%";
      break;
    case Kind::kFlag:
      text << "yes or no";
      break;
    case Kind::kColour:
      text << "a colour as #RRGGBB";
      break;
    case Kind::kChoice:
      text << "one of";
      for (const Choice& choice : parameter.choices) {
        text << (&choice == &parameter.choices.front() ? " " : ", ") << choice.label;
      }
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

Arguments::Arguments(const Operation& operation, const std::map<std::string, std::string>& given) {
  const std::string step(operation.name);
  for (const auto& [name, text] : given) {
    const Parameter* const parameter = FindParameter(operation, name);
    if (parameter == nullptr) {
      throw Failure(kUsage, step + ": there is no argument " + name + "; " +
                                ParameterNames(operation) +
                                DidYouMean(name, NamesOf(operation.parameters), ""));
    }
    Value value{text};
    if (!ParseValue(*parameter, text, value.number)) {
      throw Failure(kUsage, step + ": " + name + "=" + text +
                                " does not fit: " + Expectation(*parameter) +
                                DidYouMean(text, ChoiceLabels(*parameter), ""));
    }
    values_[name] = value;
  }
  for (const Parameter& parameter : operation.parameters) {
    if (Has(parameter.name)) continue;
    if (parameter.standard.empty()) {
      if (parameter.optional) continue;
      throw Failure(kUsage, step + ": " + std::string(parameter.name) +
                                "= is missing: " + Expectation(parameter));
    }
    Value value{std::string(parameter.standard)};
    ParseValue(parameter, value.text, value.number);
    values_[std::string(parameter.name)] = value;
  }
}

const Arguments::Value* Arguments::Find(std::string_view name) const {
  const auto found = values_.find(name);
  return found == values_.end() ? nullptr : &found->second;
}

const Arguments::Value& Arguments::Get(std::string_view name) const {
  const Value* const value = Find(name);
  if (value == nullptr) throw std::logic_error("no parameter " + std::string(name));
  return *value;
}

double Arguments::Number(std::string_view name) const { return Get(name).number; }

double Arguments::Pixels(std::string_view name, int whole) const {
  const Value& value = Get(name);
  return value.text.ends_with('%') ? whole * value.number / 100 : value.number;
}

const std::string& Arguments::Text(std::string_view name) const { return Get(name).text; }

}  // namespace qel::cli
