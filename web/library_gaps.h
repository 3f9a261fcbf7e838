#ifndef QEL_WEB_LIBRARY_GAPS_H_
#define QEL_WEB_LIBRARY_GAPS_H_

// What the C++ library of Debian 12's emscripten lacks of C++20, as far as it is used. Put before
// every source of that build.

#ifdef __cplusplus
#include <algorithm>
#include <functional>
#include <iterator>
#include <memory>

#if defined(_LIBCPP_VERSION) && _LIBCPP_VERSION < 15000
namespace std {

template <class To, class From>
constexpr To bit_cast(const From& from) noexcept {
  return __builtin_bit_cast(To, from);
}

template <class T>
unique_ptr<T> make_unique_for_overwrite(size_t count) {
  return unique_ptr<T>(new remove_extent_t<T>[count]);
}

namespace ranges {

template <class Range, class Test, class Projection = identity>
auto find_if(Range&& range, Test test, Projection projection = {}) {
  return std::find_if(begin(range), end(range), [&](const auto& item) {
    return std::invoke(test, std::invoke(projection, item));
  });
}
template <class Range, class Value, class Projection = identity>
auto find(Range&& range, const Value& value, Projection projection = {}) {
  return ranges::find_if(
      range, [&](const auto& item) { return item == value; }, projection);
}
template <class Range, class Test>
auto count_if(Range&& range, Test test) {
  return std::count_if(begin(range), end(range), test);
}
template <class Range, class Test, class Projection = identity>
bool any_of(Range&& range, Test test, Projection projection = {}) {
  return ranges::find_if(range, test, projection) != end(range);
}
template <class Range, class Test, class Projection = identity>
bool all_of(Range&& range, Test test, Projection projection = {}) {
  return !ranges::any_of(range, std::not_fn(test), projection);
}
template <class Range, class Test, class Projection = identity>
bool none_of(Range&& range, Test test, Projection projection = {}) {
  return !ranges::any_of(range, test, projection);
}
template <class Range, class Value>
void fill(Range&& range, const Value& value) {
  std::fill(begin(range), end(range), value);
}
template <class Range, class Out, class Function>
void transform(Range&& range, Out out, Function function) {
  std::transform(begin(range), end(range), out, function);
}
template <class Range, class Out>
auto move(Range&& range, Out out) {
  return std::move(begin(range), end(range), out);
}

}  // namespace ranges
}  // namespace std
#endif
#endif

#endif  // QEL_WEB_LIBRARY_GAPS_H_
