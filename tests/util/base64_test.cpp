#include <base64.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

TEST(Base64, EncodesAndDecodesTheKnownTexts) {
  struct Case {
    std::string plain, text;
  };
  const Case cases[] = {{"f", "Zg=="},
                        {"fo", "Zm8="},
                        {"foo", "Zm9v"},
                        {std::string("\xFB\xFF\xBF\0\x10", 5), "+/+/ABA="}};
  for (const Case& c : cases) {
    std::vector<unsigned char> decoded(c.plain.size() + 1, 'x');
    std::size_t length = 0;
    jobm::base64_decode(c.text.data(), c.text.size(), decoded.data(), &length);
    EXPECT_EQ(length, c.plain.size());
    EXPECT_EQ(std::string(decoded.begin(), decoded.end() - 1), c.plain);
    EXPECT_EQ(decoded.back(), 'x') << "written behind the end";
    std::string encoded(c.text.size(), '\0');
    jobm::base64_encode(decoded.data(), length, encoded.data(), &length);
    EXPECT_EQ(encoded.substr(0, length), c.text);
  }
}

TEST(Base64, IsEveryFourCharactersOfTheAlphabetHoweverManyThereAre) {
  for (const std::size_t size : {0U, 4U, 256U, 1028U}) {
    EXPECT_TRUE(jobm::isBase64(std::string(size, '/')));
    EXPECT_FALSE(jobm::isBase64(std::string(size + 2, 'A')));
    for (const std::size_t at : {std::size_t{0}, size / 2, size - 1}) {
      for (const char foreign : {'\0', '*', ',', '.', ':', '@', '[', '`', '{', '\xFF'}) {
        std::string text(size, '=');
        if (at < size) text[at] = foreign;
        EXPECT_EQ(jobm::isBase64(text), size == 0) << size << foreign << at;
      }
    }
  }
}

}  // namespace
