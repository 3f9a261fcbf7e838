#ifndef QEL_CLI_SESSION_INPUT_LIST_H_
#define QEL_CLI_SESSION_INPUT_LIST_H_

#include <cstdint>
#include <string>
#include <vector>

namespace qel::cli {

/// Most bytes of a recipe, and of the numbers of an argument: a kernel of 2000 x 2000 and more.
inline constexpr int64_t kMostTextBytes = int64_t{1} << 26;

/// The files that each of the patterns matches, in the order of their bytes: `*`, `?` and `[...]`
/// within a name, `**` for any number of folders. Hidden names match only a pattern that starts
/// with a point. A pattern that is the name of a file, or has none of these characters, stands for
/// itself. Throws `Failure(kNoInput)` for an empty pattern, when nothing matches one, and when a
/// folder cannot be read.
std::vector<std::string> ExpandPatterns(const std::vector<std::string>& patterns);

/// The content of a file, or of standard input when `path` is "-". Throws
/// `pictures::PictureError`, also for more than `most_bytes`.
std::string ReadTextFile(const std::string& path, int64_t most_bytes = kMostTextBytes);

/// The names in the file `path`, or on standard input when it is "-", as they are: separated by
/// zero bytes when there are any, otherwise by line ends. Empty names are passed over. Throws
/// `pictures::PictureError`.
std::vector<std::string> ReadNameList(const std::string& path);

}  // namespace qel::cli

#endif  // QEL_CLI_SESSION_INPUT_LIST_H_
