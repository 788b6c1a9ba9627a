// Registrations and restarts. An event by its first character: "E" is an executor's registration,
// "P" a parser's, "S" and "T" put the rest into the store as the executors' and parsers' registry,
// "R" is a restart. Then everybody is called in every way there is, and the sections that are
// answers come back.
#include "executor_api/job_calls.h"
#include "executor_api/job_status.h"
#include "executor_api/method_calls.h"
#include "executor_api/registry.h"
#include "support.h"
#include "tables.h"
#include "wire/store_keys.h"

namespace {

using jobm::registry::tables;

void happen(const std::string& event) {
  const std::string kind = event.substr(0, 1);
  const std::string payload = event.substr(kind.size());
  if (kind == "E") static_cast<void>(jobm::registerExecutor(payload));
  if (kind == "P") static_cast<void>(jobm::registerParser(payload));
  if (kind == "S") fuzz::world.store[jobm::key::kExecutors] = payload;
  if (kind == "T") fuzz::world.store[jobm::key::kParsers] = payload;
  if (kind == "R") fuzz::restart();
}

// Everybody can be called, whatever their records say.
void callEverybody() {
  const auto callAll = [](const char* method, const auto& table) {
    const auto ignore = [](int, const std::string&, const std::string&) {};
    for (const auto& [name, record] : table) {
      jobm::callMethod(method, record, "{}", ignore);
      jobm::deployParserJob("1", "{}", record, ignore);
      jobm::getJobStatus(1, "{}", record);
      jobm::initExecutor(record);
    }
  };
  callAll("deployJob", tables().executorMap);
  callAll("deployConfig", tables().parserMap);
  jobm::callOnWatchTypesFinish();
  fuzz::runLoop();
}

}  // namespace

void fuzz::check(const std::string& input) {
  for (const std::string& event : start(input)) happen(event);
  callEverybody();
  restart();
  callEverybody();
  // The first restart writes what it restores; from then on nothing changes any more.
  const auto stored = world.store;
  restart();
  require(world.store == stored, "restarts keep the registrations");
  for (const char* name : {"IFTTTEngine", "Rillmark", "CorvexConfig"}) {
    require(jobm::getExecutor(name).has_value(), "the built-in executors are always there");
  }
  settle();
}
