#ifndef QEL_CLI_SESSION_INPUT_LIST_H_
#define QEL_CLI_SESSION_INPUT_LIST_H_

#include <string>
#include <vector>

namespace qel::cli {

/// The files that each of the patterns matches, in the order of their bytes: `*`, `?` and `[...]`
/// within a name, `**` for any number of folders. Hidden names match only a pattern that starts
/// with a point. A pattern that is the name of a file, or has none of these characters, stands for
/// itself. Throws `Failure(kNoInput)` for an empty pattern, when nothing matches one, and when a
/// folder cannot be read.
std::vector<std::string> ExpandPatterns(const std::vector<std::string>& patterns);

/// The content of a file, or of standard input when `path` is "-". Throws
/// `pictures::PictureError`.
std::string ReadTextFile(const std::string& path);

/// The names in the file `path`, or on standard input when it is "-", as they are: separated by
/// zero bytes when there are any, otherwise by line ends. Empty names are passed over. Throws
/// `pictures::PictureError`.
std::vector<std::string> ReadNameList(const std::string& path);

}  // namespace qel::cli

#endif  // QEL_CLI_SESSION_INPUT_LIST_H_
