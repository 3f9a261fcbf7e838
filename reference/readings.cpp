#include "reference/readings.h"

#include <map>

#include "reference/operations.h"

namespace qel::reference {
namespace {

using operations::ArgumentCursor;
using operations::MethodArguments;
using operations::MethodOf;

using Reading = result_t (*)(const MethodArguments& arguments, std::span<Raster* const> images,
                             Raster& result);

/// The arguments of one reading, in the order of its parameters.
class ReadingCursor : public ArgumentCursor {
 public:
  ReadingCursor(const MethodArguments& arguments, std::span<Raster* const> images, Raster* result)
      : ArgumentCursor(arguments), map_(arguments.map), images_(images), result_(result) {}

  template <typename Parameter>
  Parameter Take() {
    using Bare = std::remove_cvref_t<Parameter>;
    if constexpr (std::is_same_v<Bare, const Raster*>) {
      return images_[image_++];
    } else if constexpr (std::is_same_v<Bare, Raster>) {
      // Of methods that give a result, the one that may be written is the result.
      const bool is_result = std::is_same_v<Parameter, Raster&> && result_ != nullptr;
      return is_result ? *result_ : *images_[image_++];
    } else if constexpr (std::is_same_v<Bare, Corners>) {
      double values[8];
      for (double& value : values) value = ArgumentCursor::Take<double>();
      corners_ = {values[0], values[1], values[2], values[3],
                  values[4], values[5], values[6], values[7]};
      return corners_;
    } else if constexpr (std::is_same_v<Bare, PointTransform>) {
      points_ = [map = map_.Get()](double& x, double& y) {
        double z = 0;
        map->TransformPoint(&x, &y, &z);
      };
      return points_;
    } else {
      return ArgumentCursor::Take<Parameter>();
    }
  }

 private:
  SmartPtr<ITransform> map_;
  std::span<Raster* const> images_;
  Raster* result_;
  size_t image_ = 0;
  Corners corners_{};
  PointTransform points_;
};

template <bool kGivesResult, typename... Parameters>
result_t ReadBy(result_t (*reading)(Parameters...), const MethodArguments& arguments,
                std::span<Raster* const> images, Raster& result) {
  ReadingCursor cursor(arguments, images, kGivesResult ? &result : nullptr);
  // Braces take them from left to right.
  const std::tuple<Parameters...> taken{cursor.template Take<Parameters>()...};
  return std::apply(reading, taken);
}

const std::map<std::string_view, Reading>& Readings() {
  static const std::map<std::string_view, Reading> readings = {
#define QEL_READING(interface, name)                                                              \
  {#name, [](const MethodArguments& arguments, std::span<Raster* const> images, Raster& result) { \
     constexpr bool kGivesResult = MethodOf<&interface::name>::kGivesResult;                      \
     return ReadBy<kGivesResult>(&name, arguments, images, result);                               \
   }},
      QEL_METHODS(QEL_READING)
#undef QEL_READING
  };
  return readings;
}

}  // namespace

result_t Read(const operations::MethodCall& call, std::span<Raster> given, Raster& result) {
  std::vector<Raster*> pointers;
  for (Raster& raster : given) pointers.push_back(&raster);
  const std::vector<Raster*> images = call.Pick<Raster>(pointers);
  return Readings().at(call.method->name)(call.arguments, images, result);
}

}  // namespace qel::reference
