/// The embedded configuration store: one table in an SQLite database. Any thread; calls wait for
/// each other.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace config_store {

/// Where the database is: $GATEWAY_CONFIG_DB, or the gateway's usual place.
std::string databasePath();

/// What get found. Without `wasRead` it is unknown whether the key has a value.
struct Found {
  bool wasRead = false;
  std::optional<std::string> value;
};

/// Looks for `key`. Waits up to `timeout_ms` for a locked store. One that is not there has no key,
/// and is not made.
Found get(const std::string& key, int timeout_ms);

/// Writes `key` durably. Returns 0, or SQLite's result code.
int set(const std::string& key, const std::string& value, int timeout_ms);

/// All keys and values in the order of the keys; none when the store can't be read.
std::optional<std::vector<std::pair<std::string, std::string>>> list(int timeout_ms);

}  // namespace config_store
