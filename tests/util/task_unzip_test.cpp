#include <Archive.h>
#include <TempFolder.h>
#include <file_text.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <task_unzip.h>

#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

namespace {

namespace fs = std::filesystem;

class Unzip : public testing::Test {
 protected:
  int unzip(const std::vector<test::ZipEntry>& entries) {
    EXPECT_TRUE(jobm::writeFile(archive, test::zipOf(entries)));
    return jobm::unzipTask(archive, destination);
  }
  std::string text(const std::string& name) const {
    std::string read = "(none)";
    return jobm::readFile(destination + "/" + name, read) ? read : "(none)";
  }
  unsigned mode(const std::string& name) const {
    struct stat info {};
    EXPECT_EQ(lstat((destination + "/" + name).c_str(), &info), 0) << name;
    return info.st_mode;
  }

  const test::TempFolder folder;
  const std::string archive = folder / "archive.zip";
  const std::string destination = folder / "destination";
  const std::string outside = folder / "outside";
};

TEST_F(Unzip, UnpacksFilesAndMakesTheRegularOnesOfUnixExecutable) {
  std::string large;
  for (int i = 0; i < 100000; ++i) large += std::to_string(i * 7919);
  fs::create_directories(destination + "/real");
  fs::create_directory_symlink("real", destination + "/inside");
  const mode_t before = umask(022);
  EXPECT_EQ(unzip({{"a/unix", large, test::kFile},
                   {"stored", large, 0, 0},
                   {"dos", "", 0x20},
                   {"..name/...", "dots"},
                   {"inside/new/x", "through a link"},
                   {"link", "/etc/passwd", test::kLink},
                   {"folder/", "", 0}}),
            0);
  umask(before);
  EXPECT_TRUE(text("a/unix") == large && text("stored") == large);
  EXPECT_EQ(text("dos") + text("..name/...") + text("real/new/x"), "dotsthrough a link");
  EXPECT_EQ(mode("a/unix"), S_IFREG | 0775U);
  EXPECT_EQ(mode("dos"), S_IFREG | 0644U);
  EXPECT_EQ(mode("link"), S_IFREG | 0775U) << "the text of a link, no link";
  EXPECT_EQ(mode("folder"), S_IFDIR | 0755U);
}

TEST_F(Unzip, ReplacesWhatIsThereButNoDirectory) {
  fs::create_directories(destination + "/directory");
  ASSERT_TRUE(jobm::writeFile(outside, "outside"));
  fs::create_symlink(outside, destination + "/link");
  fs::create_symlink(folder / "new", destination + "/dangling");
  fs::create_hard_link(outside, destination + "/hard");
  EXPECT_EQ(unzip({{"link", "1"}, {"dangling", "2"}, {"hard", "3"}, {"directory", "4"}}), 5);
  EXPECT_EQ(text("link") + text("dangling") + text("hard"), "123");
  EXPECT_EQ(text("../outside"), "outside");
  EXPECT_FALSE(fs::exists(folder / "new"));
}

TEST_F(Unzip, RefusesEntriesThatWouldLieOutsideBeforeAnyFileIsMade) {
  fs::create_directories(outside);
  fs::create_directories(destination);
  fs::create_symlink("../outside", destination + "/link");
  const std::string names[] = {outside + "/x",  "../outside/x", "a/../../outside/x", "a/..",
                               "../outside/x/", "link/x",       "link/new/x",        "link/new/"};
  for (const std::string& name : names) {
    EXPECT_EQ(unzip({{"first", "x"}, {name, "x"}}), 5) << name;
    EXPECT_TRUE(fs::is_empty(outside)) << name;
    EXPECT_EQ(text("first"), "(none)") << name;
  }
}

TEST_F(Unzip, ReportsWhatIsWrongWithAnArchive) {
  struct Case {
    std::string text;    // the last of these, or the first one ...
    std::size_t offset;  // ... gets at this place ...
    bool last;
    char byte;  // ... this byte
    int expected;
  };
  const std::string record = "PK\x01\x02";
  const Case cases[] = {{record, 0, false, 'X', 3},
                        {record, 10, true, 99, 4},   // an unknown method
                        {"dd", 0, false, 'D', 6},    // a wrong checksum
                        {"second", 6, false, 3, 6},  // data that ends at once
                        {record, 0, true, 'X', 7}};
  for (const Case& c : cases) {
    std::string bytes = test::zipOf({{"first", "dddd", 0, 0}, {"second", "aaaa"}});
    bytes[(c.last ? bytes.rfind(c.text) : bytes.find(c.text)) + c.offset] = c.byte;
    ASSERT_TRUE(jobm::writeFile(archive, bytes));
    EXPECT_EQ(jobm::unzipTask(archive, destination), c.expected);
  }
}

// Archivers that leave the 64-bit record out state 65,535 for any greater number.
TEST_F(Unzip, UnpacksMoreEntriesThanAnArchiveCanStateAndNoticesDamageAmongThem) {
  std::vector<test::ZipEntry> entries(65540, {"folder/", "", 0, 0});
  entries.back() = {"last", "text"};
  std::string bytes = test::zipOf(entries);
  const std::string directory = "PK\x01\x02";
  const std::size_t end = bytes.rfind("PK\x05\x06");
  bytes.replace(end + 8, 4, 4, '\xFF');
  const std::size_t record64 = bytes.rfind("PK\x06\x06");
  if (record64 != std::string::npos) bytes.erase(record64, bytes.rfind("PK\x05\x06") - record64);
  ASSERT_TRUE(jobm::writeFile(archive, bytes));
  EXPECT_EQ(jobm::unzipTask(archive, destination), 0);
  EXPECT_EQ(text("last"), "text");
  bytes[bytes.rfind(directory)] = 'X';
  ASSERT_TRUE(jobm::writeFile(archive, bytes));
  EXPECT_EQ(jobm::unzipTask(archive, destination), 7);
}

TEST_F(Unzip, DataThatCanNotBeWrittenIsNoSuccess) {
  ASSERT_TRUE(jobm::writeFile(archive, test::zipOf({{"file", std::string(100000, 'x')}})));
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{50000, before.rlim_max};
  signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  EXPECT_EQ(jobm::unzipTask(archive, destination), 6);
  setrlimit(RLIMIT_FSIZE, &before);
  signal(SIGXFSZ, SIG_DFL);
}

}  // namespace
