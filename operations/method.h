#ifndef QEL_OPERATIONS_METHOD_H_
#define QEL_OPERATIONS_METHOD_H_

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <vector>

#include "operations/components.h"

// clang-format off
/// The operations of the five interfaces: X(interface, method).
#define QEL_METHODS(X)                                                                          \
  X(IQELColorTransform, Colorize) X(IQELColorTransform, Lut) X(IQELColorTransform, Negative)    \
  X(IQELColorTransform, GrayScale) X(IQELColorTransform, ShiftRGB) X(IQELColorTransform, Gamma) \
  X(IQELColorTransform, Light) X(IQELColorTransform, SetImageAlpha)                             \
  X(IQELColorTransform, SetImageAlphaTransparency)                                              \
  X(IQELColorTransform, SetImageTransparentPixel) X(IQELColorTransform, Threshold)              \
  X(IQELTransform, Flip) X(IQELTransform, Mirror) X(IQELTransform, Rotate)                      \
  X(IQELTransform, Skew) X(IQELTransform, Resample) X(IQELTransform, IncreaseBpp)               \
  X(IQELTransform, RotatePaste) X(IQELTransform, FlipBits) X(IQELTransform, Quad)               \
  X(IQELTransform, Transform) X(IQELTransform, TransformPaste)                                  \
  X(IQELTransform, FlipImageAndBits) X(IQELDeform, CircleTransform)                             \
  X(IQELFilterTransform, Erode) X(IQELFilterTransform, Edge) X(IQELFilterTransform, Dilate)     \
  X(IQELFilterTransform, Filter) X(IQELFilterTransform, Contour) X(IQELFilterTransform, Jitter) \
  X(IQELFilterTransform, Noise) X(IQELFilterTransform, Median) X(IQELFilterTransform, Emboss)   \
  X(IQELFilterTransform, Blur) X(IQELFilterTransform, Soften) X(IQELFilterTransform, Sharpen)   \
  X(IQELFilterTransform, GaussianBlur) X(IQELMaths, Equal) X(IQELMaths, Copy)                   \
  X(IQELMaths, AddScale) X(IQELMaths, Scale) X(IQELMaths, Subtract)                             \
  X(IQELMaths, CreateDestImage) X(IQELMaths, Add) X(IQELMaths, Scale8)
// clang-format on

namespace qel::operations {

/// What a call of a method takes beside images.
struct MethodArguments {
  std::vector<double> numbers = {};  ///< in the method's order; those that are missing are 0
  std::vector<int> weights = {};     ///< of a kernel
  std::vector<uint8_t> table = {};
  SmartPtr<ITransform> map = {};
};

/// One method of the five interfaces, so that calls of all of them can be made, listed and drawn as
/// data.
struct Method {
  enum class Parameter { kImage, kResult, kMap, kWeights, kTable, kWhole, kSingle, kDouble };

  std::string_view name;       ///< as in its interface
  std::string_view component;  ///< the member of `Components`
  std::vector<Parameter> parameters;
  /// Makes the call, `images` in the order of the method's parameters. `result` may be null.
  result_t (*call)(const Components& components, const MethodArguments& arguments,
                   std::span<IQEL* const> images, IQEL** result);

  int Count(Parameter kind) const;
  bool gives_result() const { return Count(Parameter::kResult) > 0; }
};

/// Every operation of the five interfaces, by interface.
const std::vector<Method>& MethodTable();

/// The method called `name`. Throws `std::out_of_range` when there is none.
const Method& MethodNamed(std::string_view name);

/// A call of a method.
struct MethodCall {
  /// `images` says which of the caller's images each image parameter takes, one digit each, '-' for
  /// null. Empty: those in order, the one that is changed first.
  explicit MethodCall(std::string_view name, MethodArguments arguments = {},
                      std::string images = {});

  const Method* method;
  MethodArguments arguments;
  std::string images;

  /// How many images the caller gives.
  int ImageCount() const;
  /// Which of `given` the parameters take, in the method's order.
  template <typename Image>
  std::vector<Image*> Pick(std::span<Image* const> given) const {
    std::vector<Image*> picked;
    for (const char c : images) {
      picked.push_back(c == '-' ? nullptr : given[static_cast<size_t>(c - '0')]);
    }
    return picked;
  }
  result_t Run(const Components& components, std::span<IQELImage* const> given,
               IQEL** result) const;
};

/// Hands arguments out in the order of a function's parameters.
class ArgumentCursor {
 public:
  explicit ArgumentCursor(const MethodArguments& arguments) : arguments_(arguments) {}

  template <typename Parameter>
  Parameter Take() {
    if constexpr (std::is_arithmetic_v<Parameter>) {
      const auto& numbers = arguments_.numbers;
      return next_ < numbers.size() ? static_cast<Parameter>(numbers[next_++]) : Parameter{};
    } else if constexpr (std::is_same_v<Parameter, ITransform*>) {
      return arguments_.map.Get();
    } else if constexpr (std::is_convertible_v<int*, Parameter>) {
      return const_cast<int*>(arguments_.weights.data());  // is only read
    } else {
      static_assert(std::is_convertible_v<uint8_t*, Parameter>);
      return const_cast<uint8_t*>(arguments_.table.data());
    }
  }

 private:
  const MethodArguments& arguments_;
  size_t next_ = 0;
};

/// A method as a type: what its pointer says about it.
template <auto kMethod>
struct MethodOf;

template <typename Interface, typename... Parameters, result_t (Interface::*kMethod)(Parameters...)>
struct MethodOf<kMethod> {
  template <typename Parameter>
  static constexpr bool kIsImage = std::is_convertible_v<Parameter, IQEL*>;
  template <typename Parameter>
  static constexpr bool kIsResult = std::is_same_v<Parameter, IQEL**>;
  static constexpr bool kGivesResult = (kIsResult<Parameters> || ...);

  static result_t Call(const Components& components, const MethodArguments& arguments,
                       std::span<IQEL* const> images, IQEL** result) {
    ArgumentCursor cursor(arguments);
    size_t image = 0;
    const auto take = [&]<typename Parameter>() -> Parameter {
      if constexpr (kIsImage<Parameter>) {
        return static_cast<Parameter>(images[image++]);
      } else if constexpr (kIsResult<Parameter>) {
        return result;
      } else {
        return cursor.template Take<Parameter>();
      }
    };
    // Braces take them from left to right.
    const std::tuple<Parameters...> taken{take.template operator()<Parameters>()...};
    return std::apply(
        [&](Parameters... each) { return (ComponentOf(components).*kMethod)(each...); }, taken);
  }

  static Method Describe(std::string_view name) {
    return {.name = name,
            .component = ComponentName(),
            .parameters = {KindOf<Parameters>()...},
            .call = &Call};
  }

 private:
  template <typename Parameter>
  static constexpr Method::Parameter KindOf() {
    using Kind = Method::Parameter;
    return kIsImage<Parameter>                      ? Kind::kImage
           : kIsResult<Parameter>                   ? Kind::kResult
           : std::is_same_v<Parameter, ITransform*> ? Kind::kMap
           : std::is_same_v<Parameter, int*>        ? Kind::kWeights
           : std::is_same_v<Parameter, uint8_t*>    ? Kind::kTable
           : std::is_same_v<Parameter, float>       ? Kind::kSingle
           : std::is_same_v<Parameter, double>      ? Kind::kDouble
                                                    : Kind::kWhole;
  }
  static Interface& ComponentOf(const Components& components) {
    if constexpr (std::is_same_v<Interface, IQELColorTransform>)
      return *components.color;
    else if constexpr (std::is_same_v<Interface, IQELTransform>)
      return *components.transform;
    else if constexpr (std::is_same_v<Interface, IQELDeform>)
      return *components.deform;
    else if constexpr (std::is_same_v<Interface, IQELFilterTransform>)
      return *components.filter;
    else
      return *components.maths;
  }
  static constexpr std::string_view ComponentName() {
    return std::is_same_v<Interface, IQELColorTransform>    ? "color"
           : std::is_same_v<Interface, IQELTransform>       ? "transform"
           : std::is_same_v<Interface, IQELDeform>          ? "deform"
           : std::is_same_v<Interface, IQELFilterTransform> ? "filter"
                                                            : "maths";
  }
};

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_METHOD_H_
