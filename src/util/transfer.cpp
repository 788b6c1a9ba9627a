#include "transfer.h"

#include <gateway/log_macros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <utility>

#include "free_space.h"
#include "util/http_download_kiv.h"

namespace jobm {
namespace {

constexpr long kOkStatus = 200;
constexpr std::chrono::seconds kStallWindow{60};
constexpr curl_off_t kStallBytes = 1000;

struct CleanUpEasy {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
using EasyPtr = std::unique_ptr<CURL, CleanUpEasy>;

struct CleanUpShare {
  void operator()(CURLSH* share) const { curl_share_cleanup(share); }
};
using SharePtr = std::unique_ptr<CURLSH, CleanUpShare>;

/// What this thread's transfers have left for the next one; null when there is nothing. libcurl
/// does not support sharing connections between threads that transfer at the same time.
thread_local SharePtr kept;

SharePtr makeShare() {
  SharePtr share(curl_share_init());
  for (const auto what : {CURL_LOCK_DATA_CONNECT, CURL_LOCK_DATA_DNS, CURL_LOCK_DATA_SSL_SESSION}) {
    if (share) curl_share_setopt(share.get(), CURLSHOPT_SHARE, what);
  }
  return share;
}

/// Decides whether a transfer may go on.
struct Guard {
  using Clock = std::chrono::steady_clock;

  CURL* handle;
  int file;
  Reserve reserve{};
  curl_off_t body = 0;         // so far
  curl_off_t windowStart = 0;  // received when the current window began
  Clock::time_point windowBegan = Clock::now();
  CURLcode verdict = CURLE_OK;  // why it was stopped
};

/// A window is over when it has brought enough bytes. libcurl's own low-speed limit counts whole
/// bytes a second: it would let one byte every 20 s pass, or end a transfer that is slow but alive.
bool isStalled(Guard& guard, curl_off_t received) {
  const auto now = Guard::Clock::now();
  if (received - guard.windowStart >= kStallBytes) {
    guard.windowStart = received;
    guard.windowBegan = now;
  }
  return now - guard.windowBegan >= kStallWindow;
}

/// `total` is what the server has announced, 0 if nothing: what can't fit is not fetched to the
/// end.
bool hasRoom(Guard& guard, curl_off_t total, curl_off_t body) {
  const curl_off_t written = body - std::exchange(guard.body, body);
  const curl_off_t ahead = std::max<curl_off_t>(total - body, 0);
  return written == 0 || guard.reserve.isKept(guard.file, static_cast<std::uint64_t>(written),
                                              static_cast<std::uint64_t>(ahead));
}

/// libcurl calls this about once a second, and for whatever arrives. Headers count, line by line:
/// they may be all that a slow server has sent so far.
int checkTransfer(void* data, curl_off_t total, curl_off_t body, curl_off_t, curl_off_t) {
  auto& guard = *static_cast<Guard*>(data);
  long headers = 0;
  curl_easy_getinfo(guard.handle, CURLINFO_HEADER_SIZE, &headers);
  if (isStalled(guard, body + headers)) guard.verdict = CURLE_OPERATION_TIMEDOUT;
  if (!hasRoom(guard, total, body)) guard.verdict = CURLE_WRITE_ERROR;
  return guard.verdict == CURLE_OK ? 0 : 1;
}

void describe(CURL* handle, const std::string& url, std::FILE* file, Guard& guard) {
  curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
  // An upload's option, without effect here; set all the same, as ever.
  curl_easy_setopt(handle, CURLOPT_INFILESIZE, static_cast<long>(0xFFFFFFFFU));
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, file);
  curl_easy_setopt(handle, CURLOPT_SHARE, kept.get());
  // Addresses come from the cloud: none may name a file or pipe of this machine.
  curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, checkTransfer);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &guard);
}

bool hasConnected(CURL* handle) {
  long connections = 0;
  curl_off_t connectTime = 0;
  curl_easy_getinfo(handle, CURLINFO_NUM_CONNECTS, &connections);
  curl_easy_getinfo(handle, CURLINFO_CONNECT_TIME_T, &connectTime);
  return connections > 0 && connectTime > 0;
}

Transfer attempt(const std::string& url, std::FILE* file) {
  Transfer done;
  const EasyPtr easy(curl_easy_init());
  if (!easy) return done;
  Guard guard{easy.get(), fileno(file)};
  describe(easy.get(), url, file, guard);
  const std::time_t begin = std::time(nullptr);
  done.result = curl_easy_perform(easy.get());
  if (done.result == CURLE_ABORTED_BY_CALLBACK) done.result = guard.verdict;
  curl_easy_getinfo(easy.get(), CURLINFO_RESPONSE_CODE, &done.status);
  done.hasConnected = hasConnected(easy.get());
  done.seconds = std::difftime(std::time(nullptr), begin);
  return done;
}

/// True when `file` is as empty as it came.
bool emptied(std::FILE* file) {
  return std::fseek(file, 0, SEEK_SET) == 0 && ftruncate(fileno(file), 0) == 0;
}

}  // namespace

// What a server may write into a connection that it is about to close, before it gets a request.
bool isNoAnswer(long status) { return status == 0 || status == 400 || status == 408; }

// Whether another connection could bring nothing else: a whole answer, or a verdict of our own;
// over a kept connection only what can be nothing else.
bool isFinal(const Transfer& done) {
  const bool isVerdict =
      done.result == CURLE_WRITE_ERROR || done.result == CURLE_OPERATION_TIMEDOUT;
  if (done.result == CURLE_OK) return done.hasConnected || !isNoAnswer(done.status);
  return isVerdict && (done.hasConnected || done.status == kOkStatus);
}

// A kept connection may lead nowhere any more, a kept name to where the server once was. So what
// brings no answer is believed only over a connection of its own (to a name that is kept for a
// minute, as libcurl does), and after a transfer that brought no file nothing is kept.
Transfer transfer(const std::string& url, std::FILE* file) {
  const bool hadNothing = !kept;
  if (hadNothing) kept = makeShare();
  Transfer done = attempt(url, file);
  const bool isBelieved = isFinal(done);
  if (isBelieved && done.status == kOkStatus) return done;
  releaseConnections();
  if (isBelieved || hadNothing || !emptied(file)) return done;
  LOGI("nothing fetched over kept connections (%d, status %ld), again over a new one\n",
       static_cast<int>(done.result), done.status);
  const double before = done.seconds;
  done = transfer(url, file);
  done.seconds += before;
  return done;
}

void releaseConnections() { kept.reset(); }

}  // namespace jobm
