#include "names.h"

#include <utility>
#include <vector>

#include "lib/json_helper.h"
#include "neighbour/daemon.h"
#include "wire/bus_names.h"

namespace gateway {
namespace {

using namespace jobm::bus;

bool isUnique(const std::string& address) { return address.starts_with(':'); }

}  // namespace

Names::Names(Connection asker)
    : connection(std::move(asker)),
      executors{{kScriptEngine.name, kScriptEngineExecutor},
                {kRillmark.name, kRillmarkExecutor},
                {kCorvexConfig.name, kCorvexConfigExecutor}} {
  for (const std::string& name : askNames(connection.get(), "ListNames")) {
    if (!isUnique(name)) takeOwner(name, askOwner(connection.get(), name));
  }
}

End Names::end(const std::string& address) {
  if (address.empty()) return {};
  if (isService(address)) return {address, kJobManager.name, ""};
  const std::string name = nameOf(address);
  const auto executor = executors.find(name);
  return {address, name, executor == executors.end() ? "" : executor->second};
}

// The name that a connection owns, or another one of its process; without either its own address.
std::string Names::nameOf(const std::string& address) {
  if (!isUnique(address)) return address;
  for (const auto& [name, owner] : owners) {
    if (owner == address) return name;
  }
  const unsigned process = processOf(address);
  for (const auto& [name, owner] : owners) {
    if (process != 0 && isUnique(owner) && processOf(owner) == process) return name;
  }
  return address;
}

bool Names::isService(const std::string& address) {
  if (address == kJobManager.name) return true;
  const auto service = owners.find(kJobManager.name);
  if (service == owners.end() || !isUnique(address)) return false;
  if (service->second == address) return true;
  const unsigned process = processOf(address);
  return process != 0 && process == processOf(service->second);
}

bool Names::isOwn(const std::string& address) const {
  return address == dbus_bus_get_unique_name(connection.get());
}

void Names::learn(DBusMessage* message) {
  const std::vector<std::string> texts = textsOf(message);
  if (dbus_message_is_signal(message, kDaemon.name, "NameOwnerChanged") && texts.size() == 3) {
    takeOwner(texts[0], texts[2]);
  }
  for (const char* method : {"registerExecutor", "registerParser"}) {
    if (dbus_message_is_method_call(message, kJobManager.name, method) && !texts.empty()) {
      takeRegistration(texts[0]);
    }
  }
}

unsigned Names::processOf(const std::string& address) {
  const auto [entry, isNew] = processes.try_emplace(address, 0);
  if (!isNew) return entry->second;
  return entry->second = askProcess(connection.get(), address).value_or(0);
}

void Names::takeOwner(const std::string& name, const std::string& owner) {
  if (owner.empty()) {
    owners.erase(name);
    processes.erase(name);
  } else if (!isUnique(name)) {
    owners[name] = owner;
  }
}

void Names::takeRegistration(const std::string& text) {
  Json::Value registration;
  if (!jobm::json::parse(text, registration) || !registration.isObject()) return;
  const std::string name = jobm::json::textOf(registration["executorAddr"], "name");
  const std::string executor = jobm::json::textOf(registration, "executorName");
  if (!name.empty() && !executor.empty()) executors[name] = executor;
}

}  // namespace gateway
