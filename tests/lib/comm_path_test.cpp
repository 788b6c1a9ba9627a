#include <CapturedLog.h>
#include <TempFolder.h>
#include <comm_path.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using namespace std::string_literals;

TEST(CommPath, NamesThatLeadElsewhereAreRefused) {
  EXPECT_EQ(jobm::jobPath("IFTTT", "Name.KEPT"), "/tarnvale/run/downloaded-job/ifttt/Name.KEPT");
  for (const std::string& name : {"."s, ".."s, "a/b"s, "../x"s, "a\0b"s}) {
    EXPECT_EQ(jobm::jobPath("kind", name), "") << name;
    EXPECT_EQ(jobm::jobPath(name, "job"), "") << name;
    EXPECT_EQ(jobm::kindPath(name), "") << name;
    EXPECT_EQ(jobm::generateDir("kind", name), "") << name;
  }
  for (const std::string& name : {"..."s, "a..b"s}) EXPECT_NE(jobm::jobPath("kind", name), "");
}

TEST(CommPath, GenerateDirGivesUpAfterThreeAttempts) {
  std::ofstream("/tarnvale/run") << "a file in the way";
  const test::CapturedLog log;
  EXPECT_EQ(jobm::generateDir("kind", "7"), "");
  EXPECT_EQ(log.count("Dir str = /tarnvale/run/downloaded-job/kind/7 len =35 \n"), 3U);
  EXPECT_EQ(log.count("mkdir Error path = /tarnvale/run/downloaded-job/kind/7\n"), 1U);
  fs::remove("/tarnvale/run");
  EXPECT_TRUE(fs::is_directory(jobm::generateDir("kind", "7")));
}

TEST(CommPath, MkDirMakesEveryMissingParentAndChangesNothingElse) {
  const test::TempFolder folder;
  const mode_t before = umask(0);
  EXPECT_EQ(jobm::mkDir(folder / "a/b//c/"), 0);
  umask(before);
  EXPECT_EQ(fs::status(folder / "a/b/c").permissions(), fs::perms(0755));
  std::ofstream(folder / "file") << "x";
  EXPECT_NE(jobm::mkDir(folder / "file/b/c"), 0) << "a parent can't be made";
}

TEST(CommPath, DeletingATreeFollowsNoLink) {
  const test::TempFolder folder;
  for (const char* directory : {"kept", "tree/.hidden/deep"}) {
    fs::create_directories(folder / directory);
    std::ofstream(folder / directory + "/file") << "x";
  }
  fs::create_symlink(folder / "kept", folder / "tree/link");
  fs::create_symlink(folder / "kept", folder / "link");
  EXPECT_EQ(jobm::rmDir(folder / "tree") + jobm::rmDir(folder / "link"), 0);
  EXPECT_FALSE(fs::exists(folder / "tree") || fs::is_symlink(folder / "link"));
  EXPECT_TRUE(fs::exists(folder / "kept/file"));
  EXPECT_NE(jobm::rmDir(folder / "tree"), 0) << "already gone";
}

}  // namespace
