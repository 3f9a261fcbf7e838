#ifndef QEL_OPERATIONS_PARAMETER_H_
#define QEL_OPERATIONS_PARAMETER_H_

#include <limits>
#include <span>
#include <string_view>

namespace qel::operations {

/// What a parameter's text means.
enum class Kind {
  kInt,      ///< whole number
  kNumber,   ///< real number
  kExtent,   ///< number of pixels, or a percentage of what the picture has
  kFlag,     ///< yes or no
  kColor,    ///< #RRGGBB
  kPaint,    ///< #RRGGBB, #RRGGBBAA, or a name, also transparent
  kChoice,   ///< one of the parameter's labels, or its number
  kNumbers,  ///< several numbers between blanks, commas and semicolons, or @ and a text file
  kPoint,    ///< x,y in pixels, or with % in hundredths of the picture
  kText,     ///< passed on as it is
  kPicture,  ///< a second picture, by name
};

/// The name of a kind, for programs that read the table: "integer", "number", ...
std::string_view KindName(Kind kind);

struct Choice {
  std::string_view label;
  int value;
};

/// What people usually choose from, where the limits are far away: the ends of a slider.
struct Range {
  double low = 0;
  double high = 0;

  bool empty() const { return low == high; }
};

/// One argument of an operation, enough for parsing, help, completion and controls.
struct Parameter {
  std::string_view name = {};
  Kind kind = Kind::kInt;
  std::string_view help = {};
  std::string_view standard = {};  ///< text of the default; empty: must be given, unless `optional`
  double minimum = std::numeric_limits<int>::min();
  double maximum = std::numeric_limits<int>::max();
  Range usual = {};  ///< empty: from `minimum` to `maximum`, or no numbers
  std::string_view unit = {};
  std::span<const Choice> choices = {};
  bool optional = false;  ///< may be left out without a default

  bool required() const { return standard.empty() && !optional; }
  bool IsNumber() const {
    return kind == Kind::kInt || kind == Kind::kNumber || kind == Kind::kExtent;
  }
  /// The ends of a slider.
  Range Usual() const { return usual.empty() ? Range{minimum, maximum} : usual; }
};

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_PARAMETER_H_
