#pragma once

#include <cstddef>

namespace bench {

/// What a deployment of `count` text resources of 1 KiB can't do without: for each, its directory
/// removed and made, the download with a libcurl handle of its own, the MD5 sum, and one durable
/// write to an SQLite store. Returns the seconds; ends the program on any failure.
double deployLoop(std::size_t count, int port);

}  // namespace bench
