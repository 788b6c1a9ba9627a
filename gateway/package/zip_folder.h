#pragma once

#include <string>

namespace gateway {

/// Packs everything below `folder` (regular files and directories, with their access rights; names
/// relative to it, in order) into the new ZIP archive `archive`. Returns "" or says what went
/// wrong.
std::string zipFolder(const std::string& folder, const std::string& archive);

}  // namespace gateway
