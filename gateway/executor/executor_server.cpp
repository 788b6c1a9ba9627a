#include "executor_server.h"

#include <gateway/log_macros.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "answers.h"
#include "call_fault.h"
#include "common/payload.h"
#include "common/trace.h"
#include "dbus_wrap/LoopTasks.h"
#include "lib/file_text.h"
#include "lib/json_helper.h"

namespace gateway {
namespace {

constexpr const char* kManager = "iot.job.manager";
constexpr const char* kService = "task-dispatcher";
constexpr int kOrderDigits = 4;

// The highest number that a file of `folder` begins with, so that a restarted executor goes on
// counting.
int lastOrder(const std::string& folder) {
  int last = 0;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
    last = std::max(last, std::atoi(entry.path().filename().c_str()));
  }
  return last;
}

}  // namespace

ExecutorServer::ExecutorServer(ExecutorSettings givenSettings, ExecutorBehaviour givenBehaviour)
    : settings(std::move(givenSettings)),
      behaviour(std::move(givenBehaviour)),
      registration(settings),
      order(lastOrder(behaviour.folder)),
      neighbour(settings.busName,
                {"type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
                 "arg0='iot.job.manager'",
                 "type='signal',path='/iot/job/manager',interface='iot.job.manager'"},
                [this](const Received& message) { return handle(message); }) {}

void ExecutorServer::serve() {
  trace(settings.executorName, "bus", "owns " + settings.busName);
  // With the rules in force, so that a job manager that comes at this very moment is noticed one
  // way or the other.
  registration.announce();
  quillon::runDefaultLoop();
}

Answer ExecutorServer::handle(const Received& message) {
  if (message.interface == DBUS_INTERFACE_LOCAL) _exit(1);  // the daemon is gone
  if (!message.isSignal) return called(message);
  const bool isManagers = message.member == "NameOwnerChanged" && message.text(0) == kManager;
  if (message.member == settings.executorName + "_Event_Invoke") invoked(message.text());
  if (isManagers && !message.text(2).empty()) registration.announce();  // it has a new owner
  return {};
}

Answer ExecutorServer::called(const Received& call) {
  const std::string method = call.member;
  const std::string payload = call.text();
  // The file first: who sees the line in the trace finds the file.
  record(method, payload);
  trace(kService, settings.executorName, method + " " + payloadSummary(payload));

  std::string wrong = addressFault(call);
  if (wrong.empty()) wrong = callFault(method, call.signature, payload);
  if (!wrong.empty()) fault(kService, settings.executorName, method + ": " + wrong);
  const auto found = behaviour.misbehaviours.find(method);
  const Misbehaviour* bad = found == behaviour.misbehaviours.end() ? nullptr : &found->second;
  Answer answer =
      behave(method, executorAnswer(method, payload, wrong, behaviour.perResource, bad));
  if (behaviour.reportsStatus && method == "deployJob") reportResources(payload);
  return answer;
}

// A call that came to us by another path or interface than ours would fail at a stricter service.
std::string ExecutorServer::addressFault(const Received& call) const {
  if (call.path != settings.path) return "called at the path " + call.path;
  if (call.interface != settings.busName) return "called by another interface";
  return "";
}

// Writes one file per call, named by its number and method. Renamed into place, so that who waits
// for a file finds it whole.
void ExecutorServer::record(const std::string& method, const std::string& payload) {
  if (behaviour.folder.empty()) return;
  std::string number = std::to_string(++order);
  if (number.size() < kOrderDigits) number.insert(0, kOrderDigits - number.size(), '0');
  const std::string file = behaviour.folder + "/" + number + "-" + method + ".json";
  if (!jobm::writeFile(file + ".new", payload) ||
      std::rename((file + ".new").c_str(), file.c_str()) != 0) {
    LOGE("%s can't be written", file.c_str());
  }
}

Answer ExecutorServer::behave(const std::string& method, const std::string& text) const {
  using Kind = Misbehaviour::Kind;
  const auto found = behaviour.misbehaviours.find(method);
  if (found == behaviour.misbehaviours.end() || found->second.kind == Kind::kCode) return text;
  trace(settings.executorName, kService, method + ": misbehaves on purpose");
  switch (found->second.kind) {
    case Kind::kDie:
      std::raise(SIGKILL);
      [[fallthrough]];
    case Kind::kSilent:
      return std::monostate();
    case Kind::kGarbage:
      return "ok";
    case Kind::kLate:
      return Late{text, found->second.value};
    case Kind::kTwice:
      return Twice{text};
    default:
      return text;
  }
}

void ExecutorServer::reportResources(const std::string& payload) {
  Json::Value resources;
  if (!jobm::json::parse(payload, resources) || !resources.isArray()) return;
  for (const Json::Value& resource : resources) {
    registration.reportStatus(order, jobm::json::textOf(resource, "resourceId"));
  }
}

// A trigger from the cloud. What the rule made of it goes back as a log event.
void ExecutorServer::invoked(const std::string& payload) {
  record(settings.executorName + "_Event_Invoke", payload);
  trace(kService, settings.executorName, "trigger " + payload);
  Json::Value trigger;
  if (!jobm::json::parse(payload, trigger) || jobm::json::textOf(trigger, "interface").empty()) {
    return fault(kService, settings.executorName, "trigger that is no interface and payload");
  }
  Json::Value event(Json::objectValue);
  event["result"] = "ran " + jobm::json::textOf(trigger, "payload");
  neighbour.emit(settings.path, settings.busName, "jobstatus_event", {jobm::json::compact(event)});
}

}  // namespace gateway
