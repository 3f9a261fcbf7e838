#ifndef QEL_TESTS_SUPPORT_PAIRED_CALL_H_
#define QEL_TESTS_SUPPORT_PAIRED_CALL_H_

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <set>
#include <span>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "reference/transform.h"
#include "tests/support/forced_plans.h"
#include "tests/support/operation_calls.h"
#include "tests/support/test_host.h"

namespace qel::test {

/// An operation with several methods: carries the call out by one of them, on views of the source
/// and of a result like it. False, and nothing done, when that method cannot.
struct PairedMethods {
  std::span<const MethodText> names = {};
  std::function<bool(const ForcedPlans&, size_t method, const ImageView& source,
                     const ImageView& dest)>
      run = {};
};

/// One call with the same arguments on both sides: of the module, and of its plain reading, whose
/// `result` counts as made when its bit count is not 0.
struct PairedCall {
  std::function<result_t(const ComponentSet&, std::span<TestImage* const> images, IQEL** result)>
      module;
  std::function<result_t(std::span<Raster* const> images, Raster& result)> plain;
  std::function<std::string()> arguments = [] { return std::string(); };  ///< in words
  PairedMethods methods = {};
};

/// A call with the images that it gets.
struct PairedCase {
  std::vector<Raster> inputs;
  PairedCall call;
  /// For each image of the call, which of `inputs` it is: -1 for null. Empty: one after the other.
  std::vector<int> places;

  /// `all` as the call gets them.
  template <typename Image>
  std::vector<Image*> Images(const std::vector<Image*>& all) const {
    std::vector<Image*> images;
    for (const int place : places) {
      images.push_back(place < 0 ? nullptr : all[static_cast<size_t>(place)]);
    }
    return places.empty() ? all : images;
  }
};

/// What the plain reading makes of a case, beside which any number of modules are put.
class PlainOutcome {
 public:
  explicit PlainOutcome(const PairedCase& paired);

  /// Runs the case on a module. Empty when result code, images, result and references agree; else
  /// what differs.
  std::string Difference(const ComponentSet& components) const;
  /// The same by every method that can, each added to `run`. Nothing is done for images that store
  /// no pixels.
  std::string DifferenceByMethods(const ForcedPlans& plans, std::set<const MethodText*>& run) const;

 private:
  std::string Compared(const ComponentSet& components) const;

  const PairedCase& paired_;
  std::vector<Raster> images_;
  Raster result_;
  result_t code_;
};

/// A caller's transform on both sides. It has no interfaces, spoils z and fails, all of which its
/// callers ignore.
class PointMap final : public ITransform {
 public:
  explicit PointMap(oracle::PointTransform map) : map_(std::move(map)) {}
  result_t QueryInterface(const IID&, void** object) override {
    *object = nullptr;
    return kNoInterface;
  }
  uint32_t AddRef() override { return ++references; }
  uint32_t Release() override { return --references; }
  result_t TransformPoint(double* x, double* y, double* z) override {
    EXPECT_EQ(*z, 0);
    *z = 9;
    map_(*x, *y);
    return kFail;
  }
  const oracle::PointTransform& map() const { return map_; }
  uint32_t references = 1;

 private:
  oracle::PointTransform map_;
};

namespace paired {

template <typename P>
inline constexpr bool kIsImage =
    std::is_same_v<P, IQEL*> || std::is_same_v<P, IQELImage*> ||
    std::is_same_v<std::remove_cvref_t<std::remove_pointer_t<P>>, Raster>;
template <typename P>
inline constexpr bool kIsResult = std::is_same_v<P, IQEL**>;
template <typename P>
inline constexpr bool kIsPlainResult = std::is_same_v<P, Raster&>;

/// An argument as parameter `P`.
template <typename P, typename Argument>
P As(Argument& argument) {
  if constexpr (std::is_same_v<Argument, std::shared_ptr<PointMap>>) {
    if constexpr (std::is_same_v<P, ITransform*>) return argument.get();
    if constexpr (std::is_same_v<P, oracle::PointTransform>) return argument->map();
  } else if constexpr (std::is_pointer_v<P>) {
    return argument.data();
  } else {
    return static_cast<P>(argument);
  }
}

/// Fills parameters in their order: those of images from `images`, the one of a result with
/// `result`, all others from the arguments, of which the last may be left over.
template <bool kMakesResult, typename... P, typename Call, typename Image, typename Result,
          typename Arguments>
result_t Fill(Call call, std::span<Image* const> images, Result& result, Arguments& arguments) {
  constexpr auto kTakesResult = []<typename Q>(std::type_identity<Q>) {
    return kIsResult<Q> || (kMakesResult && kIsPlainResult<Q>);
  };
  constexpr bool kResult[] = {kTakesResult(std::type_identity<P>())...};
  constexpr bool kImage[] = {(kIsImage<P> && !kTakesResult(std::type_identity<P>()))...};
  const auto supply = [&]<size_t kAt, typename Q>() -> decltype(auto) {
    constexpr auto kImagesBefore = static_cast<size_t>(std::count(kImage, kImage + kAt, true));
    constexpr auto kResultsBefore = static_cast<size_t>(std::count(kResult, kResult + kAt, true));
    if constexpr (kResult[kAt]) {
      return static_cast<Q>(result);
    } else if constexpr (kImage[kAt]) {
      if constexpr (std::is_reference_v<Q>) return static_cast<Q>(*images[kImagesBefore]);
      if constexpr (!std::is_reference_v<Q>) return static_cast<Q>(images[kImagesBefore]);
    } else {
      return As<std::remove_cvref_t<Q>>(std::get<kAt - kImagesBefore - kResultsBefore>(arguments));
    }
  };
  return [&]<size_t... kAt>(std::index_sequence<kAt...>) {
    return call(supply.template operator()<kAt, P>()...);
  }
  (std::index_sequence_for<P...>());
}

}  // namespace paired

/// A method of a component and its plain reading, which take the same arguments in one order; the
/// plain reading may leave out the last ones. Arrays are vectors.
template <typename Interface, typename... P, typename... Q, typename... Arguments>
PairedCall Both(result_t (Interface::*method)(P...), result_t (*plain)(Q...),
                Arguments... arguments) {
  constexpr bool kMakesResult = (paired::kIsResult<P> || ...);
  std::tuple<Arguments...> all(std::move(arguments)...);
  return {[=](const ComponentSet& set, auto images, IQEL** result) mutable {
            const auto components =
                std::tie(set.color, set.transform, set.deform, set.filter, set.maths);
            Interface& component = *std::get<const SmartPtr<Interface>&>(components);
            return paired::Fill<kMakesResult, P...>(
                [&](P... values) { return (component.*method)(values...); }, images, result, all);
          },
          [=](auto images, Raster& result) mutable {
            return paired::Fill<kMakesResult, Q...>(plain, images, result, all);
          },
          [=] { return testing::PrintToString(all); },
          {}};
}

}  // namespace qel::test

#endif  // QEL_TESTS_SUPPORT_PAIRED_CALL_H_
