/// Unpacks ZIP archives.
#pragma once

#include <string>

namespace jobm {

/// Unpacks `archive` into the directory `destination`. Returns 0, or: 1 not an archive, 2 its
/// directory can't be read, 3 an entry's information can't be read, 4 an entry can't be opened, 5 a
/// destination file can't be created or would lie outside, 6 an entry's data is damaged or can't be
/// written, 7 the next entry can't be reached or an existing destination not inspected, 8 the first
/// entry can't be reached again. Writing fails, too, when the file system would not keep its
/// reserve of free space (32 MiB, or 2 % of it if that is less). `writeFailed`, if given, tells
/// such a failure from damage. What was unpacked before a failure stays. Any thread.
[[nodiscard]] int unzipTask(const std::string& archive, const std::string& destination,
                            bool* writeFailed = nullptr);

}  // namespace jobm
