#include "util/http_download_kiv.h"

#include <curl/curl.h>
#include <gateway/log_macros.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <system_error>
#include <utility>

#include "lib/file_text.h"
#include "transfer.h"
#include "util/aes/job_aes.h"
#include "util/base64.h"

namespace jobm {
namespace {

constexpr long kOkStatus = 200;
constexpr std::size_t kFileBuffer = 65536;
static_assert(kNoRoom == CURLE_WRITE_ERROR);

struct CloseFile {
  void operator()(FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using FilePtr = std::unique_ptr<FILE, CloseFile>;

/// What http_download returns for a transfer that ended so.
int resultOf(const Transfer& done, bool fileClosed) {
  if (done.result != CURLE_OK) return done.result;
  if (done.status != kOkStatus) return static_cast<int>(done.status);
  return fileClosed ? 0 : kNoRoom;
}

/// Half a file is of use to nobody, and others need the room.
void emptyFile(const std::string& path) {
  std::error_code failed;
  std::filesystem::resize_file(path, 0, failed);
}

/// What became of a package once it was here: errno of a failed file operation, result of the
/// decryption.
struct Stored {
  int fileError = 0;
  int decryption = 0;
};

Stored store(const std::string& path, const std::string& text) {
  return {writeFile(path, text) ? 0 : errno, 0};
}

Stored decryptInto(const std::string& path, std::string text) {
  std::string plain;
  const int result = aesJobDecrypt(std::move(text), plain);
  return result == 0 ? store(path, plain) : Stored{0, result};
}

Stored decryptFile(const std::string& path) {
  std::string text;
  if (!readFile(path, text)) return {errno, 0};
  return isBase64(text) ? decryptInto(path, std::move(text)) : Stored{};
}

/// The package is `source` itself.
Stored storeInline(const std::string& source, const std::string& path, bool encrypted) {
  // Opened before anything is decrypted: a failed decryption leaves an empty file.
  const Stored opened = store(path, {});
  if (opened.fileError != 0) return opened;
  return encrypted && isBase64(source) ? decryptInto(path, source) : store(path, source);
}

}  // namespace

int curl_init() {
  const CURLcode result = curl_global_init(CURL_GLOBAL_ALL);
  LOGI("curl_global_init ret = %d\n", static_cast<int>(result));
  return result;
}

int http_download(const std::string& url, const std::string& path) {
  int result = -1;
  // Must outlive the file. A large buffer saves a quarter of the time of a large transfer. Kept
  // between transfers, because freeing a block of this size makes malloc trim its heap every time.
  thread_local const auto buffer = std::make_unique_for_overwrite<std::array<char, kFileBuffer>>();
  if (FilePtr file{std::fopen(path.c_str(), "we")}) {
    std::setvbuf(file.get(), buffer->data(), _IOFBF, buffer->size());
    const Transfer done = transfer(url, file.get());
    LOGI("http_download http_code = %ld\n", done.status);
    LOGI("curl_easy_perform ret = %d cost = %f\n", static_cast<int>(done.result), done.seconds);
    // A full disk may show only when the file is closed.
    result = resultOf(done, std::fclose(file.release()) == 0);
    if (result == kNoRoom) emptyFile(path);
  }
  LOGI("http_download finish ret = %d\n", result);
  return result;
}

int downloadJob(const std::string& source, const std::string& storage, const std::string& path,
                bool encrypted) {
  const bool isUrl = storage == "kiv";
  if (isUrl) {
    const int result = http_download(source, path);
    if (result != 0) {
      LOGE("http_download url res = %d url = %s des_dir =%s\n", result, source.c_str(),
           path.c_str());
      return result;
    }
    // A package that isn't encrypted is never read: it may be larger than the memory.
    if (!encrypted) return 0;
  }
  const Stored stored = isUrl ? decryptFile(path) : storeInline(source, path, encrypted);
  if (stored.decryption != 0) LOGE("base64 encrypted decrypt fail");
  if (stored.fileError != 0) {
    // No failure, see "A package that could not be written or decrypted" in docs/architecture.md:
    // the caller learns of it from what the file holds.
    LOGI("%s open Exception = %s\n", path.c_str(),
         std::generic_category().message(stored.fileError).c_str());
  }
  return stored.decryption;
}

}  // namespace jobm
