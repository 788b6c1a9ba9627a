#include <aes/job_aes.h>
#include <base64.h>
#include <gtest/gtest.h>
#include <mbedtls/aes.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

const std::string kSecret = "0123456789abcdef0123456789ABCDEF";
std::string secret;

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

/// aes-256-cbc under kSecret, whole blocks, as base64. What is more than that goes along as it is.
std::string encrypted(const std::string& plain) {
  mbedtls_aes_context context;
  mbedtls_aes_init(&context);
  mbedtls_aes_setkey_enc(&context, bytesOf(kSecret), 256);
  std::array<unsigned char, 16> vector{};
  std::copy_n(kSecret.begin(), vector.size(), vector.begin());
  Bytes cipher(plain.begin(), plain.end());
  mbedtls_aes_crypt_cbc(&context, MBEDTLS_AES_ENCRYPT, plain.size() / 16 * 16, vector.data(),
                        bytesOf(plain), cipher.data());
  mbedtls_aes_free(&context);
  std::string text(cipher.size() / 3 * 4 + 4, '\0');
  std::size_t length = 0;
  jobm::base64_encode(cipher.data(), cipher.size(), text.data(), &length);
  return text.substr(0, length);
}

/// Empty when that fails.
std::optional<std::string> decrypt(const std::string& text) {
  std::string plain = "untouched";
  if (jobm::aesJobDecrypt(text, plain) != 0) return std::nullopt;
  return plain;
}

class JobAes : public testing::Test {
 protected:
  JobAes() {
    secret = kSecret;
    jobm::setDeviceSecretReader([] { return secret; });
  }
};

TEST_F(JobAes, DecryptsWhatOthersEncrypted) {
  struct Case {
    std::string secret, text, plain;
  };
  const Case cases[] = {
      {kSecret, "yYn9S5Twas8InQvvVVZCGA==", "hello"},
      {kSecret, "dVrH0OlTzdAMfwGLoOQlYYazCJiyLrv0mgdxVE7TJlI=", "0123456789abcdef"},
      {kSecret, "8e0vigRE75OF9smMbrm3VA==", "abc"},  // filled up with zeros
      {"short", "ffPaSmHsWEMWJlaMlLSGDw==", "hello"},
      {kSecret + "what is behind", "yYn9S5Twas8InQvvVVZCGA==", "hello"},
  };
  for (const Case& c : cases) {
    secret = c.secret;
    EXPECT_EQ(decrypt(c.text), c.plain);
  }
}

TEST_F(JobAes, FailsWithoutASecretAndForTextsThatDecodeToNothing) {
  EXPECT_EQ(decrypt("Zm9vYg="), std::nullopt);
  secret.clear();
  EXPECT_EQ(decrypt("yYn9S5Twas8InQvvVVZCGA=="), std::nullopt);
  EXPECT_EQ(decrypt(""), "untouched");
}

TEST_F(JobAes, OddPaddingAndPartsOfBlocksLeadNowhereBad) {
  for (const char pad : {'\x11', '\x7D', '\xFF'}) {
    EXPECT_EQ(decrypt(encrypted(std::string(15, 'x') + pad)), std::nullopt) << int{pad};
  }
  EXPECT_EQ(decrypt(encrypted(std::string(31, 'x') + '\x20')), "");
  const std::string block = std::string(15, 'x') + '\x01';
  EXPECT_EQ(decrypt(encrypted(block + "rest")), block);
}

}  // namespace
