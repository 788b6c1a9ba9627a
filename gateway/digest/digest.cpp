#include "digest.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

namespace gateway {
namespace {

constexpr std::size_t kKeyBytes = 32;
constexpr std::size_t kVectorBytes = 16;

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

std::string md5Of(const std::string& text) {
  std::array<unsigned char, 16> sum{};
  std::array<char, 2 * sum.size() + 1> digits{};
  std::size_t written = 0;
  const bool good =
      EVP_Q_digest(nullptr, "MD5", nullptr, text.data(), text.size(), sum.data(), nullptr) == 1 &&
      OPENSSL_buf2hexstr_ex(digits.data(), digits.size(), &written, sum.data(), sum.size(), '\0');
  std::string lower = good ? digits.data() : "";
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

std::string md5OfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return file && !content.bad() ? md5Of(content.str()) : "";
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
