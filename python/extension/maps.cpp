#include "python/extension/maps.h"

#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include <limits>
#include <optional>

#include "host/host_object.h"
#include "python/extension/errors.h"

namespace qel::python {
namespace {

namespace py = pybind11;

using Positions = py::array_t<double, py::array::c_style | py::array::forcecast>;

/// Looks positions up; what lies outside the array goes nowhere.
class ArrayMap final : public host::HostObject<ITransform> {
 public:
  explicit ArrayMap(Positions positions)
      : positions_(std::move(positions)),
        data_(positions_.data()),
        height_(static_cast<double>(positions_.shape(0))),
        width_(static_cast<double>(positions_.shape(1))) {}

  result_t TransformPoint(double* x, double* y, double* /*z*/) override {
    if (*x < 0 || *y < 0 || *x >= width_ || *y >= height_) {
      *x = *y = std::numeric_limits<double>::quiet_NaN();
      return kOk;
    }
    const double* const at = data_ + 2 * (static_cast<int64_t>(*y) * static_cast<int64_t>(width_) +
                                          static_cast<int64_t>(*x));
    *x = at[0];
    *y = at[1];
    return kOk;
  }

 private:
  const Positions positions_;
  const double* const data_;
  const double height_, width_;
};

/// Asks a function, until it raises.
class FunctionMap final : public host::HostObject<ITransform> {
 public:
  FunctionMap(py::object function, std::string_view operation)
      : function_(std::move(function)), operation_(operation) {}

  result_t TransformPoint(double* x, double* y, double* /*z*/) override {
    if (raised_) return kFail;
    py::object place;
    try {
      place = function_(*x, *y);
      std::tie(*x, *y) = place.cast<std::tuple<double, double>>();
    } catch (py::error_already_set& error) {
      raised_.emplace(error);
    } catch (const py::cast_error&) {
      const std::string message =
          operation_ + ": map returns two numbers, the x and y to use, not " + ReprOf(place);
      PyErr_SetString(PyExc_TypeError, message.c_str());
      raised_.emplace(py::error_already_set());
    }
    return raised_ ? kFail : kOk;
  }
  void Check() const {
    if (raised_) throw py::error_already_set(*raised_);
  }

 private:
  const py::object function_;
  const std::string operation_;
  std::optional<py::error_already_set> raised_;
};

}  // namespace

void CallerMap::Check() const {
  if (calls_python) static_cast<const FunctionMap*>(transform.Get())->Check();
}

CallerMap MakeCallerMap(py::handle object, std::string_view operation) {
  CallerMap map;
  if (PyCallable_Check(object.ptr()) != 0) {
    map.transform = SmartPtr<ITransform>::Adopt(
        new FunctionMap(py::reinterpret_borrow<py::object>(object), operation));
    map.calls_python = true;
    return map;
  }
  Positions positions = Positions::ensure(object);
  if (!positions || positions.ndim() != 3 || positions.shape(2) != 2 || positions.size() == 0) {
    PyErr_Clear();
    RefuseArgument(operation, "map",
                   "takes a function of x and y, or an array of shape (h, w, 2) with the x and y "
                   "of every pixel, not " +
                       (positions && positions.ndim() > 0
                            ? "one of shape " + py::str(positions.attr("shape")).cast<std::string>()
                            : ReprOf(object)));
  }
  map.height = static_cast<int>(positions.shape(0));
  map.width = static_cast<int>(positions.shape(1));
  map.transform = SmartPtr<ITransform>::Adopt(new ArrayMap(std::move(positions)));
  return map;
}

}  // namespace qel::python
