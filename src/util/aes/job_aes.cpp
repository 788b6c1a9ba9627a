#include "util/aes/job_aes.h"

#include <gateway/log_macros.h>
#include <gateway/output.h>
#include <mbedtls/aes.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <climits>
#include <cstring>
#include <memory>
#include <utility>

#include "util/base64.h"

namespace jobm {
namespace {

constexpr std::size_t kBlock = 16;
constexpr std::size_t kKeyBytes = 32;
constexpr unsigned kKeyBits = 256;

std::atomic<std::string (*)()> secretReader{nullptr};

struct DecryptContext {
  mbedtls_aes_context aes{};
  std::array<unsigned char, kBlock> vector{};
};
struct FreeContext {
  void operator()(DecryptContext* context) const {
    mbedtls_aes_free(&context->aes);
    std::default_delete<DecryptContext>()(context);
  }
};
using DecryptContextPtr = std::unique_ptr<DecryptContext, FreeContext>;

/// Null when the key can't be set up.
DecryptContextPtr makeContext(const unsigned char* key, const unsigned char* vector) {
  DecryptContextPtr context(std::make_unique<DecryptContext>().release());
  mbedtls_aes_init(&context->aes);
  if (mbedtls_aes_setkey_dec(&context->aes, key, kKeyBits) != 0) return nullptr;
  std::copy_n(vector, kBlock, context->vector.begin());
  return context;
}

/// Decrypts whole blocks; the next call continues where this one ended.
bool decrypt(DecryptContext& context, const unsigned char* source, std::size_t length,
             unsigned char* destination) {
  return mbedtls_aes_crypt_cbc(&context.aes, MBEDTLS_AES_DECRYPT, length, context.vector.data(),
                               source, destination) == 0;
}

/// The 32 bytes of the key, of which the first 16 are the vector as well; zeros fill up a short
/// secret.
std::array<unsigned char, kKeyBytes> keyOf(const std::string& secret) {
  std::array<unsigned char, kKeyBytes> key{};
  std::copy_n(secret.begin(), std::min(secret.size(), key.size()), key.begin());
  return key;
}

}  // namespace

void setDeviceSecretReader(std::string (*reader)()) { secretReader.store(reader); }

int aesJobDecrypt(std::string text, std::string& out) {
  if (text.empty()) return 0;
  std::string (*const reader)() = secretReader.load();
  const std::string secret = reader != nullptr ? reader() : std::string();
  if (secret.empty()) return -1;
  // Not base64; the decoder would abort the process.
  if (text.size() % 4 != 0) return -1;

  // Decoded and decrypted in place, because a package may be large. The byte behind it stays zero
  // and ends the text.
  const std::size_t size = text.size();
  std::size_t decodedLength = 0;
  base64_decode(text.data(), size, reinterpret_cast<unsigned char*>(text.data()), &decodedLength);
  LOGI("%s %d size =%d after base64_decode pLen = %d\n", __func__, __LINE__, static_cast<int>(size),
       static_cast<int>(decodedLength));
  text.resize(decodedLength);
  text.resize(std::max(decodedLength, kBlock) + 1);
  auto* const bytes = reinterpret_cast<unsigned char*>(text.data());

  // Bytes behind the last whole block are no text, even where the padding says so.
  if (decodedLength > kBlock) {
    std::fill(bytes + decodedLength / kBlock * kBlock, bytes + decodedLength, 0);
  }
  const auto key = keyOf(secret);
  const int length = vexa_aes_cbc_decrypt_256(bytes, decodedLength, key.data(), bytes, key.data());
  // A cipher that failed leaves an empty text and is a success, see "A package that could not be
  // written or decrypted" in docs/architecture.md.
  text.resize(length == 0 ? 0 : std::strlen(text.c_str()));
  out = std::move(text);
  return length >= 0 && decodedLength > 0 ? 0 : -1;
}

int vexa_aes_cbc_decrypt_256(const unsigned char* source, std::size_t length,
                             const unsigned char* key, unsigned char* destination,
                             const unsigned char* vector) {
  if (length > INT_MAX) return 0;
  const DecryptContextPtr context = makeContext(key, vector);
  if (!context) {
    gateway::printGuarded("fail to decrypt");
    return 0;
  }
  const std::size_t blocks = std::max<std::size_t>(length / kBlock, 1);
  const std::size_t last = (blocks - 1) * kBlock;
  if (last > 0 && !decrypt(*context, source, last, destination)) return 0;

  // Zeros fill up a source that is shorter than a block.
  std::array<unsigned char, kBlock> block{};
  std::copy_n(source + last, std::min(length, kBlock), block.begin());
  destination[last] = 0;
  if (!decrypt(*context, block.data(), kBlock, destination + last)) return 0;

  // With a wrong key the last byte is any, and may exceed the length.
  const int unpadded = static_cast<int>(length) - destination[last + kBlock - 1];
  if (unpadded >= 0) destination[unpadded] = 0;
  return unpadded;
}

}  // namespace jobm
