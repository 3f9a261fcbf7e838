#include "cli/commands/completion.h"

#include <algorithm>

#include "cli/commands/command_table.h"
#include "cli/operations.h"
#include "cli/terminal/errors.h"

namespace qel::cli {
namespace {

// The scripts hold no names: they hand the words to the tool and offer what it prints, a candidate
// and a tab and its help on each line. A line "@files" asks for names of files.

constexpr std::string_view kBashScript = R"sh(# Completion of qel for bash.
_qel() {
  local IFS=$'\n' line word files=
  COMPREPLY=()
  # The shell splits name=value into three words; the tool wants one.
  local words=() i
  for ((i = 1; i <= COMP_CWORD; i++)); do
    word=${COMP_WORDS[i]}
    if [[ ${#words[@]} -gt 0 && ($word == = || ${COMP_WORDS[i-1]} == =) ]]; then
      words[${#words[@]}-1]+=$word
    else
      words+=("$word")
    fi
  done
  for line in $(qel completion --words -- "${words[@]}" 2>/dev/null); do
    if [[ $line == @files ]]; then
      files=yes
    else
      line=${line%%$'\t'*}
      [[ $line == *= ]] && compopt -o nospace 2>/dev/null
      [[ ${words[-1]} == *=* ]] && line=${line#*=}
      COMPREPLY+=("$line")
    fi
  done
  if [[ -n $files ]]; then
    # What the tool offers must not be quoted like a path.
    [[ ${#COMPREPLY[@]} == 0 ]] && compopt -o filenames 2>/dev/null
    COMPREPLY+=($(compgen -f -- "${COMP_WORDS[COMP_CWORD]#=}"))
  fi
}
complete -F _qel qel
)sh";

constexpr std::string_view kZshScript = R"sh(#compdef qel
# Completion of qel for zsh.
_qel() {
  local line text files=
  local -a whole whole_help begun begun_help
  for line in ${(f)"$(qel completion --words -- "${(@)words[2,CURRENT]}" 2>/dev/null)"}; do
    text=${line%%$'\t'*}
    if [[ $line == @files ]]; then
      files=yes
    elif [[ $text == *= ]]; then
      begun+=("$text") begun_help+=("${(r:20:)text} ${line#*$'\t'}")
    else
      whole+=("$text") whole_help+=("${(r:30:)text} ${line#*$'\t'}")
    fi
  done
  (( $#whole )) && compadd -l -d whole_help -- "${whole[@]}"
  (( $#begun )) && compadd -S '' -l -d begun_help -- "${begun[@]}"
  # Last, since the name of an argument is no part of the path.
  if [[ -n $files ]]; then
    compset -P '*='
    _files
  fi
}
if [[ $funcstack[1] == _qel ]]; then _qel "$@"; else compdef _qel qel; fi
)sh";

constexpr std::string_view kFishScript = R"sh(# Completion of qel for fish.
function __qel_complete
    set -l words (commandline -opc) (commandline -ct)
    set -l value (string match -r '^([^=]*=)(.*)$' -- $words[-1])
    for line in (qel completion --words -- $words[2..-1] 2>/dev/null)
        if test "$line" != @files
            echo $line
        else if set -q value[3]
            printf '%s\n' $value[2](__fish_complete_path $value[3])
        else
            __fish_complete_path $words[-1]
        end
    end
end
complete -c qel -f -a '(__qel_complete)'
)sh";

constexpr std::pair<std::string_view, std::string_view> kScripts[] = {
    {"bash", kBashScript}, {"zsh", kZshScript}, {"fish", kFishScript}};

/// Collects what begins with the half-typed word.
class Collector {
 public:
  explicit Collector(std::string typed) : typed_(std::move(typed)) {}

  const std::string& typed() const { return typed_; }
  void Offer(std::string text, std::string_view help = {}) {
    if (text.starts_with(typed_)) {
      found_.candidates.push_back({std::move(text), std::string(help)});
    }
  }
  void OfferFiles() { found_.files = true; }
  Completion Take() { return std::move(found_); }

 private:
  std::string typed_;
  Completion found_;
};

void OfferValues(const Parameter& parameter, Collector& collector) {
  const std::string name = std::string(parameter.name) + "=";
  for (const Choice& choice : parameter.choices) collector.Offer(name + std::string(choice.label));
  if (parameter.kind == Kind::kFlag) {
    for (const char* const value : {"yes", "no"}) collector.Offer(name + value);
  }
  if (parameter.kind == Kind::kPicture) collector.OfferFiles();
}

/// Arguments of the operation named last before the half-typed word, and all operations.
void OfferSteps(const std::vector<std::string>& words, Collector& collector) {
  const Operation* operation = nullptr;
  for (size_t i = 1; i + 1 < words.size(); ++i) {
    if (const Operation* const named = FindOperation(words[i])) operation = named;
  }
  for (const Parameter& parameter :
       operation != nullptr ? operation->parameters : std::vector<Parameter>()) {
    const std::string name = std::string(parameter.name) + "=";
    if (collector.typed().starts_with(name)) return OfferValues(parameter, collector);
    collector.Offer(name, parameter.help);
  }
  for (const Operation& row : OperationTable()) {
    collector.Offer(std::string(row.name), row.summary);
  }
}

void OfferWord(Word word, const std::vector<std::string>& words, Collector& collector) {
  switch (word) {
    case Word::kFile:
      return collector.OfferFiles();
    case Word::kStep:
      return OfferSteps(words, collector);
    case Word::kOperation:
      for (const Operation& operation : OperationTable()) {
        collector.Offer(std::string(operation.name), operation.summary);
      }
      return;
    case Word::kShell:
      for (const auto& [shell, script] : kScripts) collector.Offer(std::string(shell));
      return;
    case Word::kProgress:
      for (const char* const how : {"auto", "bar", "json", "none"}) collector.Offer(how);
      return;
    case Word::kNothing:
    case Word::kNumber:
    case Word::kText:
      return;
  }
}

/// How many words between the command and the half-typed one are neither options nor their values.
int CountPlainWords(const Command& command, const std::vector<std::string>& words) {
  int count = 0;
  for (size_t i = 1; i + 1 < words.size(); ++i) {
    const auto option = std::ranges::find(command.options, words[i], &CommandOption::name);
    if (option != command.options.end()) {
      i += option->NeedsValue() ? 1 : 0;
    } else {
      ++count;
    }
  }
  return count;
}

}  // namespace

Completion Complete(const std::vector<std::string>& words) {
  Collector collector(words.empty() ? "" : words.back());
  if (words.size() <= 1) {
    for (const Command& command : CommandTable()) {
      collector.Offer(std::string(command.name), command.summary);
    }
    return collector.Take();
  }
  const Command* const command = FindCommand(words.front());
  if (command == nullptr) return {};
  for (const CommandOption& option : command->options) {
    if (option.name == words[words.size() - 2] && option.NeedsValue()) {
      OfferWord(option.word, words, collector);
      return collector.Take();
    }
    if (collector.typed().starts_with("-")) {
      collector.Offer(std::string(option.name), option.help);
    }
  }
  if (collector.typed().starts_with("-")) return collector.Take();
  const bool is_first = CountPlainWords(*command, words) == 0;
  for (const Word word : command->words) {
    OfferWord(word, words, collector);
    if (is_first) break;
  }
  return collector.Take();
}

std::string_view CompletionScript(const std::string& shell) {
  for (const auto& [name, script] : kScripts) {
    if (name == shell) return script;
  }
  throw Failure(kUsage, "there is no completion for {}; there is for bash, zsh and fish", shell);
}

}  // namespace qel::cli
