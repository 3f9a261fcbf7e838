#include "docs/generator/page.h"

namespace qel::docs {

std::string CostOf(std::span<const MethodText> methods, const MethodText& taken) {
  std::string text = "by the first of these methods that can and pays; the example takes `" +
                     std::string(taken.name) + "`.";
  for (const MethodText& method : methods) {
    text += "\n  - `" + std::string(method.name) + "`: " + method.cost;
  }
  return text;
}

}  // namespace qel::docs
