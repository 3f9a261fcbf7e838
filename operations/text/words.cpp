#include "operations/text/words.h"

#include <cctype>
#include <utility>

namespace qel::operations {
namespace {

struct Word {
  std::string_view word;
  std::string_view step;
};

/// Words of other tools, with the step that does it here.
constexpr Word kWords[] = {
    {"autorotate", "no step: pictures are upright as they are read"},
    {"auto-orient", "no step: pictures are upright as they are read"},
    {"background", "flatten background=white"},
    {"bandw", "grey"},
    {"black-white", "threshold level=127"},
    {"border", "pad border=20 background=white"},
    {"bw", "grey"},
    {"brighten", "light brightness=30"},
    {"brightness", "light brightness=30"},
    {"canvas", "pad width=1600 height=1200"},
    {"caption", "text 'text=A caption' gravity=south"},
    {"composite", "overlay with=other.png"},
    {"contrast", "light contrast=20"},
    {"cut", "crop width=50% height=50%"},
    {"darken", "light brightness=-30"},
    {"denoise", "median size=3"},
    {"desaturate", "gray-scale"},
    {"draw-text", "text 'text=A line'"},
    {"embed", "pad width=1600 height=1200"},
    {"enlarge", "resize width=200% enlarge=yes"},
    {"expand", "pad border=20"},
    {"extend", "pad width=1600 height=1200"},
    {"extract", "crop x=0 y=0 width=50% height=50%"},
    {"flop", "mirror"},
    {"frame", "pad border=20 background=white"},
    {"gaussian", "gaussian-blur level=3"},
    {"grayscale", "gray-scale, or grey for one channel in the file"},
    {"greyscale", "gray-scale, or grey for one channel in the file"},
    {"gray", "grey"},
    {"hflip", "mirror"},
    {"invert", "negative"},
    {"label", "text 'text=A line'"},
    {"logo", "overlay with=logo.png gravity=south-east x=20 y=20"},
    {"merge", "overlay with=other.png"},
    {"monochrome", "threshold level=127"},
    {"negate", "negative"},
    {"paste", "overlay with=other.png gravity=north-west"},
    {"reduce", "resize width=50%"},
    {"remove-alpha", "flatten background=white"},
    {"rescale", "resize width=50%"},
    {"scale-down", "resize width=50%"},
    {"sharp", "sharpen"},
    {"shrink", "resize width=50%"},
    {"size", "resize width=1600"},
    {"smooth", "soften"},
    {"straighten", "turn angle=1.5"},
    {"thumb", "resize width=200 height=200"},
    {"thumbnail", "resize width=200 height=200"},
    {"tint", "colorize hue=20 saturation=90"},
    {"transpose", "turn angle=90 mirror"},
    {"trim", "crop, with x=, y=, width= and height="},
    {"unsharp", "sharpen"},
    {"vflip", "flip"},
    {"watermark", "overlay with=logo.png opacity=0.5, or text 'text=A line' opacity=0.5"},
    {"zoom", "resize width=200% enlarge=yes"},
};

}  // namespace

std::string FromInterfaceName(std::string_view name) {
  std::string kebab;
  bool was_lower = false;
  for (size_t i = 0; i < name.size(); ++i) {
    const auto letter = static_cast<unsigned char>(name[i]);
    const bool is_upper = std::isupper(letter) != 0;
    // Of several capitals, as in ShiftRGB, only the first begins a word, and the last before a
    // small letter.
    const bool before_lower =
        i + 1 < name.size() && std::islower(static_cast<unsigned char>(name[i + 1])) != 0;
    if (is_upper && i > 0 && name[i - 1] != '-' && (was_lower || before_lower)) kebab += '-';
    kebab += static_cast<char>(std::tolower(letter));
    was_lower = !is_upper;
  }
  return kebab;
}

std::string BritishSpelling(std::string_view word) {
  constexpr std::pair<std::string_view, std::string_view> kSpellings[] = {
      {"color", "colour"}, {"center", "centre"}, {"gray", "grey"}};
  std::string spelt(word);
  for (const auto& [american, british] : kSpellings) {
    if (const size_t at = spelt.find(american); at != spelt.npos) {
      spelt.replace(at, american.size(), british);
    }
  }
  return spelt;
}

std::string_view StepFor(std::string_view word) {
  const std::string kebab = FromInterfaceName(word);
  for (const Word& each : kWords) {
    if (each.word == kebab) return each.step;
  }
  return {};
}

std::string_view MeantStep(std::string_view operation, std::string_view argument) {
  const bool is_size = argument == "width" || argument == "height" || argument == "size";
  if (operation == "scale" && is_size) return "resize width=50%; scale multiplies colour values";
  const bool has_ground = operation == "pad" || operation == "flatten" || operation == "turn";
  if (has_ground && BritishSpelling(argument) == "colour") return "background=white";
  return {};
}

}  // namespace qel::operations
