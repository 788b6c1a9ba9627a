#include <aes/job_aes.h>
#include <base64.h>
#include <gtest/gtest.h>
#include <mbedtls/aes.h>

#include <algorithm>
#include <array>
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

struct Decryption {
  int result;
  std::string text;
};

Decryption decrypt(const std::string& text) {
  Decryption done{0, "untouched"};
  done.result = jobm::aesJobDecrypt(text, done.text);
  return done;
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
      {kSecret,
       "Il+TL6g/53qSp/R6KQpwhPZjocx5HgljYP/RAiNToOQ=", R"({"deployType":0,"resources":[]})"},
      {kSecret, "dVrH0OlTzdAMfwGLoOQlYYazCJiyLrv0mgdxVE7TJlI=", "0123456789abcdef"},
      {kSecret, "8e0vigRE75OF9smMbrm3VA==", "abc"},  // filled up with zeros
      {"short", "ffPaSmHsWEMWJlaMlLSGDw==", "hello"},
      {kSecret + "what is behind", "yYn9S5Twas8InQvvVVZCGA==", "hello"},
  };
  for (const Case& c : cases) {
    secret = c.secret;
    const Decryption done = decrypt(c.text);
    EXPECT_EQ(done.result, 0);
    EXPECT_EQ(done.text, c.plain);
  }
}

TEST_F(JobAes, FailsWithoutASecretAndForTextsThatDecodeToNothing) {
  EXPECT_EQ(decrypt("Zm9vYg=").result, -1);
  secret.clear();
  EXPECT_EQ(decrypt("yYn9S5Twas8InQvvVVZCGA==").result, -1);
  const Decryption empty = decrypt("");
  EXPECT_EQ(empty.result, 0);
  EXPECT_EQ(empty.text, "untouched");
}

TEST_F(JobAes, PaddingThatIsLongerThanTheTextIsAFailure) {
  for (const int pad : {17, 125, 255}) {
    EXPECT_EQ(decrypt(encrypted(std::string(15, 'x') + static_cast<char>(pad))).result, -1) << pad;
  }
  const Decryption all = decrypt(encrypted(std::string(31, 'x') + '\x20'));
  EXPECT_EQ(all.result, 0) << "padding that is the whole text leaves an empty one";
  EXPECT_EQ(all.text, "");
}

TEST_F(JobAes, IgnoresWhatIsMoreThanWholeBlocks) {
  const std::string block = std::string(15, 'x') + '\x01';
  const Decryption done = decrypt(encrypted(block + "rest"));
  EXPECT_EQ(done.result, 0);
  EXPECT_EQ(done.text, block);
}

TEST_F(JobAes, AShortSourceCountsAsABlockThatZerosFillUp) {
  const unsigned char* key = bytesOf(kSecret);
  const Bytes source{1, 2, 3};
  Bytes filled(16, 0);
  std::copy(source.begin(), source.end(), filled.begin());
  Bytes fromShort(17, 0xEE);
  Bytes fromFilled(17, 0xEE);
  const int length =
      jobm::vexa_aes_cbc_decrypt_256(source.data(), source.size(), key, fromShort.data(), key);
  const int filledLength =
      jobm::vexa_aes_cbc_decrypt_256(filled.data(), filled.size(), key, fromFilled.data(), key);
  EXPECT_EQ(filledLength - length, 13);
  EXPECT_EQ(Bytes(fromShort.begin(), fromShort.begin() + 16),
            Bytes(fromFilled.begin(), fromFilled.begin() + 16));
}

}  // namespace
