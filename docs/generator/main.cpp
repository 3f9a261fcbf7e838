// Writes the page of every operation, with its pictures, and the gallery of them all, as far as
// those in a folder are not what it would write already; or checks that they are.

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <variant>

#include "cli/commands/compare.h"
#include "cli/commands/describe.h"
#include "cli/drawing/demo_scene.h"
#include "cli/drawing/picture_sheet.h"
#include "cli/operations.h"
#include "cli/session/session.h"
#include "docs/generator/page.h"
#include "operations/point_maps.h"
#include "operations/text/cpp_line.h"
#include "operations/text/python_line.h"
#include "pictures/atomic_file.h"
#include "pictures/byte_reader.h"

namespace qel::docs {
namespace {

using cli::Operation;
using Image = SmartPtr<host::HostImage>;

constexpr int kShrink = 3;
constexpr int kWidth = cli::kDemoWidth / kShrink;
constexpr int kHeight = cli::kDemoHeight / kShrink;

/// The built-in picture, in boxes of nine pixels, at 8, 24 or 32 bits.
Image DrawScene(int depth) {
  static const Image large = [] {
    Image image = cli::MakeImage(cli::kDemoWidth, cli::kDemoHeight, 32);
    cli::DrawDemoScene(cli::CanvasOf(*image));
    return image;
  }();
  Image scene = cli::MakeImage(kWidth, kHeight, depth);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      int sums[4] = {};
      for (int i = 0; i < kShrink * kShrink; ++i) {
        const uint8_t* const row = large->Row(y * kShrink + i / kShrink);
        for (int c = 0; c < 4; ++c) sums[c] += row[4 * (x * kShrink + i % kShrink) + c];
      }
      for (int& sum : sums) sum /= kShrink * kShrink;
      uint8_t* const pixel = scene->Row(y) + x * (depth / 8);
      if (depth == 8) {
        *pixel = static_cast<uint8_t>((sums[0] + sums[1] + sums[2]) / 3);
      } else {
        for (int c = 0; c < depth / 8; ++c) pixel[c] = static_cast<uint8_t>(sums[c]);
      }
    }
  }
  return scene;
}

/// A soft disc, as the second picture; without shades as a mask.
Image DrawDisc(int depth, bool soft) {
  Image disc = cli::MakeImage(kWidth, kHeight, depth);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const int dx = x - kWidth / 2, dy = y - kHeight / 2;
      const int level = std::clamp(255 - (dx * dx + dy * dy) / 9, 0, 255);
      uint8_t* const pixel = disc->Row(y) + x * (depth / 8);
      const int values[] = {soft ? level / 3 : level > 64 ? 255 : 0, level * 2 / 3, level, 255};
      if (depth == 8) {
        *pixel = static_cast<uint8_t>(soft ? level : values[0]);
      } else {
        for (int c = 0; c < depth / 8; ++c) pixel[c] = static_cast<uint8_t>(values[c]);
      }
    }
  }
  return disc;
}

SmartPtr<operations::PointMap> MapOf(std::string_view name) {
  if (name == "transform-paste") {
    return SmartPtr<operations::PointMap>::Adopt(
        new operations::AffineMap({0.5, -0.3, 40, 0.25, 0.6, 3}));
  }
  auto map = SmartPtr<operations::PointMap>::Adopt(
      new operations::PolynomialMap({0.05, 0.6, 0.15, 0.3, 0, 0, 0.1, 0, 0.7, -0.3, 0.3, 0.1}));
  map->SetUnits({kWidth, kHeight});
  return map;
}

/// Files by their path below the folder: text, or a picture.
using Files = std::map<std::string, std::variant<std::string, Image>>;

class Generator {
 public:
  Generator() {
    for (const auto pages :
         {&ColorPages, &TransformPages, &FilterPages, &MathsPages, &ComposedPages}) {
      for (const Page& page : pages()) pages_.emplace(page.name, page);
    }
  }

  Files Generate() {
    Files files;
    std::ostringstream gallery;
    gallery
        << "# Operations\n\nEach page has pictures before and after, the formula, the cost, what "
           "may surprise, and the same call from the tool, from Python and from C++. Its link to "
           "the page in the browser works where that is: `./run --web` puts it there, and the "
           "package qel-web. `./docs.sh` writes them all.\n\n[Ten everyday jobs](everyday.md) "
           "shows what people need most.\n";
    std::string_view component;
    for (const Operation& operation : cli::OperationTable()) {
      if (operation.component != component) {
        component = operation.component;
        gallery << "\n## " << component << "\n\n";
      }
      const auto page = pages_.find(operation.name);
      if (page == pages_.end()) Fail(operation, "has no page");
      const std::string name(operation.name);
      files["pictures/" + name + ".png"] = DrawSheet(operation, page->second);
      files[name + ".md"] = Write(operation, page->second);
      gallery << "- [" << name << "](" << name << ".md): " << operation.summary << "\n";
    }
    gallery << "\n## Gallery\n\n";
    for (const Operation& operation : cli::OperationTable()) {
      gallery << "[<img src=\"pictures/" << operation.name << ".png\" alt=\"" << operation.name
              << "\" width=\"270\">](" << operation.name << ".md)\n";
    }
    files["README.md"] = gallery.str();
    AddEverydayPage(files);
    return files;
  }

 private:
  [[noreturn]] static void Fail(const Operation& operation, const std::string& what) {
    throw std::runtime_error(std::string(operation.name) + ": " + what);
  }

  static std::string StepOf(const Operation& operation) {
    return std::string(operation.PictureStep());
  }

  /// Depths with whole bytes that the operation works on.
  static std::vector<int> DepthsOf(const Operation& operation) {
    std::vector<int> depths = operation.Depths();
    std::erase_if(depths, [](int depth) { return depth < 8; });
    return depths;
  }

  Image RunStep(const Operation& operation, int depth) const {
    cli::PictureFiles second_pictures;
    second_pictures.Provide("other.png", DrawDisc(depth, true));
    second_pictures.Provide("mask.png", DrawDisc(8, false));
    return session_.Run(cli::ParseSteps({StepOf(operation)}), DrawScene(depth), second_pictures);
  }

  /// What the C++ of the page makes of the same picture.
  Image RunExample(const Operation& operation, const Page& page, int depth) const {
    const Image image = DrawScene(depth), other = DrawDisc(depth, true), mask = DrawDisc(8, false);
    const Image empty = host::HostImage::Make(cli::kImageOptions);
    const auto map = MapOf(operation.name);
    SmartPtr<IQEL> result;
    const cli::Components& parts = session_.components();
    std::srand(1);
    const result_t code =
        page.example.run({parts.color.Get(), parts.transform.Get(), parts.deform.Get(),
                          parts.filter.Get(), parts.maths.Get(), image.Get(), other.Get(),
                          mask.Get(), map.Get(), empty.Get(), result.Put()});
    if (Failed(code)) Fail(operation, "the C++ of its page fails");
    if (result) return Image::Retain(static_cast<host::HostImage*>(result.Get()));
    if (empty->Bits() != nullptr) return empty;
    return operation.name == "transform-paste" ? other : image;
  }

  Image DrawSheet(const Operation& operation, const Page& page) const {
    std::vector<cli::CaptionedPicture> before, after;
    for (const int depth : DepthsOf(operation)) {
      const Image result = RunStep(operation, depth);
      const bool checks = page.example.run != nullptr && (depth == 32 || !page.for_32_bits);
      const Image same = checks ? RunExample(operation, page, depth) : result;
      if (!cli::WhyNotComparable(*result, *same).empty() ||
          cli::Compare(*result, *same, 0).differing_pixels != 0) {
        Fail(operation,
             "the C++ of its page and its step differ at " + std::to_string(depth) + " bits");
      }
      before.push_back({std::to_string(depth) + " bits", cli::AsColor(*DrawScene(depth))});
      after.push_back({"after", cli::AsColor(*result)});
    }
    const int columns = static_cast<int>(before.size());
    before.insert(before.end(), after.begin(), after.end());
    return cli::MakeSheet(before, columns);
  }

  /// Statements one below the other, without the `return` that only the generator needs.
  static std::string LayOut(std::string_view code) {
    std::string text;
    int parentheses = 0;
    int depth = 0;
    char last = ';';
    const auto end_line = [&] { text += "\n" + std::string(2 * static_cast<size_t>(depth), ' '); };
    for (size_t i = 0; i < code.size(); ++i) {
      const char c = code[i];
      if (c == ' ' && (text.empty() || text.back() == '\n' || text.ends_with("  "))) continue;
      parentheses += c == '(' ? 1 : c == ')' ? -1 : 0;
      const bool opens = c == '{' && last == ')';
      const bool closes = c == '}' && last == ';' && depth > 0;
      if (closes) {
        --depth;
        while (text.ends_with(' ')) text.pop_back();
        text += std::string(2 * static_cast<size_t>(depth), ' ');
      }
      text += c;
      if (c != ' ') last = c;
      if (opens) ++depth;
      if (opens || closes || (c == ';' && parentheses == 0 && i + 1 < code.size())) end_line();
    }
    constexpr std::string_view kReturn = "return ";
    if (const size_t at = text.rfind(kReturn); at != text.npos) text.erase(at, kReturn.size());
    return text;
  }

  /// A text as a part of an address.
  static std::string Escaped(std::string_view text) {
    std::string escaped;
    for (const char c : text) {
      const bool is_plain = std::isalnum(static_cast<unsigned char>(c)) != 0 ||
                            std::string_view("-_.~=,/:").find(c) != std::string_view::npos;
      char code[4];
      std::snprintf(code, sizeof(code), "%%%02X", static_cast<unsigned char>(c));
      escaped += is_plain ? std::string(1, c) : code;
    }
    return escaped;
  }

  static std::string Write(const Operation& operation, const Page& page) {
    std::ostringstream out;
    const std::string name(operation.name);
    out << "# " << name << "\n\n"
        << operation.summary << "\n\n![" << name << ", before above and after below](pictures/"
        << name << ".png)\n\nAbove the built-in picture, "
        << "below what `" << StepOf(operation) << "` makes of it.\n\n## What it computes\n\n"
        << page.formula << "\n\n";
    if (!operation.parameters.empty()) {
      out << "| Argument | Meaning |\n|---|---|\n";
      for (const cli::Parameter& parameter : operation.parameters) {
        out << "| `" << parameter.name << "=` | " << cli::DescribeParameter(parameter) << " |\n";
      }
      out << "\n";
    }
    out << "- **Depths**: " << operation.depths
        << " bits\n- **Result**: " << (operation.in_place ? "in place" : "a new picture")
        << "\n- **Cost**: " << page.cost << "\n";
    const std::string caveats = operation.Caveats();
    if (!caveats.empty()) out << "- **May surprise**: " << caveats << "\n";
    out << "\n## How to call it\n\n```sh\nqel run in.png -o out.png \"" << StepOf(operation)
        << "\"\n```\n\n";
    const operations::Step step = cli::ParseSteps({StepOf(operation)}).front();
    out << "```python\nresult = " << operations::PythonLine(step) << "\n```\n\n";
    const std::string line = operations::CppLine(step);
    if (operation.composed()) {
      out << "The tool adds it to the module's operations: hosts do not find it there.\n";
    } else {
      out << "```cpp\n" << (line.empty() ? LayOut(page.example.text) : line) << "\n```\n";
    }
    // The page has no fonts.
    if (operation.name != "text") {
      out << "\n[Try it in the browser](../try/qel.html#steps=" << Escaped(StepOf(operation))
          << ")\n";
    }
    out << "\n[All operations](README.md)\n";
    return out.str();
  }

  /// A round logo for a corner of the picture.
  Image DrawLogo() const {
    const Image disc = DrawDisc(32, true);
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) disc->Row(y)[4 * x + 3] = disc->Row(y)[4 * x + 2];
    }
    cli::PictureFiles none;
    return session_.Run(cli::ParseSteps({"crop aspect=1 resize height=36"}), disc, none);
  }

  void AddEverydayPage(Files& files) const {
    std::ostringstream page;
    page << "# Ten everyday jobs\n\nWhat people need most, as one would type it. Left the picture "
            "before, right after.\n";
    cli::PictureFiles second_pictures;
    second_pictures.Provide("other.png", DrawLogo());
    for (const Job& job : EverydayJobs()) {
      const std::string picture = "pictures/everyday-" + std::string(job.name) + ".png";
      const int depth = job.name == "flatten" ? 32 : 24;
      const Image after = session_.Run(cli::ParseSteps({std::string(job.steps)}), DrawScene(depth),
                                       second_pictures);
      files[picture] = cli::MakeSheet(
          {{"before", cli::AsColor(*DrawScene(depth))}, {"after", cli::AsColor(*after)}}, 2);
      page << "\n## " << job.title << "\n\n```sh\nqel run " << job.input << " -o " << job.output
           << " " << (job.command.empty() ? job.steps : job.command) << "\n```\n\n"
           << job.text << "\n\n![before and after](" << picture << ")\n";
    }
    page << "\n[All operations](README.md)\n";
    files["everyday.md"] = page.str();
  }

  cli::Session session_;
  std::map<std::string_view, Page> pages_;
};

std::string ReadAll(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

/// Pictures may differ in a few pixels: elsewhere the mathematics library may round a coordinate
/// the other way.
bool Matches(const std::string& name, const std::string& committed, const Image& generated) {
  if (committed.empty()) return false;
  pictures::ByteSource source(pictures::BytesOf(committed));
  const Image image = cli::DecodePicture(source, name, {}).image;
  return cli::WhyNotComparable(*image, *generated).empty() &&
         cli::Compare(*image, *generated, 1).differing_pixels <= 20;
}

int Run(const std::filesystem::path& folder, bool checks) {
  const Files files = Generator().Generate();
  int stale = 0;
  const auto report = [&](const std::string& name, const char* what) {
    std::cerr << (folder / name).string() << ": " << what << "; run ./docs.sh\n";
    ++stale;
  };
  for (const auto& [name, content] : files) {
    const std::filesystem::path path = folder / name;
    const std::string committed = ReadAll(path);
    const auto* const text = std::get_if<std::string>(&content);
    // Other libraries pack the same pixels into other bytes: those that are there stay.
    if (text != nullptr ? committed == *text : Matches(name, committed, std::get<Image>(content))) {
      continue;
    }
    if (checks) {
      report(name, "is not what the operation gives now");
      continue;
    }
    std::filesystem::create_directories(path.parent_path());
    if (text != nullptr) {
      pictures::WriteFileAtomically(path.string(), pictures::BytesOf(*text));
    } else {
      const Image& picture = std::get<Image>(content);
      pictures::WriteFileAtomically(path.string(), cli::EncodeImage(name, *picture, {}, {}));
    }
  }
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    const std::string name = std::filesystem::relative(entry.path(), folder).string();
    if (entry.is_regular_file() && !files.contains(name)) report(name, "belongs to no operation");
  }
  return stale == 0 ? 0 : 1;
}

}  // namespace
}  // namespace qel::docs

int main(int argc, char** argv) {
  const bool checks = argc == 3 && std::string_view(argv[1]) == "--check";
  if (argc != 2 && !checks) {
    std::cerr << "usage: qel_docs [--check] FOLDER\n";
    return 2;
  }
  try {
    return qel::docs::Run(argv[argc - 1], checks);
  } catch (const std::exception& error) {
    std::cerr << "qel_docs: " << error.what() << "\n";
    return 1;
  }
}
