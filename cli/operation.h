#ifndef QEL_CLI_OPERATION_H_
#define QEL_CLI_OPERATION_H_

#include <cstdint>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "operations/components.h"

namespace qel::cli {

class Arguments;
class PictureSource;

/// What a parameter's text means.
enum class Kind {
  kInt,      ///< whole number
  kNumber,   ///< real number
  kExtent,   ///< number of pixels, or a percentage of what the picture has
  kFlag,     ///< yes or no
  kColour,   ///< #RRGGBB
  kChoice,   ///< one of the parameter's labels, or its number
  kText,     ///< passed on as it is
  kPicture,  ///< path of a second picture
};

struct Choice {
  std::string_view label;
  int value;
};

/// One argument of an operation, enough for parsing, help and completion.
struct Parameter {
  std::string_view name = {};
  Kind kind = Kind::kInt;
  std::string_view help = {};
  std::string_view standard = {};  ///< text of the default; empty: must be given, unless `optional`
  double minimum = std::numeric_limits<int>::min();
  double maximum = std::numeric_limits<int>::max();
  std::string_view unit = {};
  std::span<const Choice> choices = {};
  bool optional = false;  ///< may be left out without a default
};

/// What a step says, whatever the picture.
struct Given {
  std::string_view name;  ///< of the operation, for messages
  const Arguments& arguments;
};

/// One execution of a step: what the row's function gets.
struct Call : Given {
  const Components& components;
  PictureSource& pictures;
  IQEL* image;    ///< the picture so far; in-place operations change it
  IQEL** result;  ///< where a new picture goes; it replaces `image`
};

/// Size and depth of a picture.
struct Shape {
  int width = 0, height = 0, bits = 0;
  uint32_t model = 0;

  std::string Size() const { return std::to_string(width) + " x " + std::to_string(height); }
  std::string Bits() const { return std::to_string(bits) + " bits"; }
  bool Covers(const Shape& other) const { return width >= other.width && height >= other.height; }
  bool HasBytes() const { return bits == 8 || bits == 24 || bits == 32; }
};

/// One row of the operation table.
struct Operation {
  std::string_view name = {};       ///< kebab case
  std::string_view component = {};  ///< object name of the component
  std::string_view summary = {};    ///< one line
  std::string_view depths = {};     ///< bit counts on which it has an effect
  bool in_place = false;
  bool random = false;  ///< draws from the process's random generator
  std::vector<Parameter> parameters = {};
  std::string_view example = {};  ///< a step as one would type it
  std::string_view note = {};     ///< what may surprise; may be empty
  result_t (*call)(Call& call) = nullptr;
  /// Throws `Failure` for arguments that do not go together; null when all do.
  void (*check)(const Given& given) = nullptr;
  /// What becomes of the shape of a picture; null when it stays. The model is not looked at.
  Shape (*result_shape)(const Given& given, Shape shape) = nullptr;
};

}  // namespace qel::cli

#endif  // QEL_CLI_OPERATION_H_
