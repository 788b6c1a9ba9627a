#include <base64.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

/// In a buffer of exactly the size that is asked for.
std::string decoded(const std::string& text, std::size_t capacity) {
  std::vector<unsigned char> output(capacity + 1);
  std::size_t length = 0;
  EXPECT_EQ(jobm::base64_decode(text.data(), text.size(), output.data(), &length), output.data());
  EXPECT_LE(length, capacity);
  EXPECT_EQ(output[capacity], 0) << "written behind the end";
  return {output.begin(), output.begin() + static_cast<std::ptrdiff_t>(length)};
}

TEST(Base64, EncodesAndDecodesTheKnownTexts) {
  struct Case {
    std::string plain, text;
  };
  const Case cases[] = {{"f", "Zg=="},
                        {"fo", "Zm8="},
                        {"foo", "Zm9v"},
                        {std::string("\xFB\xFF\xBF\0\x10", 5), "+/+/ABA="}};
  for (const Case& c : cases) {
    EXPECT_EQ(decoded(c.text, c.plain.size()), c.plain);
    std::string encoded(c.text.size(), '\0');
    std::size_t length = 0;
    jobm::base64_encode(reinterpret_cast<const unsigned char*>(c.plain.data()), c.plain.size(),
                        encoded.data(), &length);
    EXPECT_EQ(encoded.substr(0, length), c.text);
  }
  EXPECT_EQ(decoded("Zg==Zm9v", 6).size(), 6U) << "padding in the middle is zeros";
}

TEST(Base64, ABrokenRequirementEndsTheProcess) {
  unsigned char output[8];
  std::size_t length = 0;
  EXPECT_DEATH(jobm::base64_decode("Zg=", 3, output, &length), "input_len % 4 == 0 && output");
  EXPECT_DEATH(jobm::base64_encode(output, 0, reinterpret_cast<char*>(output), &length),
               "input && input_len && output");
}

}  // namespace
