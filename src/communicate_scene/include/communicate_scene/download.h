/// Fetching and checking the files of resources. Listening thread.
#pragma once

#include <json/value.h>

#include <string>

namespace jobm {

/// Fetches, checks and unpacks every resource of the array. Returns one result item for each, in
/// their order; null when `resources` is no array. A failure of whatever kind stays in its own
/// item. Blocks for the transfers.
Json::Value downloadResources(const Json::Value& resources);

/// Fetches one file of a resource, "config" or "content" by `prefix`, into `directory` and sets
/// "file" in `result`; a file that can't be fetched or has another checksum sets "code" and
/// "message" instead. Throws std::runtime_error for a malformed resource and an archive that can't
/// be unpacked. Where there is no room for the file or what is in it, `directory` is removed.
void downloadResource(const std::string& prefix, const Json::Value& resource,
                      const std::string& directory, Json::Value& result);

/// Returns 1 when the file's MD5 sum is `expected` (hexadecimal, any letter case), or the file is
/// larger than 20 MiB and therefore not read; otherwise 0.
int checkFileMd5sum(const std::string& path, const std::string& expected);

/// Moves every entry of `source` into `destination`, replacing files of the same name. What can't
/// be moved, or would have a path of more than 511 bytes before or after, is logged and left.
/// Returns -1 when `source` can't be opened, else the result of closing it.
int jobm_move_dir(const std::string& destination, const std::string& source);

}  // namespace jobm
