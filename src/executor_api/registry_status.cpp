#include <array>

#include "status_file/status_file.h"
#include "tables.h"

namespace jobm::registry {
namespace {

// In the order of Origin.
constexpr std::array kOriginWords = {"registered", "restored", "built-in"};

template <typename Texts>
Json::Value listOf(const Texts& texts) {
  Json::Value list(Json::arrayValue);
  for (const std::string& text : texts) list.append(text);
  return list;
}

// What it watches is not what it is called for: one that was restored is in no set of the table.
std::set<std::string> typesCalledFor(const std::string& name, const WatchMap& watchMap) {
  std::set<std::string> types;
  for (const auto& [type, names] : watchMap) {
    if (names.contains(name)) types.insert(type);
  }
  return types;
}

void show(const char* member, const Executor& record, const WatchMap& watchMap) {
  if (!hasStatusFile()) return;
  Json::Value shown;
  shown["origin"] = kOriginWords.at(static_cast<std::size_t>(record.origin));
  shown["busName"] = record.name;
  shown["path"] = record.path;
  shown["interface"] = record.interface;
  shown["watchTypes"] = listOf(record.watchType);
  shown["storeTypes"] = listOf(record.storeType);
  shown["calledFor"] = listOf(typesCalledFor(record.executorName, watchMap));
  setStatusEntry(member, record.executorName, shown);
}

}  // namespace

void showExecutor(const Executor& record) { show("executors", record, tables().executorWatchMap); }

void showParser(const Executor& record) { show("parsers", record, tables().parserWatchMap); }

void showAll() {
  const std::lock_guard guard(tables().lock);
  for (const auto& [name, record] : tables().executorMap) showExecutor(record);
  for (const auto& [name, record] : tables().parserMap) showParser(record);
}

}  // namespace jobm::registry
