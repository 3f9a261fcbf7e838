#ifndef QEL_OPERATIONS_ARGUMENTS_H_
#define QEL_OPERATIONS_ARGUMENTS_H_

#include <string>
#include <vector>

#include "operations/operation.h"

namespace qel::operations {

/// What a parameter takes, for help and messages: "a whole number from 0 to 255".
std::string DescribeValues(const Parameter& parameter);

/// Several numbers, in rows.
struct NumberRows {
  std::vector<double> numbers = {};  ///< of all rows, one after the other
  std::vector<size_t> lengths = {};  ///< of the rows that have any
};

/// Numbers between blanks and commas; semicolons and line ends part rows. Throws
/// `std::invalid_argument` with the word that is none.
NumberRows ParseNumbers(std::string_view text);

/// The arguments of one step, checked against its operation's parameters.
class Arguments {
 public:
  /// No arguments yet. Keeps `operation`.
  explicit Arguments(const Operation& operation);

  /// Gives an argument by the text of its value, or by its number: flags are 0 or 1, colours
  /// 0xRRGGBB, choices their value. Throws `StepError` for unknown names, for values that do not
  /// fit, and when the argument has been given before.
  void Set(std::string_view name, std::string text);
  void Set(std::string_view name, double number);
  /// Gives a coordinate transform of the caller's own, for operations that take one by formula.
  void SetMap(ITransform* map) { map_ = SmartPtr<ITransform>::Retain(map); }
  /// Parameters that were left out take their default. Throws `StepError` for those that have none
  /// and for arguments that do not go together.
  void Complete();

  /// True when the parameter has a value, its own or a default.
  bool Has(std::string_view name) const { return Find(name) != nullptr; }
  int Int(std::string_view name) const { return static_cast<int>(Number(name)); }
  /// The value as a number, as `Set` takes it.
  double Number(std::string_view name) const { return Get(name).number; }
  /// An extent in pixels, of a picture that has `whole` of them.
  double Pixels(std::string_view name, int whole) const;
  float Real(std::string_view name) const { return static_cast<float>(Number(name)); }
  const std::string& Text(std::string_view name) const { return Get(name).text; }
  /// Several numbers, read once, when they were set. Throws `StepError` for a word that is none.
  const std::vector<double>& Numbers(std::string_view name) const { return RowsOf(name).numbers; }
  /// How many of these each row has.
  const std::vector<size_t>& RowLengths(std::string_view name) const {
    return RowsOf(name).lengths;
  }
  /// The caller's coordinate transform, or null.
  ITransform* Map() const { return map_.Get(); }

 private:
  struct Value {
    /// Reads a value; false for one that does not fit.
    bool Take(const Parameter& parameter, std::string from);

    bool given = false;
    double number = 0;
    std::string text;       ///< empty when it came as a number
    NumberRows rows;        ///< in the text of several numbers
    std::string no_number;  ///< the first word there that is none
  };
  const Value* Find(std::string_view name) const;
  const Value& Get(std::string_view name) const;
  Value& Slot(std::string_view name);
  const NumberRows& RowsOf(std::string_view name) const;

  const Operation* operation_;
  std::vector<Value> values_;  ///< by the order of the parameters
  SmartPtr<ITransform> map_;
};

}  // namespace qel::operations

#endif  // QEL_OPERATIONS_ARGUMENTS_H_
