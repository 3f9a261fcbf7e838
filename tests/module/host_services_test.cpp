#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "tests/support/build_paths.h"
#include "tests/support/temporary_folder.h"

namespace qel::test {
namespace {

/// Runs scenarios of the probe in a working directory of their own, with or without modules in it.
class HostServices : public testing::Test {
 protected:
  void OfferModules(const std::string& folder = Built("_binLIN64")) const {
    std::filesystem::create_directory_symlink(folder, folder_ / "_binLIN64");
  }
  std::string Run(const std::string& scenario) const {
    // The string locator of the sibling module keeps a reference for the life of the process.
    const Outcome outcome = RunShell(
        "ASAN_OPTIONS=detect_leaks=0 " + Built("tests/host_services_probe ") + scenario, folder_);
    EXPECT_EQ(outcome.exit_code, 0) << outcome.errors;
    return outcome.output;
  }

  TemporaryFolder folder_;
};

constexpr char kImagesMade[] = "image yes\ndib yes\nanother yes\n";

/// The messages in `output`, each cut after the path, and everything else.
std::pair<std::vector<std::string>, std::string> Split(const std::string& output) {
  std::vector<std::string> messages;
  std::string rest;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    const size_t error = line.find(", error ");
    if (line.starts_with("Module not available ") && error != std::string::npos) {
      EXPECT_GT(line.size(), error + 10) << "the loader's reason";
      messages.push_back(line.substr(21, error - 21));
    } else {
      rest += line + "\n";
    }
  }
  return {messages, rest};
}

TEST_F(HostServices, FindTheCollectionThroughTheSiblingModule) {
  OfferModules();
  EXPECT_EQ(Run("lazy"), std::string("collection yes\nsame yes\n") + kImagesMade + "string yes\n");
}

// Nothing is remembered of a failure: each need looks again, and says so again.
TEST_F(HostServices, SayAtEveryTryThatTheModuleIsMissing) {
  const auto [messages, rest] = Split(Run("lazy"));
  // Two for the collection, one for the image; then the string locator, at both images and last.
  EXPECT_EQ(messages, std::vector<std::string>(6, "./_binLIN64/CollectionsEx.so"));
  EXPECT_EQ(rest, "collection no\nsame yes\nimage no\ndib no\nanother no\nstring no\n");
}

TEST_F(HostServices, UseTheCollectionHandedOverAndLookTheLocatorUpOnce) {
  const std::string images = std::string("given yes\n") + kImagesMade;
  const auto [messages, rest] = Split(Run("given"));
  EXPECT_EQ(messages.size(), 2u) << "only for the sibling module that the probe itself asks for";
  EXPECT_EQ(rest, images + "finds 1 creates 2\nshared no\nunknown no\n");
  OfferModules();
  EXPECT_EQ(Run("given"), images + "finds 1 creates 2\nshared yes\nunknown no\n");
}

TEST_F(HostServices, TakeStringsFromTheSiblingModuleWhenTheCollectionHasNone) {
  OfferModules();
  EXPECT_EQ(Run("no-strings"), kImagesMade);
}

// One reference of the holder and one for the life of the process, of the locator in use alone.
TEST_F(HostServices, LeaveNoReferenceToLocatorsThatAreNotUsed) {
  OfferModules(Built("tests/siblings"));
  EXPECT_EQ(Run("locator"),
            "part 4 thrown, 0 left\npart 1 thrown, 0 left\n1 left with 2 references\n");
}

TEST_F(HostServices, SayNothingOfLibrariesThatAreNoModules) {
  Dl_info library{};
  ASSERT_NE(dladdr(reinterpret_cast<void*>(static_cast<double (*)(double)>(&std::cbrt)), &library),
            0);
  std::filesystem::create_directory(folder_ / "_binLIN64");
  std::filesystem::create_symlink(library.dli_fname, folder_ / "_binLIN64/CollectionsEx.so");
  EXPECT_EQ(Run("lazy"), "collection no\nsame yes\nimage no\ndib no\nanother no\nstring no\n");
}

TEST_F(HostServices, RefuseNamesThatSpellNoPath) {
  const auto [messages, rest] = Split(Run("names"));
  EXPECT_EQ(messages, std::vector<std::string>{"./_binLIN64/" + std::string(248, 'n') + ".so"});
  EXPECT_EQ(rest, "found no\nfound no\nfound no\nfound no\n");
}

}  // namespace
}  // namespace qel::test
