#include "pictures/atomic_file.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "pictures/temporary_name.h"
#include "tests/pictures/picture_support.h"

namespace qel::test {
namespace {

namespace fs = std::filesystem;
using pictures::AtomicFile;
using pictures::WriteFileAtomically;

constexpr uint8_t kNew[] = {'n', 'e', 'w'};

size_t CountFiles(const fs::path& folder) {
  return static_cast<size_t>(std::distance(fs::directory_iterator(folder), {}));
}

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(stat(path.c_str(), &status), 0);
  return status.st_mode & 07777;
}

class AtomicFileTest : public testing::Test {
 protected:
  AtomicFileTest() { WriteFile(old_, "old"); }

  /// The old file is what it was, and nothing was left beside it.
  void ExpectNothingHappened() {
    EXPECT_EQ(ReadFile(old_), "old");
    EXPECT_EQ(CountFiles(folder_.path()), 1u);
  }

  TemporaryFolder folder_;
  std::string old_ = folder_ / "file";
};

TEST_F(AtomicFileTest, ReplacesOnCommitOnlyAndKeepsTheMode) {
  fs::permissions(old_, fs::perms(0640));
  {
    AtomicFile file(old_);
    file.Write(kNew);
    ExpectNothingHappened();
  }
  ExpectNothingHappened();
  AtomicFile file(old_);
  file.Write(kNew);
  file.Write(kNew);
  file.Commit();
  EXPECT_EQ(ReadFile(old_), "newnew");
  EXPECT_EQ(ModeOf(old_), 0640u);
  EXPECT_EQ(CountFiles(folder_.path()), 1u);
}

TEST_F(AtomicFileTest, NewFilesFollowTheUmask) {
  const mode_t mask = umask(027);
  WriteFileAtomically(folder_ / "fresh", kNew);
  umask(mask);
  EXPECT_EQ(ModeOf(folder_ / "fresh"), 0640u);
}

TEST_F(AtomicFileTest, OwnersStayAndNoOtherGroupGainsRights) {
  if (geteuid() != 0) GTEST_SKIP() << "only root may give files away";
  constexpr uid_t kOwner = 65534;
  constexpr gid_t kGroup = 4711, kOther = 4712;
  fs::permissions(folder_.path(), fs::perms(0777));
  const auto replace_as = [&](uid_t user, mode_t mode) {
    EXPECT_EQ(chown(old_.c_str(), kOwner, kGroup), 0);
    fs::permissions(old_, fs::perms(mode));
    EXPECT_EQ(setegid(kOther), 0);
    EXPECT_EQ(seteuid(user), 0);
    WriteFileAtomically(old_, kNew);
    EXPECT_EQ(seteuid(0), 0);
    EXPECT_EQ(setegid(0), 0);
    struct stat status {};
    EXPECT_EQ(stat(old_.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, kOwner);
    return std::pair(status.st_gid, status.st_mode & 07777);
  };
  EXPECT_EQ(replace_as(0, 0640), std::pair(kGroup, mode_t{0640}));
  EXPECT_EQ(replace_as(kOwner, 0664), std::pair(kOther, mode_t{0644}));
}

TEST_F(AtomicFileTest, FilesWithoutWritePermissionAreReplacedOnRequestOnly) {
  fs::permissions(old_, fs::perms(0444));
  EXPECT_EQ(KindOf([&] { WriteFileAtomically(old_, kNew); }), Kind::kNotWritable);
  ExpectNothingHappened();
  WriteFileAtomically(old_, kNew, pictures::Replace::kAny);
  EXPECT_EQ(ReadFile(old_), "new");
  EXPECT_EQ(ModeOf(old_), 0444u);
}

TEST_F(AtomicFileTest, StraysOfProcessesThatAreGoneAreRemovedAndNoOthers) {
  const pid_t child = fork();
  if (child == 0) _exit(0);
  const std::string own = pictures::TemporaryName();
  const size_t at = own.find("-" + std::to_string(getpid()) + "-") + 1;
  const size_t start = own.find('-', at) + 1;
  const std::string system = own.substr(0, at), number = std::to_string(child);
  const std::string ended = system + number + "-1-0.tmp";
  const std::string reused = own.substr(0, start) + "1-0.tmp";
  const std::string kept[] = {own, system + number + "-1.tmp", system + number + "-1-0.tmp.png",
                              ".qel-00000000-1-" + number + "-1-0.tmp", ".qel-1-0.tmp"};
  for (const std::string& name : kept) WriteFile(folder_ / name, "");
  waitpid(child, nullptr, 0);
  WriteFile(folder_ / ended, "");
  WriteFile(folder_ / reused, "");
  pictures::RemoveStrays(folder_.path());
  EXPECT_FALSE(fs::exists(folder_ / ended));
  EXPECT_FALSE(fs::exists(folder_ / reused)) << "its process number is that of another now";
  for (const std::string& name : kept) EXPECT_TRUE(fs::exists(folder_ / name)) << name;
}

TEST_F(AtomicFileTest, WritesThroughLinks) {
  const TemporaryFolder other;
  fs::create_symlink(old_, other / "link");
  WriteFileAtomically(other / "link", kNew);
  EXPECT_TRUE(fs::is_symlink(other / "link"));
  EXPECT_EQ(ReadFile(old_), "new");
}

TEST_F(AtomicFileTest, FailuresLeaveTheOldFile) {
  const auto write_to = [](const std::string& path) {
    return KindOf([&] { WriteFileAtomically(path, kNew); });
  };
  EXPECT_EQ(write_to(folder_ / "missing/file"), Kind::kNotWritable);
  EXPECT_EQ(write_to(folder_.path()), Kind::kNotWritable);
  EXPECT_EQ(write_to("/dev/null"), Kind::kNotWritable);
  ExpectNothingHappened();

  // A folder in the place of the file makes the renaming fail.
  {
    AtomicFile file(folder_ / "late");
    file.Write(kNew);
    fs::create_directory(folder_ / "late");
    EXPECT_EQ(KindOf([&] { file.Commit(); }), Kind::kNotWritable);
  }
  fs::remove(folder_ / "late");
  ExpectNothingHappened();

  fs::permissions(folder_.path(), fs::perms(0555));
  const uid_t self = geteuid();
  constexpr uid_t kNobody = 65534;  // the permissions of a folder do not bind root
  ASSERT_EQ(seteuid(self == 0 ? kNobody : self), 0);
  const Kind kind = write_to(old_);
  ASSERT_EQ(seteuid(self), 0);
  fs::permissions(folder_.path(), fs::perms(0755));
  EXPECT_EQ(kind, Kind::kNotWritable);
  ExpectNothingHappened();
}

}  // namespace
}  // namespace qel::test
