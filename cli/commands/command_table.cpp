#include "cli/commands/command_table.h"

#include <algorithm>
#include <stdexcept>

#include "pictures/limits.h"

namespace qel::cli {
namespace {

constexpr CommandOption kModule{"--module", "PATH", "the module to load instead of the tool's own",
                                Word::kFile};

static_assert(pictures::Limits{}.max_pixels == 268'435'456);
constexpr CommandOption kMaxPixels{
    "--max-pixels", "N", "most pixels of a picture that is read or made, 268435456 by default",
    Word::kNumber};
static_assert(pictures::Limits{}.max_memory == int64_t{4} << 30);
constexpr CommandOption kMaxMemory{"--max-memory", "SIZE",
                                   "most memory that one picture takes, as 500M; 4G by default",
                                   Word::kText};

constexpr CommandOption kNoNotes{"--no-notes", "", "do not tell what may surprise"};
constexpr CommandOption kJson{"--json", "", "for programs"};

/// The options of run, and without those about steps of convert.
std::vector<CommandOption> RunOptionRows(bool has_steps) {
  std::vector<CommandOption> rows = {
      {"-o", "OUTPUT", "the file to write, its extension names the format; - is standard output",
       Word::kFile},
      {"--in-place", "", "in place of -o OUTPUT: replace the inputs"},
      {"--files-from", "FILE", "take more inputs from a list; - is standard input", Word::kFile},
      {"--parents", "", "make missing folders of outputs"},
      {"--force", "", "replace files that have no write permission as well"},
      {"--keep-depth", "", "keep indices of palette pictures"},
      {"--quality", "N", "quality of JPEG and WebP outputs, 1 to 100; 92 and 80 by default",
       Word::kNumber},
      {"--lossless", "", "write WebP without loss of detail"},
      {"--format", "NAME", "format of the outputs, such as png, whatever their names say",
       Word::kText},
      {"--strip", "=gps", "leave out EXIF, XMP and IPTC; =gps: only where it was taken"},
      {"--to-srgb", "", "bring colours from the picture's profile to sRGB"},
      {"--no-orient", "", "keep rows as they are stored, and the orientation with them"},
      kNoNotes,
      {"--jobs", "N",
       "cores to use, for several pictures at a time and parts of them; all by default",
       Word::kNumber},
      {"--threads", "N", "threads for each picture; by default what pictures leave of --jobs",
       Word::kNumber},
      {"--band-rows", "N", "rows that a thread takes at a time; by default what suits the picture",
       Word::kNumber},
      {"--dry-run", "", "tell what would be done, from the headers"},
      {"--stats", "",
       "tell where the time went: reading, each step, writing; and the peak of memory"},
      {"--json", "FILE", "write a manifest with the hashes of all files", Word::kFile},
      {"--resume", "", "leave out what the manifest shows to be done"},
      {"--shard", "I/N", "do the I-th of N parts; auto asks Slurm or Kubernetes", Word::kText},
      {"--progress", "HOW", "how to show progress: auto, bar, json or none", Word::kProgress},
      {"--progress-fd", "N", "where progress as json goes instead of standard error",
       Word::kNumber},
      kModule,
      kMaxPixels,
      kMaxMemory};
  if (has_steps) {
    rows.insert(
        rows.begin() + 2,
        {"--recipe", "FILE", "take steps from a file, before those of the line", Word::kFile});
  }
  return rows;
}

constexpr std::string_view kCheckNote =
    "Every rule is tried on a freshly loaded library in a process of its own. The exit code is 0 "
    "when all are kept, 1 when some are broken, 5 for a library that cannot be loaded.";

std::vector<CommandOption> CheckOptionRows() {
  return {
      {"--quiet", "", "print broken rules only"},
      {"--filter", "SUITE", "try one suite, or one rule as SUITE/NAME", Word::kText},
      {"--list", "", "list the rules instead of trying them"},
      {"--json", "", "an object a rule, for programs"},
      {"--time-limit", "SECONDS", "processor time for each rule, 20 by default", Word::kNumber}};
}

Options::Takes TakenBy(const CommandOption& option) {
  if (option.value.empty()) return Options::Takes::kNothing;
  if (!option.NeedsValue()) return Options::Takes::kOptionalValue;
  return option.word == Word::kFile ? Options::Takes::kFile : Options::Takes::kValue;
}

}  // namespace

std::string CommandOption::Written() const {
  if (value.empty()) return std::string(name);
  const std::string text(value);
  return std::string(name) + (NeedsValue() ? " " + text : "[" + text + "]");
}

const std::vector<Command>& CommandTable() {
  static const std::vector<Command> table = {
      {"run",
       &RunCommand,
       "INPUT... -o OUTPUT STEP [STEP...]",
       "run operations on pictures",
       RunOptionRows(true),
       {Word::kFile, Word::kStep},
       "Inputs stand before -o and may be patterns in quotes (*, ?, [...], ** for any folders), "
       "or - for standard input; after -- they may begin with a dash. Steps stand after -o. In "
       "OUTPUT, {dir}, {stem} and {ext} come from the input, {n} is its number, {n:4} with four "
       "digits; a folder, or a name that ends with /, gets files of the inputs' names. Nothing "
       "starts when two outputs would have one name, or an output would replace an input. "
       "Interrupted runs leave whole files only; --resume goes on.",
       "qel run 'in/**/*.jpg' -o 'out/{stem}-{n:4}.png' --json done.json negative median"},
      {"convert",
       &ConvertCommand,
       "INPUT... -o OUTPUT",
       "write pictures in another format",
       RunOptionRows(false),
       {Word::kFile},
       "The same as qel run, without steps.",
       "qel convert scan.tiff -o scan.png"},
      {"info",
       &InfoCommand,
       "PICTURE...",
       "what files say of their pictures",
       {{"--json", "", "an object a line, for programs"}},
       {Word::kFile},
       "Headers are read, not pixels. Pictures are told as they come out: upright, their "
       "orientation applied.",
       "qel info 'photos/*.jpg'"},
      {"sheet",
       &SheetCommand,
       "PICTURE... -o SHEET | PICTURE --steps STEP... -o SHEET",
       "put pictures side by side, or one before and after each step",
       {{"-o", "SHEET", "the file to write", Word::kFile},
        {"--columns", "N", "pictures in a row, 3 by default", Word::kNumber},
        {"--size", "N", "scale pictures down into N x N pixels", Word::kNumber},
        {"--caption", "TEXT", "what stands below a picture; once for each, in order", Word::kText},
        {"--no-captions", "", "nothing stands below the pictures"},
        {"--steps", "", "the words after the picture are steps, run one after the other"},
        {"--apart", "", "with --steps: run each step on the picture as it came"},
        kNoNotes,
        kModule,
        kMaxPixels,
        kMaxMemory},
       {Word::kFile, Word::kStep},
       "Pictures may be patterns. Nothing is scaled without --size. With --steps, the caption of "
       "a picture is its step.",
       "qel sheet photo.jpg --steps negative \"light brightness=20\" -o sheet.png"},
      {"methods",
       &MethodsCommand,
       "PICTURE -o SHEET",
       "the interpolation methods side by side",
       {{"-o", "SHEET", "the file to write", Word::kFile},
        {"--left", "X", "where the detail begins; the middle if not given", Word::kNumber},
        {"--top", "Y", "likewise", Word::kNumber},
        {"--size", "N", "pixels along the edges of the detail, 32 by default", Word::kNumber},
        {"--zoom", "N", "how far it is enlarged, 6 by default", Word::kNumber},
        kModule,
        kMaxPixels,
        kMaxMemory},
       {Word::kFile},
       {},
       "qel methods photo.jpg -o methods.png --zoom 8",
       true},
      {"diff",
       &DiffCommand,
       "A B [-o DIFFERENCE]",
       "compare two pictures pixel by pixel",
       {{"-o", "DIFFERENCE", "write a picture of the differences, amplified", Word::kFile},
        {"--limit", "N", "differences up to N count as equal, 0 by default", Word::kNumber},
        kJson,
        kMaxPixels,
        kMaxMemory},
       {Word::kFile},
       "The exit code is 0 for equal pictures, 1 for different ones, 2 for pictures of different "
       "size or depth. PSNR counts all channels, alpha included.",
       "qel diff before.png after.png -o difference.png"},
      {"verify",
       &VerifyCommand,
       "MANIFEST",
       "tell whether files are still as a run left them",
       {{"--outputs-only", "", "do not look at the inputs"}},
       {Word::kFile},
       "MANIFEST is what qel run --json wrote; its names count from the working directory.",
       "qel verify done.json"},
      {"list",
       &ListCommand,
       "[--json]",
       "all operations",
       {{"--json", "", "everything about them, for programs"}},
       {},
       {},
       "qel list --json"},
      {"help",
       &HelpCommand,
       "[OPERATION|COMMAND...]",
       "one operation and its arguments, or one command",
       {},
       {Word::kOperation},
       {},
       "qel help resample"},
      {"demo",
       &DemoCommand,
       "[-o FOLDER]",
       "try every operation on a built-in picture",
       {{"-o", "FOLDER", "where the pictures go, qel-demo by default", Word::kFile}, kModule},
       {},
       {},
       "qel demo -o pictures",
       true},
      {"inspect",
       &InspectCommand,
       "MODULE",
       "what a module offers: functions, components, interfaces, slots",
       {kJson},
       {Word::kFile},
       {},
       "qel inspect _binLIN64/QELMaths.so",
       true},
      {"check",
       &CheckCommand,
       "MODULE...",
       "try whether an image module keeps its rules",
       CheckOptionRows(),
       {Word::kFile},
       kCheckNote,
       "qel check --filter slots _binLIN64/QELMaths.so",
       true},
      {"check-host",
       &CheckHostCommand,
       "LIBRARY...",
       "try whether a host's images, strings and collection keep their rules",
       CheckOptionRows(),
       {Word::kFile},
       kCheckNote,
       "qel check-host _binLIN64/CollectionsEx.so",
       true},
      {"completion",
       &CompletionCommand,
       "bash|zsh|fish",
       "print the completion script of a shell",
       {},
       {Word::kShell},
       {},
       "source <(qel completion bash)",
       true},
      {"man",
       &ManCommand,
       "[OPERATION|COMMAND] | -o FOLDER",
       "print a page of the manual, or write all of them",
       {{"-o", "FOLDER", "write every page into this folder", Word::kFile}},
       {Word::kOperation},
       {},
       "qel man median | man -l -",
       true},
      {"version",
       &VersionCommand,
       "[--verbose]",
       "which tool this is",
       {{"--verbose", "", "also the module, its processor level, and the libraries of the formats"},
        kModule},
       {},
       {},
       "qel version --verbose",
       true},
  };
  return table;
}

const Command* FindCommand(std::string_view name) {
  const auto found = std::ranges::find(CommandTable(), name, &Command::name);
  return found == CommandTable().end() ? nullptr : &*found;
}

Options::Known KnownOptions(std::string_view name) {
  const Command* const command = FindCommand(name);
  if (command == nullptr) throw std::logic_error("no command of this name");
  Options::Known known;
  for (const CommandOption& option : command->options) {
    known.emplace(option.name, TakenBy(option));
  }
  return known;
}

}  // namespace qel::cli
