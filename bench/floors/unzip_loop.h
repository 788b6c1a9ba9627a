#pragma once

#include <string>

namespace bench {

/// Unpacks `archive` into `directory` with minizip and a buffer of 8 KiB, trusting it. Ends the
/// program on any failure.
void unzipLoop(const std::string& archive, const std::string& directory);

}  // namespace bench
