// Base64 texts and encrypted packages. The first byte is the length of the device's secret, the
// rest is the text, once as it came and once as a plain text that was encrypted properly.
#include <base64.h>
#include <mbedtls/aes.h>
#include <util/aes/job_aes.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "support.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kBlock = 16;
std::string secret;

// Buffers of exactly the promised sizes: one byte further is a finding.
Bytes decoded(const std::string& text) {
  Bytes bytes(text.size() / 4 * 3);
  std::size_t length = 0;
  unsigned char none = 0;
  jobm::base64_decode(text.data(), text.size(), bytes.empty() ? &none : bytes.data(), &length);
  fuzz::require(length <= bytes.size(), "a decoded text has three quarters of the length");
  bytes.resize(length);
  return bytes;
}

std::string encoded(const Bytes& bytes) {
  std::string text((bytes.size() + 2) / 3 * 4, '\0');
  std::size_t length = 0;
  jobm::base64_encode(bytes.data(), bytes.size(), text.data(), &length);
  fuzz::require(length == text.size(), "every three bytes become four characters");
  return text;
}

std::array<unsigned char, 32> key() {
  std::array<unsigned char, 32> bytes{};
  std::copy_n(secret.begin(), std::min(secret.size(), bytes.size()), bytes.begin());
  return bytes;
}

std::string encrypted(const std::string& text) {
  const std::size_t pad = kBlock - text.size() % kBlock;
  Bytes bytes(text.begin(), text.end());
  bytes.insert(bytes.end(), pad, static_cast<unsigned char>(pad));
  auto vector = key();
  mbedtls_aes_context context;
  mbedtls_aes_init(&context);
  mbedtls_aes_setkey_enc(&context, key().data(), 256);
  mbedtls_aes_crypt_cbc(&context, MBEDTLS_AES_ENCRYPT, bytes.size(), vector.data(), bytes.data(),
                        bytes.data());
  mbedtls_aes_free(&context);
  return encoded(bytes);
}

void decryptBothWays(const Bytes& cipher) {
  const std::size_t room = std::max(cipher.size(), kBlock) + 1;
  Bytes apart(room);
  Bytes inPlace = cipher;
  inPlace.resize(room);
  const int length = jobm::vexa_aes_cbc_decrypt_256(cipher.data(), cipher.size(), key().data(),
                                                    apart.data(), key().data());
  const int again = jobm::vexa_aes_cbc_decrypt_256(inPlace.data(), cipher.size(), key().data(),
                                                   inPlace.data(), key().data());
  fuzz::require(length == again, "decrypting in place changes nothing");
  fuzz::require(length <= static_cast<int>(cipher.size()), "a text never grows");
  const std::size_t text = length > 0 ? static_cast<std::size_t>(length) : 0;
  // Behind the whole blocks nothing is decrypted, and nothing promised.
  const std::size_t same = std::min(text, std::max(cipher.size() / kBlock * kBlock, kBlock));
  fuzz::require(std::equal(apart.begin(), apart.begin() + static_cast<long>(same), inPlace.begin()),
                "decrypting in place gives the same text");
  fuzz::require(length < 0 || apart[text] == 0, "a text is ended");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  secret = std::string("0123456789abcdef0123456789abcdefABCDEFGH").substr(0, data[0] % 41);
  jobm::setDeviceSecretReader([] { return secret; });
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

  if (jobm::isBase64(text)) {
    const Bytes bytes = decoded(text);
    fuzz::require(bytes.empty() || decoded(encoded(bytes)) == bytes, "bytes survive base64");
    decryptBothWays(bytes);
  }
  std::string plain;
  const int result = jobm::aesJobDecrypt(text, plain);
  fuzz::require(result == 0 || result == -1, "decryption works or not");
  fuzz::require(plain.size() <= std::max(size, kBlock), "a package never grows");

  plain.clear();
  const bool works = jobm::aesJobDecrypt(encrypted(text), plain) == 0;
  fuzz::require(works == !secret.empty(), "a proper package is decrypted");
  fuzz::require(!works || plain == fuzz::upToZero(text), "up to its first zero byte");
  return 0;
}
