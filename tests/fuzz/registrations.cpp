// Registrations and restarts. The head and each further section is one event by its first
// character: "E" an executor's registration, "P" a parser's, "S" and "T" put the rest into the
// store as the executors' and parsers' registry, "R" a restart.
#include <map>
#include <string>

#include "executor_api/method_calls.h"
#include "executor_api/registry.h"
#include "executor_api/tables.h"
#include "neighbours.h"
#include "support.h"

namespace {

void restart() {
  fuzz::forgetRegistrations();
  jobm::initAllExecutors();
}

void registerOne(const std::string& payload, std::string (*add)(const std::string&),
                 std::optional<jobm::Executor> (*get)(const std::string&)) {
  if (!add(payload).empty()) return;
  const std::string name = fuzz::parsed(payload)["executorName"].asString();
  const std::optional<jobm::Executor> record = get(name);
  fuzz::require(record && record->executorName == name, "who was accepted is registered");
}

void happen(const std::string& event) {
  const char kind = event.empty() ? '\0' : event.front();
  const std::string payload = event.empty() ? event : event.substr(1);
  if (kind == 'E') registerOne(payload, jobm::registerExecutor, jobm::getExecutor);
  if (kind == 'P') registerOne(payload, jobm::registerParser, jobm::getParser);
  if (kind == 'S') fuzz::world().store["gw_jobm_executors"] = fuzz::upToZero(payload);
  if (kind == 'T') fuzz::world().store["gw_jobm_parsers"] = fuzz::upToZero(payload);
  if (kind == 'R') restart();
}

// Everybody can be called, whatever their records say.
void callEverybody() {
  const jobm::registry::Tables& tables = jobm::registry::tables();
  const auto ignore = [](int, const std::string&, const std::string&) {};
  for (const auto& [name, executor] : tables.executorMap) {
    jobm::callMethod("deployJob", executor, "{}", ignore);
  }
  for (const auto& [name, parser] : tables.parserMap) {
    jobm::callMethod("deployConfig", parser, "{}", ignore);
  }
  jobm::callOnWatchTypesFinish();
  fuzz::runLoop();
}

std::string describe(const jobm::Executor& executor) {
  Json::Value record;
  record["address"] = executor.name + " " + executor.interface + " " + executor.path;
  record["name"] = executor.executorName;
  for (const std::string& type : executor.storeType) record["store"].append(type);
  for (const std::string& type : executor.watchType) record["watch"].append(type);
  return record.toStyledString();
}

std::map<std::string, std::string> everybody() {
  std::map<std::string, std::string> all;
  const jobm::registry::Tables& tables = jobm::registry::tables();
  for (const auto& [name, executor] : tables.executorMap) all["e" + name] = describe(executor);
  for (const auto& [name, parser] : tables.parserMap) all["p" + name] = describe(parser);
  return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  jobm::initAllExecutors();
  happen(input.head);
  for (const std::string& event : input.more) happen(event);
  callEverybody();
  restart();
  callEverybody();
  // The first restart writes what it restores; from then on nothing changes any more.
  restart();
  const auto before = everybody();
  restart();
  fuzz::require(everybody() == before, "restarts keep the registrations");
  fuzz::require(before.contains("eIFTTTEngine") && before.contains("eRillmark") &&
                    before.contains("eCorvexConfig"),
                "the built-in executors are always there");
  fuzz::settle();
  return 0;
}
