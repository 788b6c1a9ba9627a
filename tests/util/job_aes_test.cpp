#include "util/aes/job_aes.h"

#include <cctype>

#include "support/test.h"
#include "util/base64.h"

namespace {

TEST(Base64, gives_back_what_it_was_given_and_writes_nothing_behind_it) {
  using namespace std::string_literals;
  const std::pair<std::string, std::string> cases[] = {
      {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xFB\xFF\xBF\0"s, "+/+/AA=="}};
  for (const auto& [plain, text] : cases) {
    std::basic_string<unsigned char> decoded(plain.size() + 1, 'x');
    std::size_t length = 0;
    jobm::base64_decode(text.data(), text.size(), decoded.data(), &length);
    EXPECT_EQ(std::string(decoded.begin(), decoded.end()), plain + 'x');
    std::string encoded(text.size(), '\0');
    jobm::base64_encode(decoded.data(), length, encoded.data(), &length);
    EXPECT_EQ(encoded.substr(0, length), text);
  }
}

TEST(Base64, is_every_four_characters_of_the_alphabet_and_nothing_else) {
  EXPECT_FALSE(jobm::isBase64("AAAAAA"));
  for (int c = 0; c < 256; ++c) {
    for (const std::size_t at : {0U, 1027U}) {
      std::string text(1028, '=');
      text[at] = static_cast<char>(c);
      const bool inAlphabet = std::isalnum(c) != 0 || c == '+' || c == '/' || c == '=';
      EXPECT_EQ(jobm::isBase64(text), inAlphabet) << c << " at " << at;
    }
  }
}

std::string secret;

// The texts were encrypted by another program, whole blocks at a time.
TEST(JobAes, decrypts_what_others_encrypted_and_refuses_impossible_padding) {
  const std::string full = "0123456789abcdef0123456789ABCDEF";
  const std::tuple<std::string, std::string, std::optional<std::string>> cases[] = {
      {full, "dVrH0OlTzdAMfwGLoOQlYYazCJiyLrv0mgdxVE7TJlI=", "0123456789abcdef"},
      {full, "8e0vigRE75OF9smMbrm3VA==", "abc"},  // filled up with zeros
      {"short", "ffPaSmHsWEMWJlaMlLSGDw==", "hello"},
      {full + "what is behind", "yYn9S5Twas8InQvvVVZCGA==", "hello"},
      {"", "yYn9S5Twas8InQvvVVZCGA==", std::nullopt},
      {full, "Zm9vYg=", std::nullopt},
      {full, "JFdPWdAiC/IdbmcW56x9oQ==", std::nullopt},            // 17 bytes of padding in 16
      {full, "jyqlSXgvAIKnVhN8w8KNn4rBtit0CRA4H2qFaN72f60=", ""},  // 32 in 32
      {full,
       "4dsG4dO85MYoF45gZKplmnJlc3Q=", "xxxxxxxxxxxxxxx\x01"},  // four bytes more than a block
  };
  jobm::setDeviceSecretReader([] { return secret; });
  for (const auto& [key, text, expected] : cases) {
    secret = key;
    std::string plain = "untouched";
    EXPECT_EQ(jobm::aesJobDecrypt(text, plain), expected ? 0 : -1) << text;
    EXPECT_EQ(plain, expected.value_or(plain)) << text;
  }
}

}  // namespace
