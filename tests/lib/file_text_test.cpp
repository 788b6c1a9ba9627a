#include <TempFolder.h>
#include <file_text.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

// What is written and read back is what packages and downloads go through.
TEST(FileText, SaysWhyItCanNotBeReadOrWritten) {
  const test::TempFolder folder;
  std::string read = "what was there before";
  EXPECT_FALSE(jobm::readFile(folder.path(), read));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(read, "");
  for (const std::size_t size : {1U, 1U << 20}) {
    EXPECT_FALSE(jobm::writeFile("/dev/full", std::string(size, 'x')));
    EXPECT_EQ(errno, ENOSPC);
  }
}

}  // namespace
