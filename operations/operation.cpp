#include "operations/operation.h"

#include <charconv>
#include <new>

#include "operations/arguments.h"
#include "operations/errors.h"

namespace qel::operations {

std::string_view NameOf(ChannelOrder order) {
  switch (order) {
    case ChannelOrder::kAlike:
      return "alike";
    case ChannelOrder::kAlikeWithoutAlpha:
      return "alike without alpha";
    case ChannelOrder::kByArguments:
      return "by arguments";
    case ChannelOrder::kBlueGreenRed:
      return "blue green red";
  }
  return "";
}

SmartPtr<IQELImageDIB> Call::NewImage() const {
  SmartPtr<IQELImageDIB> made;
  const result_t code =
      host.CreateComponent(RefString(kImageComponentName), &IID_IQELImageDIB, made.PutVoid());
  if (Failed(code) || !made) throw std::bad_alloc();
  return made;
}

namespace {

/// Calls `use` with each number of a list such as "8, 24, 32".
template <typename Use>
void ForEachNumber(std::string_view list, Use use) {
  const char* const end = list.data() + list.size();
  for (const char* at = list.data(); at < end; ++at) {
    int number = 0;
    const auto [next, error] = std::from_chars(at, end, number);
    if (error != std::errc()) continue;  // between two of them
    use(number);
    at = next;
  }
}

}  // namespace

std::vector<int> Operation::Depths() const {
  std::vector<int> listed;
  ForEachNumber(depths, [&](int depth) { listed.push_back(depth); });
  return listed;
}

bool Operation::WorksOn(int bits) const {
  bool listed = false;
  ForEachNumber(depths, [&](int depth) { listed |= depth == bits; });
  return listed;
}

Shape Operation::ResultShape(const Given& given, const Shape& shape,
                             const ShapeOfPicture& second) const {
  if (result_shape != nullptr) return result_shape(given, shape);
  if (shape_with_second == nullptr || !second) return shape;
  const auto picture = std::ranges::find(parameters, Kind::kPicture, &Parameter::kind);
  return shape_with_second(given, shape, second(given.arguments.Text(picture->name)));
}

MethodArguments Operation::ArgumentsOf(const Arguments& arguments) const {
  MethodArguments taken;
  const auto add = [&](std::string_view argument) {
    taken.numbers.push_back(argument.empty() ? 0 : arguments.Number(argument));
  };
  for (const std::string_view number : numbers) add(number);
  for (const Parameter& parameter : parameters) {
    if (numbers.empty()) add(parameter.name);
  }
  return taken;
}

result_t Operation::Run(Call& step) const {
  if (method == nullptr) return call(step);
  if (prepare != nullptr) prepare(step);
  return method->call(step.components, ArgumentsOf(step.arguments), {&step.image, 1}, step.result);
}

const Parameter* Operation::Positional() const {
  if (!positional.empty()) return Find(positional);
  const auto required = [](const Parameter& parameter) { return parameter.required(); };
  const auto first = std::ranges::find_if(parameters, required);
  const Parameter* const only = parameters.size() == 1 ? &parameters.front()
                                : std::ranges::count_if(parameters, required) == 1 ? &*first
                                                                                   : nullptr;
  if (only == nullptr || only->IsNumber()) return only;
  const bool is_word = only->kind == Kind::kText || only->kind == Kind::kPicture;
  return is_word && only->required() ? only : nullptr;
}

std::string Operation::Caveats() const {
  std::string text(note);
  for (const Surprise& surprise : surprises) {
    text += text.empty() ? "" : " ";
    text += surprise.text;
  }
  return text;
}

std::vector<std::string_view> SurprisesOf(const Operation& operation, const Given& given,
                                          const Shape& shape) {
  std::vector<std::string_view> met;
  for (const Surprise& surprise : operation.surprises) {
    if (surprise.meets(given, shape)) met.push_back(surprise.text);
  }
  return met;
}

void Refuse(const Given& given, const std::string& message, std::string_view argument) {
  throw StepError(std::string(given.name) + ": " + message, given.name, argument);
}

void RefuseDepth(const Given& given, const std::string& message, std::string_view argument) {
  throw DepthError(std::string(given.name) + ": " + message, given.name, argument);
}

}  // namespace qel::operations
