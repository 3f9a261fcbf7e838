#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "check/elf_symbols.h"
#include "check/interface_table.h"
#include "reference/rng.h"
#include "tests/support/module_under_test.h"
#include "tests/support/sanitized.h"
#include "tests/support/tool.h"

namespace qel::test {
namespace {

/// A defect and the rule that must name it.
struct Seeded {
  const char* defect;
  const char* rule;
  const char* message = "";  ///< part of what is said
};

std::string NameOf(const testing::TestParamInfo<Seeded>& seeded) {
  std::string name;
  for (const char c : std::string(seeded.param.defect)) name += c == '-' ? '_' : c;
  return name;
}

class Checker : public ToolTest, public testing::WithParamInterface<Seeded> {
 protected:
  Outcome Check(const std::string& words, const std::string& defect = {}) {
    // Where a defect is planted, what the sanitizer has to say of it is not looked up.
    const std::string options = defect.empty() ? "" : "ASAN_OPTIONS=symbolize=0 ";
    return Shell(options + "QEL_DEFECT=" + defect + " " + Tool() + " " + words);
  }
  void ExpectCaught(const std::string& command) {
    const Outcome outcome = Check(command, GetParam().defect);
    EXPECT_EQ(outcome.exit_code, 1) << outcome.output << outcome.errors;
    EXPECT_NE(outcome.output.find(std::string("BROKEN  ") + GetParam().rule), std::string::npos)
        << outcome.output;
    EXPECT_NE(outcome.output.find(GetParam().message), std::string::npos) << outcome.output;
  }

  // The libraries that are checked.
  const std::string module_ = ModulePath();
  const std::string collections_ = Built("_binLIN64/CollectionsEx.so");
  const std::string defect_module_ = Built("tests/libdefect_module.so");
  const std::string defect_host_ = Built("tests/libdefect_host.so");
  const std::string exporting_module_ = Built("tests/libexporting_module.so");
};

class ModuleChecker : public Checker {};
class HostChecker : public Checker {};

constexpr Seeded kModuleDefects[] = {
    {"component-missing", "entry/names"},
    {"longer-names", "entry/exact-names"},
    {"output-on-failure", "entry/exact-names"},
    {"creates-unknown-interfaces", "entry/creation"},
    {"collection-kept", "entry/collection"},
    {"never-unloaded", "entry/unloading"},
    {"returns-old-count", "object/counting"},
    {"query-without-reference", "object/identity"},
    {"own-identity", "object/identity"},
    {"answers-everything", "object/refusal"},
    {"name-by-index", "object/name"},
    {"shared-object", "object/separate"},
    {"plain-count", "object/threads"},
    {"color-order", "slots/color", "slot 5, Negative"},
    {"transform-order", "slots/transform", "slot 3, Flip"},
    {"deform-order", "slots/deform"},
    {"filter-order", "slots/filter", "slot 13, Soften"},
    {"maths-order", "slots/maths"},
    {"null-crash", "arguments/null-images", "ended"},
    {"null-success", "arguments/null-images", "Negative of null images: it succeeds"},
    {"leak-without-output", "arguments/null-outputs", "Mirror"},
    {"leak-of-empty", "arguments/empty-images"},
    {"no-result", "results/made", "Mirror"},
    {"hang", "results/made", "did not end within 1 s"},
    {"result-without-reference", "results/one-reference", "holds 0 references"},
    {"result-with-two-references", "results/one-reference", "holds 2 references"},
    {"argument-kept", "results/no-references", "Negative"},
    {"argument-lost", "results/no-references", "-1 off"},
    {"source-written", "results/sources"},
    {"stride-ignored", "results/strides", "negative stride"},
    {"padding-written", "memory/padding"},
    {"past-the-end", "memory/reach", "Negative at 8 bits: ended"},
    {"swallowed-exception", "faults/throwing", "does not reach the caller"},
    {"leak-by-exception", "faults/throwing"},
    {"leak-after-failure", "faults/failing"},
    {"leak-without-pixels", "faults/null"},
    {"success-without-image", "faults/no-images", "GrayScale"},
};
INSTANTIATE_TEST_SUITE_P(Seeded, ModuleChecker, testing::ValuesIn(kModuleDefects), NameOf);

TEST_P(ModuleChecker, NamesTheDefect) {
  ExpectCaught("check --quiet --time-limit " +
               std::string(GetParam().defect == std::string("hang") ? "1" : "60") + " --filter " +
               GetParam().rule + " " + defect_module_);
}

constexpr Seeded kHostDefects[] = {
    {"returns-old-count", "collection/object"},
    {"one-image", "collection/images"},
    {"unknown-succeeds", "collection/unknown"},
    {"long-lengths", "collection/counted-names"},
    {"no-locator", "collection/locators", "IID_NULL"},
    {"finds-anything", "collection/finding"},
    {"plain-count", "collection/threads"},
    {"item-keeps-collection", "collection/references"},
    {"string-with-two-references", "string/object"},
    {"append-stops", "string/growing"},
    {"image-query-without-reference", "image/object"},
    {"stale-format", "image/shape", "another bit count"},
    {"model-changed", "image/shape", "another colour model"},
    {"image-order", "image/shape"},
    {"heap-plain-count", "image/threads"},
    {"heap-refuses-all", "image/shape", "Create fails at every depth"},
    {"heap-refuses-sizes", "image/shape", "at some sizes only"},
    {"short-stride", "image/rows", "shorter than a row"},
    {"heap-odd-rows", "image/rows", "not divisible by four"},
    {"shared-memory", "image/rows", "share their memory"},
    {"no-guard", "image/reach", "ended"},
    {"heap-no-slack", "image/reach", "before the rows, of which 0"},
    {"heap-read-only-behind", "image/reach", "behind the rows: ended"},
    {"heap-no-words", "image/words", "behind the rows, of which"},
    {"heap-keeps-pixels", "image/anew", "bytes behind the memory that the image has"},
    {"heap-size-overflow", "image/large",
     "65536 x 65537 at 8 bits, writing the rows: the rows end"},
    {"heap-promises", "image/large", "2100 x 2100 at 32 bits: Create succeeds, but"},
    {"heap-leaks-pixels", "image/memory", "Create, again and again: memory grows"},
    {"assign-keeps-source", "image/assign", "references"},
    {"assign-ignores-stride", "image/assign", "row by row"},
    {"heap-frees-itself", "image/itself", "ended"},
    {"heap-loses-itself", "image/itself", "changes the pixels"},
    {"fill-swaps-channels", "image/fill"},
    {"never-empty", "image/empty"},
};
INSTANTIATE_TEST_SUITE_P(Seeded, HostChecker, testing::ValuesIn(kHostDefects), NameOf);

TEST_P(HostChecker, NamesTheDefect) {
  ExpectCaught("check-host --quiet --filter " + std::string(GetParam().rule) + " " + defect_host_);
}

using Checkers = Checker;

TEST_F(Checkers, FindNothingInGoodLibraries) {
  // Those that defects are planted in are none without them, which sanitizers need not see again.
  const std::string module = kSanitized ? "" : " " + defect_module_;
  const std::string host = kSanitized ? "" : " " + defect_host_;
  for (const std::string& words :
       {"check " + module_ + module,
        "check-host " + collections_ + " " + Built("tests/libown_host_library.so") + host}) {
    Expect({words, 0, "all kept"});
  }
}

TEST_F(Checkers, SeeSymbolsThatAreExportedToo) {
  Expect({"check --filter entry " + exporting_module_, 1, "exports NobodyAskedForThis as well"});
  Expect({"check --filter entry " + exporting_module_, 1, "6 rules, 1 broken"});
}

TEST_F(Checkers, TellWhatAHostNeedNotSupport) {
  for (const char* const host : {"heap", "bottom-up"}) {
    EXPECT_EQ(Check("check-host --quiet " + defect_host_, host).output, "") << host;
  }
  const Outcome outcome =
      Check("check-host --filter image " + defect_host_, "heap-refuses-16-bits");
  EXPECT_EQ(outcome.exit_code, 0) << outcome.output;
  EXPECT_NE(outcome.output.find("not supported: 16 bits\n"), std::string::npos) << outcome.output;
  EXPECT_EQ(outcome.output.find("16 bits, 16 bits"), std::string::npos) << outcome.output;
}

// One cause, one message: whatever touches an object that is gone ends by a signal.
TEST_F(Checkers, NameTheLikelyCauseOfSignals) {
  const Outcome gone = Check("check-host --quiet " + defect_host_, "collection-gone");
  EXPECT_EQ(gone.exit_code, 1);
  EXPECT_EQ(gone.output.find("BROKEN  collection/object "), 0u) << gone.output;
  EXPECT_NE(gone.output.find("image/itself\n        broke off, likely because of "
                             "collection/object: GlobalComponentCollection: ended"),
            std::string::npos)
      << gone.output;
  EXPECT_EQ(std::ranges::count(gone.output, '\n'), 4) << gone.output;

  const Outcome early =
      Check("check-host --quiet " + defect_host_, "image-query-without-reference");
  EXPECT_EQ(early.exit_code, 1);
  EXPECT_NE(early.output.find("likely because of image/object: an image: QueryInterface does not "
                              "add exactly one reference\n"),
            std::string::npos)
      << early.output;
}

// A library runs without its section headers, so nothing can be hidden by their absence.
TEST_F(Checkers, ReadSymbolsAsTheLoaderDoes) {
  std::string bytes = ReadFile(exporting_module_);
  Elf64_Ehdr header;
  std::memcpy(&header, bytes.data(), sizeof(header));
  std::fill_n(bytes.begin() + static_cast<ptrdiff_t>(header.e_shoff),
              header.e_shnum * sizeof(Elf64_Shdr), '\0');
  header.e_shoff = 0;
  header.e_shnum = header.e_shstrndx = 0;
  std::memcpy(bytes.data(), &header, sizeof(header));
  WriteFile(folder_ / "stripped.so", bytes);
  Expect({"check --filter entry/exports stripped.so", 1, "exports NobodyAskedForThis as well"});
}

TEST_F(Checkers, ReadDamagedLibrariesWithinTheirBounds) {
  const std::string whole = ReadFile(exporting_module_);
  const std::vector<std::string> exports = check::ReadElf(exporting_module_).exports;
  Elf64_Ehdr header;
  std::memcpy(&header, whole.data(), sizeof(header));
  Elf64_Phdr dynamic{};
  for (size_t i = 0; i < header.e_phnum && dynamic.p_type != PT_DYNAMIC; ++i) {
    std::memcpy(&dynamic, whole.data() + header.e_phoff + i * sizeof(dynamic), sizeof(dynamic));
  }
  ASSERT_EQ(dynamic.p_type, uint32_t{PT_DYNAMIC});
  Rng rng(7);
  int refused = 0;
  const int count = kSanitized ? 400 : 2000;
  for (int i = 0; i < count; ++i) {
    std::string bytes = whole;
    // The program headers and symbols stand in the first page.
    const int64_t begin = i % 2 == 0 ? 0 : static_cast<int64_t>(dynamic.p_offset);
    const int64_t size = i % 2 == 0 ? 4096 : static_cast<int64_t>(dynamic.p_filesz);
    for (int k = 0; k <= i % 5; ++k) {
      bytes[static_cast<size_t>(begin + rng.Int(0, static_cast<int>(size) - 1))] =
          static_cast<char>(rng.OneIn(3) ? 0xFF : rng.Int(0, 255));
    }
    if (i % 7 == 0) bytes.resize(static_cast<size_t>(rng.Int(0, static_cast<int>(bytes.size()))));
    WriteFile(folder_ / "damaged.so", bytes);
    try {
      check::ReadElf(folder_ / "damaged.so");
    } catch (const std::runtime_error&) {
      ++refused;
    }
  }
  EXPECT_GT(refused, count / 10);
  EXPECT_EQ(exports.size(), 3u);
}

TEST_F(Checkers, SayWhatCannotBeDone) {
  WriteFile(folder_ / "words.so", "no library");
  ExpectEach("", {{"check", 2, "write qel check"},
                  {"check --filter fault " + module_, 2, "did you mean faults?"},
                  {"check missing.so", 5, "there is no module file"},
                  {"check words.so", 5, "cannot load"},
                  {"check-host " + Tool(), 5, ""},
                  {"inspect words.so", 5, "ELF"}});
}

// Hosts in other languages take the identifiers from there.
TEST(Identifiers, AreTheBytesInTheDocument) {
  const std::string document = ReadFile(SourceFolder() + "/docs/abi.md");
  for (const check::InterfaceRow& row : check::InterfaceTable()) {
    std::string line = "| `" + std::string(row.name) + "` |";
    char byte[4];
    for (const uint8_t value : row.iid.bytes) {
      std::snprintf(byte, sizeof(byte), " %02X", value);
      line += byte;
    }
    EXPECT_NE(document.find(line + " |\n"), std::string::npos) << line;
  }
}

// Every rule has a defect that it was seen to catch; the table above is complete.
TEST_F(Checkers, HaveADefectForEveryRule) {
  std::string seeded = "entry/exports object/layout ";
  for (const Seeded& defect : kModuleDefects) seeded += std::string(defect.rule) + " ";
  for (const Seeded& defect : kHostDefects) seeded += std::string(defect.rule) + " ";
  for (const char* const command : {"check", "check-host"}) {
    std::istringstream lines(Check(std::string(command) + " --list").output);
    std::string suite;
    for (std::string line; std::getline(lines, line);) {
      if (!line.starts_with(" ")) {
        suite = line;
        continue;
      }
      const std::string name = line.substr(2, line.find(' ', 2) - 2);
      EXPECT_NE(seeded.find(suite + "/" + name + " "), std::string::npos) << suite << "/" << name;
    }
  }
}

TEST_F(Checkers, InspectTellsComponentsAndSlots) {
  const std::string text = Check("inspect " + module_).output;
  for (const char* const part :
       {"exports  CreateFunction  InitializeModule\n", "QELFilterTransform\n", "10 Median",
        "IQELMaths  2916D602-45130000-00000000-00000000", "this processor has  sse2"}) {
    EXPECT_NE(text.find(part), std::string::npos) << part << text;
  }
  for (int i = 0; i < kCpuLevelCount; ++i) {
    const std::string level = LevelName(static_cast<CpuLevel>(i));
    EXPECT_NE(Check("inspect " + Built("tests/modules/QELMaths_" + level + ".so"))
                  .output.find("level in use        " + level + "\n"),
              std::string::npos);
  }
  EXPECT_NE(Check("inspect " + collections_).output.find("does not tell"), std::string::npos);
}

}  // namespace
}  // namespace qel::test
