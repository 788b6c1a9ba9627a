// The registry's tables and what registering and restoring share. For the registry's own sources.
#pragma once

#include <json/value.h>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "executor_api/registry.h"

namespace jobm::registry {

using WatchMap = std::map<std::string, std::set<std::string>>;

struct Tables {
  std::mutex lock;
  std::map<std::string, Executor> executorMap;
  std::unordered_map<std::string, Executor> parserMap;
  WatchMap executorWatchMap;
  WatchMap parserWatchMap;
  // Whose registration has come in, and was stored, since the start: what is restored never
  // replaces it.
  std::set<std::string> liveExecutors;
  std::set<std::string> liveParsers;
};

/// Listening thread; the main thread during start-up; with the lock held by both.
Tables& tables();

/// Reads the record of a registration. Its proxy is that of `previous` when it is for the same
/// address; otherwise it has none yet. Throws the JSON library's exception for members of wrong
/// types.
Executor readRecord(const Json::Value& registration, const Executor* previous);

/// Gives the record a proxy of its own, unless it has one. Returns "", or why it can't be had: the
/// process is short of descriptors, or the daemon refuses the connections.
[[nodiscard]] std::string connectRecord(Executor& record);

/// Puts a record in the place of whatever `name` had, and its name into the set of each of its
/// watch types where a watch table is given. The one way into the tables, for live, restored and
/// built-in records of both kinds; with the lock held.
template <typename Records>
void install(Records& records, const std::string& name, Executor&& record, WatchMap* watchMap) {
  if (watchMap != nullptr) {
    for (const std::string& type : record.watchType) (*watchMap)[type].insert(record.executorName);
  }
  records.insert_or_assign(name, std::move(record));
}

/// The record of `name`, or null.
template <typename Records>
const Executor* find(const Records& records, const std::string& name) {
  const auto entry = records.find(name);
  return entry != records.end() ? &entry->second : nullptr;
}

/// Puts the record into the status file; with the lock held.
void showExecutor(const Executor& record);
void showParser(const Executor& record);

/// Puts all records there. Takes the lock.
void showAll();

/// The body of registerParser, with the lock held.
std::string takeParser(const std::string& payload, Origin origin);

}  // namespace jobm::registry
