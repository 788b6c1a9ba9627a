// The registry's tables and what registering and restoring share. For the registry's own sources.
#pragma once

#include <json/value.h>

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <unordered_map>
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

inline constexpr const char* kExecutorsKey = "gw_jobm_executors";
inline constexpr const char* kParsersKey = "gw_jobm_parsers";

struct Address {
  std::string name;
  std::string interface;
  std::string path;
};

/// Reads "executorAddr"; throws the JSON library's exception for members of wrong types.
Address readAddress(const Json::Value& registration);

/// The elements of an array as texts; none for anything that isn't one. Throws like readAddress.
std::vector<std::string> readTexts(const Json::Value& array);

/// Makes the record, with the proxy of `previous` when that one is for the same address.
Executor makeExecutor(const Address& address, const std::string& executorName,
                      const Executor* previous);

enum class Origin { kLive, kRestored };

/// The body of registerParser, with the lock held.
std::string takeParser(const std::string& payload, Origin origin);

}  // namespace jobm::registry
