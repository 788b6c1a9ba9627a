/// Fetches files over HTTP(S). Every function may be called from any thread once curl_init has run.
#pragma once

#include <string>

namespace jobm {

/// Sets up libcurl for the process; main thread, once, at start-up. Returns libcurl's result, 0 for
/// success.
int curl_init();

/// Fetches `url` into the file `path`. Returns 0 on success, the HTTP status when the transfer
/// completed with another one than 200 (the body stays in the file), libcurl's code when it failed
/// or the file could not be completed, -1 when the file can't be created. Blocks; a transfer that
/// brings no byte for 60 s is given up.
int http_download(const std::string& url, const std::string& path);

/// Brings a package to the file `path`. With the storage word "kiv" `source` is its URL, with any
/// other word it is the package itself. A package marked `encrypted` that is base64 text is
/// decrypted. Returns 0, or the code of the step that failed. Blocks for the transfer.
int downloadJob(const std::string& source, const std::string& storage, const std::string& path,
                bool encrypted);

}  // namespace jobm
