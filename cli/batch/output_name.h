#ifndef QEL_CLI_BATCH_OUTPUT_NAME_H_
#define QEL_CLI_BATCH_OUTPUT_NAME_H_

#include <string>
#include <vector>

namespace qel::cli {

/// The pattern of output names: text in which {dir}, {stem} and {ext} stand for the folder, the
/// name without extension and the extension of the input, and {n} for its number, from 1; {n:4} has
/// four digits at least. Two braces stand for one.
class OutputName {
 public:
  /// Throws `Failure(kUsage)` for placeholders that there are not.
  explicit OutputName(const std::string& pattern);

  /// The output of the input that is `number` among all, from 1.
  std::string For(const std::string& input, size_t number) const;

 private:
  enum class Kind { kText, kFolder, kStem, kExtension, kNumber };
  struct Part {
    Kind kind;
    std::string text = {};
    size_t digits = 0;
  };
  static Part ReadPlaceholder(const std::string& inside);

  std::vector<Part> parts_;
};

}  // namespace qel::cli

#endif  // QEL_CLI_BATCH_OUTPUT_NAME_H_
