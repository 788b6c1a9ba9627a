#include <TempFolder.h>
#include <file_text.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace {

TEST(FileText, ReadsBackWhatWasWritten) {
  const test::TempFolder folder;
  std::string everyByte;
  for (int i = 0; i < 300000; ++i) everyByte += static_cast<char>(i * 7 % 256);
  for (const std::string& text : {everyByte, std::string("short"), std::string()}) {
    ASSERT_TRUE(jobm::writeFile(folder / "file", text)) << "a longer one was there before";
    std::string read = "old";
    EXPECT_TRUE(jobm::readFile(folder / "file", read));
    EXPECT_TRUE(read == text);
  }
}

TEST(FileText, FailureSaysWhyAndLeavesNoText) {
  const test::TempFolder folder;
  std::string text = "old";
  EXPECT_FALSE(jobm::readFile(folder / "absent", text));
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(text, "");
  text = "old";
  EXPECT_FALSE(jobm::readFile(folder.path(), text));
  EXPECT_EQ(errno, EISDIR);
  EXPECT_EQ(text, "");
  EXPECT_FALSE(jobm::writeFile(folder / "no/such/folder", "x"));
  EXPECT_EQ(errno, ENOENT);
  for (const std::size_t size : {1U, 1U << 20}) {
    EXPECT_FALSE(jobm::writeFile("/dev/full", std::string(size, 'x')));
    EXPECT_EQ(errno, ENOSPC);
  }
}

}  // namespace
