#include "cli/terminal/console.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <set>

#include "cli/operations.h"

namespace qel::cli {
namespace {

constexpr std::string_view kEraseLine = "\r\x1b[K";

std::mutex& ConsoleMutex() {
  static std::mutex mutex;
  return mutex;
}

/// The line that stands on the terminal now.
std::string& Status() {
  static std::string status;
  return status;
}

bool& NotesAreSilent() {
  static bool silent = false;
  return silent;
}

bool WantsColor() {
  const char* const no_color = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  return IsTerminal() && (no_color == nullptr || *no_color == '\0') &&
         !(terminal != nullptr && std::string_view(terminal) == "dumb");
}

}  // namespace

void PrintMessage(std::string_view message, Tone tone) {
  const std::string text = Printable(message);
  std::string line = "qel: " + (tone == Tone::kAlarm ? Red(text) : text) + "\n";
  const std::lock_guard lock(ConsoleMutex());
  if (!Status().empty()) line = std::string(kEraseLine) + line + Status();
  WriteAll(STDERR_FILENO, line);
}

void PrintNote(std::string_view path, std::string_view note) {
  if (NotesAreSilent()) return;
  std::string line(path);
  PrintMessage(line.append(path.empty() ? "note: " : ": note: ").append(note));
}

void PrintNoteOnce(const std::string& note) {
  static std::mutex mutex;
  static std::set<std::string> printed;
  const std::lock_guard lock(mutex);
  if (printed.insert(note).second) PrintNote({}, note);
}

void SilenceNotes() { NotesAreSilent() = true; }

void ShowStatus(std::string_view status) {
  const std::lock_guard lock(ConsoleMutex());
  if (status == Status()) return;
  Status() = status;
  WriteAll(STDERR_FILENO, std::string(kEraseLine) + Status());
}

bool IsTerminal() { return isatty(STDERR_FILENO) != 0; }

int TerminalWidth() {
  winsize size{};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return known ? size.ws_col : 80;
}

std::string Red(const std::string& text) {
  return WantsColor() ? "\x1b[31m" + text + "\x1b[0m" : text;
}

bool WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    text.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

}  // namespace qel::cli
