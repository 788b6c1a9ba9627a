#include <aes/job_aes.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace {

const std::string kSecret = "0123456789abcdef0123456789ABCDEF";
std::string secret;

// The texts were encrypted by another program, whole blocks at a time.
TEST(JobAes, DecryptsWhatOthersEncryptedAndRefusesImpossiblePadding) {
  struct Case {
    std::string secret, text;
    std::optional<std::string> plain;
  };
  const Case cases[] = {
      {kSecret, "yYn9S5Twas8InQvvVVZCGA==", "hello"},
      {kSecret, "dVrH0OlTzdAMfwGLoOQlYYazCJiyLrv0mgdxVE7TJlI=", "0123456789abcdef"},
      {kSecret, "8e0vigRE75OF9smMbrm3VA==", "abc"},  // filled up with zeros
      {"short", "ffPaSmHsWEMWJlaMlLSGDw==", "hello"},
      {kSecret + "what is behind", "yYn9S5Twas8InQvvVVZCGA==", "hello"},
      {"", "yYn9S5Twas8InQvvVVZCGA==", std::nullopt},
      {kSecret, "Zm9vYg=", std::nullopt},
      {kSecret, "", "untouched"},
      {kSecret, "JFdPWdAiC/IdbmcW56x9oQ==", std::nullopt},            // 17 bytes of padding in 16
      {kSecret, "r1vFFlPza8nwh5xJPgGHJg==", std::nullopt},            // 255
      {kSecret, "jyqlSXgvAIKnVhN8w8KNn4rBtit0CRA4H2qFaN72f60=", ""},  // 32 in 32
      {kSecret,
       "4dsG4dO85MYoF45gZKplmnJlc3Q=", "xxxxxxxxxxxxxxx\x01"},  // four bytes more than a block
  };
  jobm::setDeviceSecretReader([] { return secret; });
  for (const Case& c : cases) {
    secret = c.secret;
    std::string plain = "untouched";
    const int result = jobm::aesJobDecrypt(c.text, plain);
    EXPECT_EQ(result, c.plain ? 0 : -1) << c.text;
    EXPECT_EQ(plain, c.plain.value_or(plain)) << c.text;
  }
}

}  // namespace
