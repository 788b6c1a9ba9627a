#include "util/task_unzip.h"

#include <sys/resource.h>

#include "support/Archive.h"
#include "support/test.h"

using namespace test;

namespace {

class Unzip : public testing::Test {
 protected:
  Unzip() {
    fs::remove_all(folder);
    fs::create_directory(folder);
  }
  int unzip(const std::string& bytes) {
    EXPECT_TRUE(jobm::writeFile(archive, bytes));
    return jobm::unzipTask(archive, destination);
  }
  int unzip(const std::vector<ZipEntry>& entries) { return unzip(zipOf(entries)); }
  std::string text(const std::string& name) const {
    std::string read;
    return jobm::readFile(destination + "/" + name, read) ? read : "(none)";
  }

  const fs::path folder = "/tmp/var/unzip";
  const std::string archive = folder / "archive.zip";
  const std::string destination = folder / "destination";
  const std::string outside = folder / "outside";
};

TEST_F(Unzip, makes_unix_files_executable_and_replaces_what_is_there) {
  fs::create_directories(destination + "/real");
  ASSERT_TRUE(jobm::writeFile(outside, "outside"));
  fs::create_directory_symlink("real", destination + "/inside");
  fs::create_symlink(folder / "new", destination + "/link");
  fs::create_hard_link(outside, destination + "/hard");
  EXPECT_EQ(unzip({{"a/unix", "1", kFile},
                   {"dos", "2", 0x20, 0},
                   {"..name/...", "3"},
                   {"inside/new/x", "4"},
                   {"link", "5", kLink},
                   {"hard", "6"}}),
            0);
  EXPECT_EQ(text("a/unix") + text("dos") + text("..name/...") + text("real/new/x"), "1234");
  EXPECT_EQ(text("link") + text("hard") + text("../outside"), "56outside");
  EXPECT_EQ(fs::status(destination + "/a/unix").permissions(), fs::perms(0775));
  EXPECT_EQ(fs::status(destination + "/dos").permissions() & fs::perms(0111), fs::perms::none);
  EXPECT_TRUE(fs::symlink_status(destination + "/link").type() == fs::file_type::regular);
}

TEST_F(Unzip, refuses_entries_that_would_lie_outside_before_any_file_is_made) {
  fs::create_directories(outside);
  fs::create_directories(destination);
  fs::create_symlink("../outside", destination + "/link");
  const std::string names[] = {outside + "/x",  "a/../../outside/x", "a/..",
                               "../outside/x/", "link/new/x",        "link/new/"};
  for (const std::string& name : names) {
    EXPECT_EQ(unzip({{"first", "x"}, {name, "x"}}), 5) << name;
    EXPECT_TRUE(fs::is_empty(outside)) << name;
    EXPECT_EQ(text("first"), "(none)") << name;
  }
}

TEST_F(Unzip, reports_what_is_wrong_with_an_archive) {
  const std::string good = zipOf({{"first", "x"}, {"second", "aaaa"}});
  const std::string record = "PK\x01\x02";
  const std::tuple<std::size_t, char, int> cases[] = {
      {good.find(record), 'X', 3},       // the first entry's record
      {good.rfind(record) + 10, 99, 4},  // an unknown method
      {good.find("second") + 6, 3, 6},   // data that ends at once
      {good.rfind(record), 'X', 7},      // the last entry's record
  };
  for (const auto& [at, byte, expected] : cases) {
    std::string bytes = good;
    bytes[at] = byte;
    EXPECT_EQ(unzip(bytes), expected) << at;
  }
}

// Archivers that leave the 64-bit record out state 65,535 for any greater number.
TEST_F(Unzip, unpacks_more_entries_than_an_archive_can_state_and_notices_damage_among_them) {
  std::vector<ZipEntry> entries(65540, {"folder/", "", 0, 0});
  entries.back() = {"last", "text"};
  std::string bytes = zipOf(entries);
  const std::size_t end = bytes.rfind("PK\x05\x06");
  bytes.replace(end + 8, 4, 4, '\xFF');
  const std::size_t record64 = bytes.rfind("PK\x06\x06");
  if (record64 != std::string::npos) bytes.erase(record64, end - record64);
  EXPECT_EQ(unzip(bytes), 0);
  EXPECT_EQ(text("last"), "text");
  bytes[bytes.rfind("PK\x01\x02")] = 'X';
  EXPECT_EQ(unzip(bytes), 7);
}

TEST_F(Unzip, data_that_can_not_be_written_is_no_success) {
  const std::string bytes = zipOf({{"file", std::string(100000, 'x')}});
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{50000, before.rlim_max};
  signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  EXPECT_EQ(unzip(bytes), 6);
  setrlimit(RLIMIT_FSIZE, &before);
}

}  // namespace
