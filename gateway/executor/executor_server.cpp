#include "executor_server.h"

#include <file_text.h>
#include <gateway/log_macros.h>
#include <json_helper.h>
#include <uv.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <utility>

#include "answers.h"
#include "call_fault.h"
#include "road.h"

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

// The resources of a payload in short, for the road.
std::string summary(const std::string& payload) {
  Json::Value value;
  if (!jobm::json::parse(payload, value)) return payload;
  if (value.isObject()) return jobm::json::textOf(value, "snapshotId");
  std::string ids;
  for (const Json::Value& resource : value) ids += jobm::json::textOf(resource, "resourceId") + " ";
  return ids;
}

// A reply that is due later. Owned by its timer, and deleted when that is closed.
struct LateReply {
  uv_timer_t timer{};
  quillon::DServer* server = nullptr;
  std::shared_ptr<quillon::DMessage> reply;
};

void sendLateReply(uv_timer_t* timer) {
  const auto* late = static_cast<LateReply*>(timer->data);
  late->server->send(late->reply);
  uv_close(reinterpret_cast<uv_handle_t*>(timer), [](uv_handle_t* handle) {
    const std::unique_ptr<LateReply> done(static_cast<LateReply*>(handle->data));
  });
}

}  // namespace

ExecutorServer::ExecutorServer(ExecutorSettings givenSettings, ExecutorBehaviour givenBehaviour)
    : DServer(givenSettings.busName.c_str(), givenSettings.path.c_str()),
      settings(std::move(givenSettings)),
      behaviour(std::move(givenBehaviour)),
      registration(settings),
      order(lastOrder(behaviour.folder)) {}

int ExecutorServer::serve() {
  if (prepare() != 0) return 1;
  addMatchRule(
      "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
      "arg0='iot.job.manager'");
  addMatchRule("type='signal',path='/iot/job/manager',interface='iot.job.manager'");
  road(settings.executorName, "bus", "owns " + settings.busName);
  // After the rule, so that a job manager that comes at this very moment is noticed one way or the
  // other.
  registration.announce();
  setRunLoop(true);
  start();
  return 1;
}

bool ExecutorServer::onMethodCall(const char* member,
                                  const std::shared_ptr<quillon::DMessage>& request,
                                  const std::shared_ptr<quillon::DMessage>& reply) {
  const std::string method = member;
  const std::string signature = dbus_message_get_signature(request->raw());
  const std::string payload = signature.starts_with("s") ? request->readString() : "";
  // The file first: who sees the line on the road finds the file.
  record(method, payload);
  road(kService, settings.executorName, method + " " + summary(payload));

  std::string wrong = addressFault(*request);
  if (wrong.empty()) wrong = callFault(method, signature, payload);
  if (!wrong.empty()) fault(kService, settings.executorName, method + ": " + wrong);
  const auto found = behaviour.misbehaviours.find(method);
  const Misbehaviour* bad = found == behaviour.misbehaviours.end() ? nullptr : &found->second;
  answer(method, executorAnswer(method, payload, wrong, behaviour.perResource, bad), reply);
  if (behaviour.reportsStatus && method == "deployJob") reportResources(payload);
  return true;
}

bool ExecutorServer::onSignalReceived(const char* member,
                                      const std::shared_ptr<quillon::DMessage>& signal) {
  const std::string event = member;
  if (event == settings.executorName + "_Event_Invoke") invoked(*signal);
  if (event != "NameOwnerChanged" || signal->readString() != kManager) return true;
  signal->readString();  // the old owner
  if (!signal->readString().empty()) registration.announce();
  return true;
}

// A call that came to us by another path or interface than ours would fail at a stricter service.
std::string ExecutorServer::addressFault(quillon::DMessage& request) const {
  const char* interface = dbus_message_get_interface(request.raw());
  if (request.getPath() != settings.path) return "called at the path " + request.getPath();
  if (interface == nullptr || settings.busName != interface) return "called by another interface";
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

void ExecutorServer::answer(const std::string& method, const std::string& text,
                            const std::shared_ptr<quillon::DMessage>& reply) {
  const auto found = behaviour.misbehaviours.find(method);
  if (found == behaviour.misbehaviours.end() || found->second.kind == Misbehaviour::Kind::kCode) {
    reply->writeString(text);
    send(reply);
    return;
  }
  const Misbehaviour& bad = found->second;
  road(settings.executorName, kService, method + ": misbehaves on purpose");
  using Kind = Misbehaviour::Kind;
  if (bad.kind == Kind::kSilent) return;
  if (bad.kind == Kind::kDie) std::raise(SIGKILL);
  reply->writeString(bad.kind == Kind::kGarbage ? "ok" : text);
  if (bad.kind == Kind::kLate) return sendLate(reply, bad.value);
  send(reply);
  if (bad.kind == Kind::kTwice) send(reply);
}

void ExecutorServer::sendLate(const std::shared_ptr<quillon::DMessage>& reply, int milliseconds) {
  auto late = std::make_unique<LateReply>();
  late->server = this;
  late->reply = reply;
  late->timer.data = late.get();
  uv_timer_init(uv_default_loop(), &late->timer);
  uv_timer_start(&late.release()->timer, sendLateReply, static_cast<std::uint64_t>(milliseconds),
                 0);
}

void ExecutorServer::reportResources(const std::string& payload) {
  Json::Value resources;
  if (!jobm::json::parse(payload, resources) || !resources.isArray()) return;
  for (const Json::Value& resource : resources) {
    registration.reportStatus(order, jobm::json::textOf(resource, "resourceId"));
  }
}

// A trigger from the cloud. What the rule made of it goes back as a log event.
void ExecutorServer::invoked(quillon::DMessage& signal) {
  const std::string payload = signal.readString();
  record(settings.executorName + "_Event_Invoke", payload);
  road(kService, settings.executorName, "trigger " + payload);
  Json::Value trigger;
  if (!jobm::json::parse(payload, trigger) || jobm::json::textOf(trigger, "interface").empty()) {
    return fault(kService, settings.executorName, "trigger that is no interface and payload");
  }
  Json::Value event(Json::objectValue);
  event["result"] = "ran " + jobm::json::textOf(trigger, "payload");
  sendSignal("jobstatus_event", jobm::json::compact(event));
}

}  // namespace gateway
