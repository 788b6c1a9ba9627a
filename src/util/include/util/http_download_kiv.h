/// Fetches files over HTTP(S). Every function may be called from any thread once curl_init has run.
#pragma once

#include <string>

namespace jobm {

/// Sets up libcurl for the process; main thread, once, at start-up. Returns libcurl's result, 0 for
/// success.
int curl_init();

/// What a download returns, as libcurl does, when its file can't take more or the file system would
/// not keep its reserve of free space (32 MiB, or 2 % of it if that is less).
inline constexpr int kNoRoom = 23;

/// Fetches `url`, http or https, into the file `path`. Returns 0 on success, the HTTP status when
/// the transfer completed with another one than 200 (the body stays in the file), libcurl's code
/// when it failed (kNoRoom leaves the file empty), -1 when the file can't be created. Blocks; given
/// up with libcurl's code 28 when fewer than 1,000 bytes, of headers and body, come in 60 s.
/// Connections, names and TLS sessions are kept for later downloads of the same thread.
[[nodiscard]] int http_download(const std::string& url, const std::string& path);

/// Closes what the calling thread's downloads have kept. Wanted before curl_global_cleanup; a later
/// download starts anew.
void releaseConnections();

/// Stores a package in the file `path`. With the storage word "kiv" `source` is its URL, with any
/// other word it is the package itself. A package marked `encrypted` that is base64 text is
/// decrypted. Returns 0, or the code of the step that failed. Blocks for the transfer.
[[nodiscard]] int downloadJob(const std::string& source, const std::string& storage,
                              const std::string& path, bool encrypted);

}  // namespace jobm
