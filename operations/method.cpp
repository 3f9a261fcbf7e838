#include "operations/method.h"

#include <algorithm>
#include <array>
#include <stdexcept>

namespace qel::operations {
const std::vector<Method>& MethodTable() {
  static const std::vector<Method> table = {
#define QEL_DESCRIBE(interface, name) MethodOf<&interface::name>::Describe(#name),
      QEL_METHODS(QEL_DESCRIBE)
#undef QEL_DESCRIBE
  };
  return table;
}

const Method& MethodNamed(std::string_view name) {
  const auto found = std::ranges::find(MethodTable(), name, &Method::name);
  if (found == MethodTable().end()) throw std::out_of_range("no method " + std::string(name));
  return *found;
}

int Method::Count(Parameter kind) const {
  return static_cast<int>(std::count(parameters.begin(), parameters.end(), kind));
}

MethodCall::MethodCall(std::string_view name, MethodArguments given_arguments,
                       std::string given_images)
    : method(&MethodNamed(name)),
      arguments(std::move(given_arguments)),
      images(std::move(given_images)) {
  if (!images.empty()) return;
  const auto count = static_cast<size_t>(method->Count(Method::Parameter::kImage));
  // Pastes name the picture that they change last.
  images = method->name.ends_with("Paste") ? "10" : std::string("0123", count);
}

int MethodCall::ImageCount() const {
  int count = 0;
  for (const char c : images) count = std::max(count, c == '-' ? 0 : c - '0' + 1);
  return count;
}

result_t MethodCall::Run(const Components& components, std::span<IQELImage* const> given,
                         IQEL** result) const {
  // No memory is asked for: calls on small pictures are timed, and memory is refused, through this.
  std::array<IQEL*, 4> picked{};
  for (size_t i = 0; i < images.size(); ++i) {
    if (images[i] != '-') picked[i] = given[static_cast<size_t>(images[i] - '0')];
  }
  return method->call(components, arguments, picked, result);
}

}  // namespace qel::operations
