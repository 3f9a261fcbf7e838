#include "cli/batch/output_name.h"

#include <fmt/core.h>

#include <filesystem>

#include "cli/terminal/errors.h"

namespace qel::cli {

OutputName::Part OutputName::ReadPlaceholder(const std::string& inside) {
  if (inside == "dir") return {Kind::kFolder};
  if (inside == "stem") return {Kind::kStem};
  if (inside == "ext") return {Kind::kExtension};
  if (inside == "n") return {Kind::kNumber};
  if (inside.size() == 3 && inside.starts_with("n:") && inside[2] >= '1' && inside[2] <= '9') {
    return {Kind::kNumber, {}, static_cast<size_t>(inside[2] - '0')};
  }
  throw Failure(kUsage,
                "-o: there is no {{{}}}; {{dir}}, {{stem}}, {{ext}}, {{n}} and {{n:4}} are, and "
                "{{{{ stands for {{",
                inside);
}

OutputName::OutputName(const std::string& pattern) {
  std::string text;
  const auto end_text = [&] {
    if (!text.empty()) parts_.push_back({Kind::kText, std::move(text)});
    text.clear();
  };
  for (size_t i = 0; i < pattern.size(); ++i) {
    const char c = pattern[i];
    if ((c == '{' || c == '}') && i + 1 < pattern.size() && pattern[i + 1] == c) {
      text += c;
      ++i;
    } else if (c == '{') {
      const size_t close = pattern.find('}', i);
      if (close == std::string::npos)
        throw Failure(kUsage, "-o: {{ is not closed; write {{{{ for {{");
      end_text();
      parts_.push_back(ReadPlaceholder(pattern.substr(i + 1, close - i - 1)));
      i = close;
    } else {
      text += c;
    }
  }
  end_text();
}

std::string OutputName::For(const std::string& input, size_t number) const {
  const std::filesystem::path path(input);
  std::string name;
  for (const Part& part : parts_) {
    switch (part.kind) {
      case Kind::kText:
        name += part.text;
        break;
      case Kind::kFolder:
        name += path.has_parent_path() ? path.parent_path().string() : ".";
        break;
      case Kind::kStem:
        name += path.stem().string();
        break;
      case Kind::kExtension:
        name += path.extension().string().erase(0, 1);
        break;
      case Kind::kNumber: {
        name += fmt::format("{:0{}}", number, part.digits);
        break;
      }
    }
  }
  return name;
}

}  // namespace qel::cli
