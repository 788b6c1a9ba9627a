// Base64 texts and encrypted packages. The first byte is the length of the device's secret, the
// rest is the text: as it came, as what it would be decoded, and as a plain text that was encrypted
// properly.
#include <algorithm>

#include "digest/digest.h"
#include "support.h"
#include "util/aes/job_aes.h"

namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::size_t kBlock = 16;
std::string secret;

// Buffers of exactly the promised sizes: one byte further is a finding.
void decrypt(const Bytes& cipher) {
  Bytes key(secret.begin(), secret.end());
  key.resize(32);
  Bytes plain(std::max(cipher.size(), kBlock) + 1, 1);
  const int end = jobm::vexa_aes_cbc_decrypt_256(cipher.data(), cipher.size(), key.data(),
                                                 plain.data(), key.data());
  fuzz::require(end <= static_cast<int>(cipher.size()), "a text never grows");
  fuzz::require(end < 0 || plain[static_cast<std::size_t>(end)] == 0, "a text is ended");
}

}  // namespace

void fuzz::check(const std::string& input) {
  if (input.empty()) return;
  const auto length = static_cast<unsigned char>(input.front());
  secret = std::string("0123456789abcdef0123456789abcdefABCDEFGH").substr(0, length % 41);
  jobm::setDeviceSecretReader([] { return secret; });
  const std::string text = input.substr(1);

  decrypt({text.begin(), text.end()});
  std::string plain;
  static_cast<void>(jobm::aesJobDecrypt(text, plain));
  require(plain.size() <= std::max(input.size(), kBlock), "a package never grows");

  plain.clear();
  const bool works = jobm::aesJobDecrypt(gateway::seal(text, secret), plain) == 0;
  require(works == !secret.empty(), "a proper package is decrypted");
  require(!works || plain == std::string_view(text.c_str()), "up to its first zero byte");
}
