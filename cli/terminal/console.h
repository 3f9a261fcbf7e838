#ifndef QEL_CLI_TERMINAL_CONSOLE_H_
#define QEL_CLI_TERMINAL_CONSOLE_H_

#include <fmt/core.h>

#include <string>
#include <string_view>
#include <utility>

namespace qel::cli {

// Standard error, shared by messages and the progress line below them.
// Threads: any; lines appear whole.

enum class Tone { kPlain, kAlarm };

/// Prints "qel: " and the message on a line of its own, above the status line; an alarm is red
/// where colours are wanted. Names of files in it may hold anything (see `Printable`). Nobody need
/// read it: what cannot be written is lost.
void PrintMessage(std::string_view message, Tone tone = Tone::kPlain);
/// The same with `arguments` in the places of the {} in `format`.
template <typename... Arguments>
void PrintMessage(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  PrintMessage(fmt::format(format, std::forward<Arguments>(arguments)...));
}

/// Prints what a user should know of a file or, with no path, of the run: "qel: PATH: note: NOTE".
void PrintNote(std::string_view path, std::string_view note);
/// The same for a note on the run that may come up with every file: it is printed once.
void PrintNoteOnce(const std::string& note);
/// From now on notes are not printed. Call it before threads start.
void SilenceNotes();

/// Replaces the status line, the last one on the terminal; empty removes it.
void ShowStatus(std::string_view status);

/// True when standard error is a terminal.
bool IsTerminal();
/// Columns of the terminal.
int TerminalWidth();

/// `text` in red where colours are wanted: on a terminal without NO_COLOR.
std::string Red(const std::string& text);

/// Writes all of `text` to a file descriptor; false when that fails.
bool WriteAll(int descriptor, std::string_view text);

}  // namespace qel::cli

#endif  // QEL_CLI_TERMINAL_CONSOLE_H_
