#include "operations/operation.h"

#include <new>

#include "operations/errors.h"

namespace qel::operations {

SmartPtr<IQELImageDIB> Call::NewImage() const {
  SmartPtr<IQELImageDIB> made;
  const result_t code =
      host.CreateComponent(RefString(kImageComponentName), &IID_IQELImageDIB, made.PutVoid());
  if (Failed(code) || !made) throw std::bad_alloc();
  return made;
}

bool Operation::WorksOn(int bits) const {
  for (std::string_view rest = depths; !rest.empty();) {
    const size_t end = std::min(rest.find(','), rest.size());
    int depth = 0;
    for (const char c : rest.substr(0, end)) depth = c == ' ' ? depth : 10 * depth + (c - '0');
    if (depth == bits) return true;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return false;
}

Shape ShapeOf(IQEL& image) {
  Shape shape;
  int unread = 0;
  image.GetSize(&shape.width, &shape.height, &unread);
  image.GetFormat(&shape.bits, &shape.model, &unread);
  return shape;
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
