#include <TempFolder.h>
#include <file_text.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

TEST(FileText, ReadsBackWhatWasWrittenAndSaysWhyItCanNot) {
  const test::TempFolder folder;
  std::string everyByte;
  for (int i = 0; i < 300000; ++i) everyByte += static_cast<char>(i * 7 % 256);
  std::string read;
  for (const std::string& text : {everyByte, std::string("short")}) {
    ASSERT_TRUE(jobm::writeFile(folder / "file", text)) << "a longer one was there before";
    EXPECT_TRUE(jobm::readFile(folder / "file", read));
    EXPECT_TRUE(read == text);
  }
  EXPECT_FALSE(jobm::readFile(folder.path(), read));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(read, "");
  for (const std::size_t size : {1U, 1U << 20}) {
    EXPECT_FALSE(jobm::writeFile("/dev/full", std::string(size, 'x')));
    EXPECT_EQ(errno, ENOSPC);
  }
}

}  // namespace
