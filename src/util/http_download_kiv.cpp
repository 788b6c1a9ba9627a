#include "util/http_download_kiv.h"

#include <curl/curl.h>
#include <gateway/log_macros.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <memory>
#include <system_error>
#include <utility>

#include "lib/file_text.h"
#include "util/aes/job_aes.h"
#include "util/base64.h"

namespace jobm {
namespace {

constexpr std::chrono::seconds kStallLimit{60};
constexpr long kOkStatus = 200;
constexpr std::size_t kFileBuffer = 65536;

struct CleanUpEasy {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using EasyPtr = std::unique_ptr<CURL, CleanUpEasy>;

struct CloseFile {
  void operator()(FILE* file) const { static_cast<void>(std::fclose(file)); }
};
using FilePtr = std::unique_ptr<FILE, CloseFile>;

/// Watches for a transfer that brings nothing. libcurl's own low-speed limit would also end one
/// that brings a byte every few seconds, because it counts whole bytes a second.
struct StallGuard {
  using Clock = std::chrono::steady_clock;

  CURL* handle;
  curl_off_t received = 0;
  Clock::time_point lastByte = Clock::now();
  bool stalled = false;
};

/// libcurl calls this about once a second, and for whatever arrives.
int checkStall(void* data, curl_off_t /*total*/, curl_off_t body, curl_off_t, curl_off_t) {
  auto& guard = *static_cast<StallGuard*>(data);
  long headers = 0;
  curl_easy_getinfo(guard.handle, CURLINFO_HEADER_SIZE, &headers);
  const auto now = StallGuard::Clock::now();
  if (body + headers != guard.received) {
    guard.received = body + headers;
    guard.lastByte = now;
  }
  guard.stalled = now - guard.lastByte >= kStallLimit;
  return guard.stalled ? 1 : 0;
}

struct Transfer {
  CURLcode result = CURLE_FAILED_INIT;
  long status = -1;
  double seconds = 0;
};

Transfer transfer(const std::string& url, FILE* file) {
  Transfer done;
  const EasyPtr easy(curl_easy_init());
  if (!easy) return done;
  CURL* const handle = easy.get();
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  // An upload's option, without effect here; set all the same, as ever.
  curl_easy_setopt(handle, CURLOPT_INFILESIZE, static_cast<long>(0xFFFFFFFFU));
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, file);

  StallGuard guard{handle};
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, checkStall);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &guard);

  const std::time_t begin = std::time(nullptr);
  done.result = curl_easy_perform(handle);
  if (done.result == CURLE_ABORTED_BY_CALLBACK && guard.stalled) {
    done.result = CURLE_OPERATION_TIMEDOUT;
  }
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &done.status);
  done.seconds = std::difftime(std::time(nullptr), begin);
  return done;
}

/// What http_download returns for a transfer that ended so.
int resultOf(const Transfer& done, bool fileClosed) {
  if (done.result != CURLE_OK) return done.result;
  if (done.status != kOkStatus) return static_cast<int>(done.status);
  return fileClosed ? 0 : CURLE_WRITE_ERROR;
}

/// How far a package got after it was brought: errno of the file's trouble, result of the
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
  // Outlives the file. A large buffer is worth a quarter of the time of a large transfer; kept from
  // one to the next, because giving back a block of this size makes malloc tidy up every time.
  thread_local const auto buffer = std::make_unique_for_overwrite<std::array<char, kFileBuffer>>();
  if (FilePtr file{std::fopen(path.c_str(), "we")}) {
    std::setvbuf(file.get(), buffer->data(), _IOFBF, buffer->size());
    const Transfer done = transfer(url, file.get());
    LOGI("http_download http_code = %ld\n", done.status);
    LOGI("curl_easy_perform ret = %d cost = %f\n", static_cast<int>(done.result), done.seconds);
    // A full disk may show no earlier than here.
    result = resultOf(done, std::fclose(file.release()) == 0);
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
    // One that isn't encrypted is never read: it may be larger than the memory.
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
