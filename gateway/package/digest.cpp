#include "digest.h"

#include <openssl/evp.h>

#include <array>
#include <fstream>
#include <memory>
#include <vector>

namespace gateway {
namespace {

constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kVectorBytes = 16;
constexpr std::size_t kReadBytes = 65536;

struct DigestFreer {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
struct CipherFreer {
  void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};

const unsigned char* bytesOf(const std::string& text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

std::string base64(const std::vector<unsigned char>& bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                                     static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

}  // namespace

std::string md5OfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::unique_ptr<EVP_MD_CTX, DigestFreer> context(EVP_MD_CTX_new());
  if (!file || !context || EVP_DigestInit_ex(context.get(), EVP_md5(), nullptr) != 1) return "";
  std::vector<char> buffer(kReadBytes);
  while (file) {
    file.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
    EVP_DigestUpdate(context.get(), buffer.data(), static_cast<std::size_t>(file.gcount()));
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> sum{};
  unsigned int length = 0;
  if (file.bad() || EVP_DigestFinal_ex(context.get(), sum.data(), &length) != 1) return "";
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    constexpr const char* kDigits = "0123456789abcdef";
    text += kDigits[sum[i] >> 4];
    text += kDigits[sum[i] & 15];
  }
  return text;
}

std::string seal(const std::string& text, const std::string& secret) {
  std::string key = secret;
  key.resize(kKeyBytes, '\0');
  const std::string vector = key.substr(0, kVectorBytes);
  const std::unique_ptr<EVP_CIPHER_CTX, CipherFreer> context(EVP_CIPHER_CTX_new());
  std::vector<unsigned char> sealed(text.size() + kVectorBytes);
  int length = 0;
  int rest = 0;
  const bool good = context &&
                    EVP_EncryptInit_ex(context.get(), EVP_aes_256_cbc(), nullptr, bytesOf(key),
                                       bytesOf(vector)) == 1 &&
                    EVP_EncryptUpdate(context.get(), sealed.data(), &length, bytesOf(text),
                                      static_cast<int>(text.size())) == 1 &&
                    EVP_EncryptFinal_ex(context.get(), sealed.data() + length, &rest) == 1;
  if (!good) return "";
  sealed.resize(static_cast<std::size_t>(length) + static_cast<std::size_t>(rest));
  return base64(sealed);
}

}  // namespace gateway
