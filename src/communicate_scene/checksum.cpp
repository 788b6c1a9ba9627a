#include <gateway/log_macros.h>
#include <openssl/evp.h>
#include <openssl/provider.h>
#include <strings.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "communicate_scene/download.h"

namespace jobm {
namespace {

// Larger files pass unchecked, to bound memory.
constexpr std::streamoff kMaxChecked = std::streamoff{20} * 1024 * 1024;

struct FreeLibrary {
  void operator()(OSSL_LIB_CTX* library) const { OSSL_LIB_CTX_free(library); }
};
struct UnloadProvider {
  void operator()(OSSL_PROVIDER* provider) const { OSSL_PROVIDER_unload(provider); }
};
struct FreeDigest {
  void operator()(EVP_MD* digest) const { EVP_MD_free(digest); }
};

// MD5 in a library context of our own, which no configuration file reaches: on a machine configured
// for FIPS the default context has no MD5, and every file would count as damaged. Nothing secret
// depends on this sum, which only tells a damaged file from a good one.
struct Md5 {
  std::unique_ptr<OSSL_LIB_CTX, FreeLibrary> library{OSSL_LIB_CTX_new()};
  std::unique_ptr<OSSL_PROVIDER, UnloadProvider> provider{
      OSSL_PROVIDER_load(library.get(), "default")};
  std::unique_ptr<EVP_MD, FreeDigest> digest{
      EVP_MD_fetch(library.get(), "MD5", "provider=default")};
};

// Empty when the digest can't be had.
std::string md5Of(const std::vector<char>& bytes) {
  static auto& md5 = *std::make_unique<std::unique_ptr<Md5>>().release();  // never freed
  // Tried again where there was no memory for it.
  if (!md5 || !md5->digest) md5 = std::make_unique<Md5>();
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (!md5->digest || EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length,
                                 md5->digest.get(), nullptr) != 1) {
    return {};
  }
  std::string text;
  for (unsigned int i = 0; i < length; ++i) {
    std::array<char, 3> hex{};
    std::snprintf(hex.data(), hex.size(), "%02x", digest[i]);
    text += hex.data();
  }
  return text;
}

}  // namespace

int checkFileMd5sum(const std::string& path, const std::string& expected) {
  LOGI("%s : %s ", path.c_str(), expected.c_str());
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) {
    LOGE("open file(%s) fail", path.c_str());
    return 0;
  }
  const std::streamoff size = file.tellg();
  LOGI("fileSize = %d", static_cast<int>(size));
  if (size > kMaxChecked) {
    LOGI("fileSize(%d) > 20M, ignore md5 checksum", static_cast<int>(size));
    return 1;
  }
  std::vector<char> bytes(size > 0 ? static_cast<std::size_t>(size) : 0);
  file.seekg(0);
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  const std::string sum = md5Of(bytes);
  if (file && !sum.empty() && strcasecmp(sum.c_str(), expected.c_str()) == 0) {
    LOGI("md5 checksum success (%s) == (%s)", sum.c_str(), expected.c_str());
    return 1;
  }
  LOGE("md5 checksum fail (%s) != (%s)", sum.c_str(), expected.c_str());
  return 0;
}

}  // namespace jobm
