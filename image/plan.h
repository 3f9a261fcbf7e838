#ifndef QEL_IMAGE_PLAN_H_
#define QEL_IMAGE_PLAN_H_

#include <cstddef>

namespace qel {

// Operations that can be carried out by several methods choose once and execute once. For an
// operation X there are, in x_plan.h beside it:
//
//   enum class XMethod       its methods, in the order in which they are preferred;
//   kXMethods[]              what each is called and what it costs, a `MethodText` for each;
//   struct XPlan             `method` and what that one needs, made from the input alone;
//   PlanXBy(method, input)   the plan with a method, if that gives the right pixels for an input;
//   PlanX(input)             the plan with the first method that does and pays;
//   RunX(plan, ...)          carries it out. Nothing else asks which method it is.
//
// Tests run every method that can and compare; documents and figures take names and costs from
// here, so that no prose goes stale.

/// A method in words.
struct MethodText {
  const char* name;  ///< short, for figures: "sliding-histogram"
  const char* cost;  ///< when it is taken and what a pixel costs, a clause of Markdown
};

/// What `methods` says about one of them.
template <typename Method, size_t n>
constexpr const MethodText& TextOf(const MethodText (&methods)[n], Method method) {
  return methods[static_cast<size_t>(method)];
}

}  // namespace qel

#endif  // QEL_IMAGE_PLAN_H_
