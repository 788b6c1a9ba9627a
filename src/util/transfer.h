/// One HTTP transfer, over what the calling thread has kept of earlier ones.
#pragma once

#include <curl/curl.h>

#include <cstdio>
#include <string>

namespace jobm {

/// How a transfer ended.
struct Transfer {
  CURLcode result = CURLE_FAILED_INIT;
  long status = -1;           // of the HTTP answer; 0 when none came
  double seconds = 0;         // whole ones
  bool hasConnected = false;  // over a connection of its own
};

/// Fetches `url` (http or https) into the open, empty `file` with a fresh easy handle. Connections,
/// names and TLS sessions of this thread's earlier transfers are used again. Given up with
/// CURLE_OPERATION_TIMEDOUT when fewer than 1,000 bytes come in 60 s, and with CURLE_WRITE_ERROR
/// when it would not leave the reserve of free space. Blocks. Any thread, once curl_init has run.
Transfer transfer(const std::string& url, std::FILE* file);

}  // namespace jobm
