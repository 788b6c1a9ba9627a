#include "snapshot.h"

#include <cerrno>
#include <utility>

#include "bus_view.h"
#include "lib/file_text.h"
#include "lib/json_helper.h"
#include "store_view.h"
#include "wire/bus_names.h"
#include "wire/store_keys.h"

namespace gateway {
namespace {

namespace bus = jobm::bus;
namespace key = jobm::key;

constexpr int kFormat = 1;

// The service's own words, with how they were come by. What another process left behind counts for
// nothing but the outcomes of its deployments.
struct Words {
  Json::Value members{Json::objectValue};
  const char* file = "absent";
};

Words readWords(const std::string& path, const BusView& view) {
  Words words;
  std::string text;
  if (!jobm::readFile(path, text)) {
    if (errno != ENOENT) words.file = "unreadable";
    return words;
  }
  if (!jobm::json::parse(text, words.members) || !words.members.isObject()) {
    return {Json::Value(Json::objectValue), "unreadable"};
  }
  const Json::Value& pid = std::as_const(words.members)["pid"];
  const bool isCurrent = view.servicePid && pid.isIntegral() && pid.asInt64() == *view.servicePid;
  words.file = isCurrent ? "current" : "left behind";
  if (isCurrent) return words;
  Json::Value outcomes = words.members["deployments"];
  words.members = Json::Value(Json::objectValue);
  words.members["deployments"] = std::move(outcomes);
  return words;
}

Json::Value serviceOf(const Words& words, const BusView& view) {
  Json::Value service;
  service["onBus"] = view.has(bus::kJobManager.name);
  service["statusFile"] = words.file;
  if (view.servicePid) service["pid"] = *view.servicePid;
  for (const char* member : {"started", "version", "runnerId", "phase"}) {
    service[member] = words.members[member];
  }
  return service;
}

Json::Value identityOf(StoreView& store) {
  Json::Value identity;
  const std::string productKey = store.read(key::kProductKey);
  const std::string deviceName = store.read(key::kDeviceName);
  const bool isComplete = !productKey.empty() && !deviceName.empty();
  identity["productKey"] = productKey;
  identity["deviceName"] = deviceName;
  identity["state"] = isComplete ? "present" : store.isReadable() ? "absent" : "unreadable";
  return identity;
}

// The service's word for a neighbour, and whether that is on the bus.
Json::Value neighbourOf(const char* busName, const Json::Value& word, const BusView& view) {
  Json::Value neighbour = word.isObject() ? word : Json::Value(Json::objectValue);
  neighbour["onBus"] = view.has(busName);
  return neighbour;
}

// Executors or parsers as a list, each with its name: those the service has, else those stored.
Json::Value registrationsOf(const Json::Value& all, const BusView& view) {
  Json::Value list(Json::arrayValue);
  for (const std::string& name : all.getMemberNames()) {
    if (!all[name].isObject()) continue;
    Json::Value entry = all[name];
    const std::string busName = jobm::json::textOf(entry, "busName");
    entry["name"] = name;
    entry["onBus"] = view.has(busName);
    entry["startable"] = view.startable.contains(busName);
    list.append(std::move(entry));
  }
  return list;
}

Json::Value executorsOf(const Json::Value& said, const BusView& view, StoreView& store) {
  const bool isSaid = said.isObject();
  Json::Value list = registrationsOf(isSaid ? said : store.registrations(key::kExecutors), view);
  for (Json::Value& executor : list) executor["jobs"] = store.jobsOf(executor["name"].asString());
  return list;
}

Json::Value parsersOf(const Json::Value& said, const BusView& view, StoreView& store) {
  return registrationsOf(said.isObject() ? said : store.registrations(key::kParsers), view);
}

Json::Value listOfOne(const std::string& text) {
  Json::Value list(Json::arrayValue);
  list.append(text);
  return list;
}

Json::Value listOf(const Json::Value& said) {
  return said.isArray() ? said : Json::Value(Json::arrayValue);
}

}  // namespace

Json::Value takeSnapshot(const std::string& statusFile) {
  const BusView view = viewBus();
  StoreView store(view.connection.get());
  const Words words = readWords(statusFile, view);
  const Json::Value& said = words.members;
  Json::Value snapshot;
  snapshot["format"] = kFormat;
  snapshot["bus"] = view.isThere();
  snapshot["service"] = serviceOf(words, view);
  snapshot["identity"] = identityOf(store);
  snapshot["bridge"] = neighbourOf(bus::kBridge.name, said["bridge"], view);
  snapshot["watchdog"] = neighbourOf(bus::kWatchdog.name, {}, view);
  snapshot["broker"] = said["broker"];
  snapshot["scheduler"] = said["scheduler"];
  snapshot["executors"] = executorsOf(said["executors"], view, store);
  snapshot["parsers"] = parsersOf(said["parsers"], view, store);
  snapshot["deployment"] = said["deployment"];
  snapshot["waiting"] = said["waiting"].isIntegral() ? said["waiting"] : Json::Value(0);
  snapshot["deployments"] = listOf(said["deployments"]);
  snapshot["unreported"] = store.unreportedDeployments();
  snapshot["problems"] = view.isThere() ? problemsOf(snapshot) : listOfOne(view.problem);
  snapshot["ok"] = snapshot["problems"].empty();
  return snapshot;
}

}  // namespace gateway
