#include "python/extension/call_arguments.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <iterator>
#include <string>

#include "operations/text/python_line.h"
#include "python/extension/errors.h"

namespace qel::python {
namespace {

namespace py = pybind11;
using operations::Arguments;
using operations::Kind;
using operations::Parameter;

/// Colors exchange their ends for pixels in the order red, green, blue.
double SwapEnds(double color) {
  const auto value = static_cast<uint32_t>(color);
  return (value & 0xFF) << 16 | (value & 0xFF00) | value >> 16;
}

}  // namespace

CallArguments::CallArguments(const FunctionCall& call, bool exchanged)
    : operation_(call.operation), exchanged_(exchanged), arguments_(call.operation) {
  if (!call.map.is_none()) map_ = MakeCallerMap(call.map, operation_.name);
  arguments_.SetMap(map_.transform.Get());
  for (size_t i = 0; i < operation_.parameters.size(); ++i) {
    const Parameter& parameter = operation_.parameters[i];
    const py::handle value = call.values[i];
    const bool is_given =
        !value.is_none() || (parameter.kind == Kind::kPicture && parameter.required());
    if (is_given && !SetByMap(parameter, value)) Set(parameter, value);
  }
  arguments_.Complete();
}

void CallArguments::Refuse(std::string_view argument, const std::string& message) const {
  RefuseArgument(operation_.name, argument, message);
}

std::string CallArguments::TextFor(std::string_view name, py::handle value) const {
  return TextOf(value, operation_.name, operations::PythonName(name),
                operations::DescribeValues(*operation_.Find(name)));
}

void CallArguments::SetColor(std::string_view name, py::handle value) {
  double color = 0;
  if (PyUnicode_Check(value.ptr())) {
    Arguments parsed(operation_);
    parsed.Set(name, TextFor(name, value));
    color = parsed.Number(name);
  } else {
    std::array<int, 3> channels{-1, -1, -1};
    try {
      channels = value.cast<std::array<int, 3>>();
    } catch (const py::cast_error&) {
    }
    for (const int channel : channels) {
      if (channel < 0 || channel > 255) {
        Refuse(name, "takes \"#RRGGBB\" or (red, green, blue) from 0 to 255, not " + ReprOf(value));
      }
      color = color * 256 + channel;
    }
  }
  // The module sees blue where the pixels have red.
  arguments_.Set(name, exchanged_ ? SwapEnds(color) : color);
}

/// Colors with alpha, or by name; composed steps get their pixels in order and need no exchange.
void CallArguments::SetPaint(std::string_view name, py::handle value) {
  if (PyUnicode_Check(value.ptr())) return arguments_.Set(name, TextFor(name, value));
  std::vector<int> channels;
  try {
    channels = value.cast<std::vector<int>>();
  } catch (const py::cast_error&) {
  }
  const bool all_bytes =
      std::ranges::all_of(channels, [](int channel) { return channel >= 0 && channel <= 255; });
  if (!all_bytes || (channels.size() != 3 && channels.size() != 4)) {
    Refuse(name, "takes text, or (red, green, blue) or (red, green, blue, alpha) from 0 to 255, " +
                     std::string("not ") + ReprOf(value));
  }
  std::string text = "#";
  for (const int channel : channels) {
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02X", static_cast<unsigned>(channel) & 0xFF);
    text += digits;
  }
  arguments_.Set(name, std::move(text));
}

/// Numbers of any nesting as text; rows become rows.
void CallArguments::SetNumbers(std::string_view name, py::handle value) {
  if (PyUnicode_Check(value.ptr())) return arguments_.Set(name, TextFor(name, value));
  const auto given = py::array::ensure(value);
  if (!given || std::string_view("iufb").find(given.dtype().kind()) == std::string_view::npos) {
    Refuse(name, "takes numbers, not " + ReprOf(value));
  }
  const auto array = py::array_t<double, py::array::c_style | py::array::forcecast>(given);
  const py::ssize_t row = array.ndim() == 2 ? array.shape(1) : array.size();
  std::string text;
  for (py::ssize_t i = 0; i < array.size(); ++i) {
    char number[32];
    const auto [end, error] = std::to_chars(number, std::end(number), array.data()[i]);
    text.append(i > 0 && i % row == 0 ? "; " : " ").append(number, end);
  }
  arguments_.Set(name, std::move(text));
}

void CallArguments::SetPicture(const Parameter& parameter, py::handle value) {
  const std::string name = operations::PythonName(parameter.name);
  seconds_.emplace_back(parameter.name, ReadArray(value, operation_.name, name));
  arguments_.Set(parameter.name, std::string(parameter.name));
}

void CallArguments::Set(const Parameter& parameter, py::handle value) {
  std::string_view name = parameter.name;
  if (exchanged_) {
    if (name == operation_.swapped[0]) {
      name = operation_.swapped[1];
    } else if (name == operation_.swapped[1]) {
      name = operation_.swapped[0];
    }
  }
  switch (parameter.kind) {
    case Kind::kInt:
    case Kind::kNumber:
    case Kind::kExtent:
    case Kind::kFlag:
    case Kind::kChoice: {
      if (PyUnicode_Check(value.ptr())) return arguments_.Set(name, TextFor(name, value));
      const double number = PyFloat_AsDouble(value.ptr());
      if (number == -1 && PyErr_Occurred()) {
        PyErr_Clear();
        Refuse(operations::PythonName(name),
               "takes " + operations::DescribeValues(parameter) + ", not " + ReprOf(value));
      }
      return arguments_.Set(name, number);
    }
    case Kind::kColor:
      return SetColor(name, value);
    case Kind::kNumbers:
      return SetNumbers(name, value);
    case Kind::kPaint:
      return SetPaint(name, value);
    case Kind::kPoint:
      if (PyTuple_Check(value.ptr()) && PyTuple_Size(value.ptr()) == 2) {
        const auto point = value.cast<py::tuple>();
        return arguments_.Set(name, py::str(point[0]).cast<std::string>() + "," +
                                        py::str(point[1]).cast<std::string>());
      }
      [[fallthrough]];
    case Kind::kText:
      return arguments_.Set(name, TextFor(name, value));
    case Kind::kPicture:
      return SetPicture(parameter, value);
  }
}

/// An array of positions says how large the new picture is, unless the caller does.
bool CallArguments::SetByMap(const Parameter& parameter, py::handle value) {
  const int extent = parameter.name == "width"    ? map_.width
                     : parameter.name == "height" ? map_.height
                                                  : 0;
  if (extent == 0 || !value.equal(py::int_(0))) return false;
  arguments_.Set(parameter.name, extent);
  return true;
}

}  // namespace qel::python
