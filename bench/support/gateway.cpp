#include "gateway.h"

#include <gateway/config.h>

#include <chrono>
#include <cstring>
#include <utility>

#include "lib/json_helper.h"

namespace bench {
namespace {

constexpr int kConfigMs = 10000;
constexpr const char* kTopicRoot = "/sys/bench/gateway";
constexpr const char* kSuccess = R"({"code":0,"message":"","data":null})";

std::int64_t idOf(const std::string& payload) {
  Json::Value request;
  require(jobm::json::parse(payload, request), "a request is no JSON");
  return request["id"].asInt64();
}

std::size_t countOf(const std::string& text, const std::string& word) {
  std::size_t count = 0;
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    ++count;
  }
  return count;
}

// The command that starts the service on a new store.
std::vector<std::string> makeStore(std::vector<std::string> command) {
  require(set_config(nullptr, "gw_system_productkey", "bench", kConfigMs) == 0, "no store");
  set_config(nullptr, "gw_system_devicename", "gateway", kConfigMs);
  set_config(nullptr, "gw_jobm_executors", "{}", kConfigMs);
  set_config(nullptr, "gw_jobm_parsers", "{}", kConfigMs);
  for (const std::string& type : kTypes) set_config(nullptr, type.c_str(), "[]", kConfigMs);
  command.push_back(beside("task-dispatcher"));
  return command;
}

}  // namespace

std::string quoted(const std::string& text) {
  std::string json = jobm::json::compact(Json::Value(text));
  json.pop_back();  // the line end
  return json;
}

std::string registration(const std::string& name, const std::vector<std::string>& types,
                         const std::string& path) {
  Json::Value payload;
  payload["linkType"] = 0;
  payload["executorName"] = name;
  payload["executorAddr"]["name"] = "bench." + name;
  payload["executorAddr"]["interface"] = "bench." + name;
  payload["executorAddr"]["path"] = path;
  payload["storeType"].append("file");
  for (const std::string& type : types) payload["watchType"].append(type);
  return jobm::json::compact(payload);
}

std::string replyTo(std::int64_t id, int code, const std::string& data) {
  return R"({"id":)" + std::to_string(id) + R"(,"reply":true,"attrs":[{"code":)" +
         std::to_string(code) + R"(,"data":)" + data + R"(,"message":""}]})";
}

std::string heartbeatReply(std::int64_t id, const std::string& jobs) {
  return replyTo(id, 10200, jobs);
}

std::string replyTopic() { return std::string(kTopicRoot) + "/scheduler/sysReply"; }

void awaitName(DBusConnection* connection, const std::string& name) {
  await(name.c_str(),
        [&] { return dbus_bus_name_has_owner(connection, name.c_str(), nullptr) != FALSE; });
}

Gateway::Gateway() {
  Connection connection = connectBus();
  requestName(connection.get(), kBridge);
  requestName(connection.get(), std::string("bench.") + kParser);
  for (const std::string& type : kTypes) requestName(connection.get(), "bench." + type);
  bus = connection.get();
  reader = std::make_unique<BusReader>(std::move(connection), [this](DBusMessage* message) {
    if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL) handle(message);
  });
}

void Gateway::handle(DBusMessage* message) {
  const Message reply = makeReply(message, kSuccess);
  dbus_connection_send(bus, reply.get(), nullptr);
  if (std::strcmp(dbus_message_get_member(message), "publish") == 0) publish(message);
}

void Gateway::publish(DBusMessage* message) {
  std::vector<std::string> texts = textsOf(message);
  const std::string& topic = texts.at(0);
  const std::string& payload = texts.at(1);
  const double time = now();
  const std::lock_guard guard(lock);
  seen.lastMessage = time;
  if (topic.ends_with("/registerRunner")) {
    answer(replyTo(idOf(payload), 200, "77"));
  } else if (topic.ends_with("/heartbeat")) {
    beat(idOf(payload));
  } else if (topic.ends_with("/syncStatusPassive") || topic.ends_with("/syncStatusActive")) {
    seen.statuses.push_back(std::move(texts.at(1)));
  } else if (topic.ends_with("/edge/deploy/post")) {
    seen.successes += countOf(payload, "\"success\" : true");
    if (payload.find("\"isLastReply\" : true") != std::string::npos) seen.lastReport = time;
    seen.report = std::move(texts.at(1));
  } else {
    ++seen.others;
  }
  if (wanted != nullptr && (*wanted)()) fulfilled.notify_one();
}

void Gateway::beat(std::int64_t id) {
  if (answersHeartbeats) {
    answer(replyTo(id, 200, "[]"));
  } else {
    heartbeats.push_back(id);
  }
}

void Gateway::answer(const std::string& payload) {
  const Message signal = makeSignal(kBridge, "subscribe_event", {replyTopic(), payload});
  dbus_connection_send(bus, signal.get(), nullptr);
}

bool Gateway::awaitLocked(std::unique_lock<std::mutex>& guard,
                          const std::function<bool()>& condition, double seconds) {
  wanted = &condition;
  const bool isTrue = fulfilled.wait_for(guard, std::chrono::duration<double>(seconds), condition);
  wanted = nullptr;
  return isTrue;
}

std::int64_t Gateway::takeHeartbeat() {
  std::unique_lock guard(lock);
  require(awaitLocked(
              guard, [this] { return !heartbeats.empty(); }, 60),
          "no heartbeat came");
  const std::int64_t id = heartbeats.front();
  heartbeats.pop_front();
  return id;
}

void Gateway::dropHeartbeats() {
  const std::lock_guard guard(lock);
  heartbeats.clear();
}

void Gateway::answerHeartbeats() {
  const std::lock_guard guard(lock);
  answersHeartbeats = true;
}

void Gateway::awaitRegistered() {
  std::unique_lock guard(lock);
  require(awaitLocked(
              guard, [this] { return !heartbeats.empty(); }, 60),
          "the service was not registered");
}

Gateway::Published Gateway::published() const {
  const std::lock_guard guard(lock);
  return seen;
}

bool Gateway::hasPublished(const Condition& condition, double seconds) {
  std::unique_lock guard(lock);
  return awaitLocked(
      guard, [&] { return condition(seen); }, seconds);
}

void Gateway::forget() {
  const std::lock_guard guard(lock);
  seen = {};
}

Service::Service(Gateway& gateway, const std::string& log, Registered registered,
                 const std::vector<std::string>& before)
    : connection(connectBus()), process(makeStore(before), log) {
  awaitName(bus(), kService);
  if (registered == kBenchExecutors) {
    for (const std::string& type : kTypes) call("registerExecutor", registration(type, {type}));
    call("registerParser", registration(kParser, kTypes));
  }
  // A heartbeat says that the runner id was granted; it is kept for whoever needs one.
  gateway.awaitRegistered();
}

void Service::call(const std::string& member, const std::string& payload) const {
  const Message reply = callBlocking(bus(), makeCall(kService, member, {payload}).get());
  require(textsOf(reply.get()).at(0).find("\"code\" : 0") != std::string::npos, member.c_str());
}

void Service::send(const std::string& topic, const std::string& payload) const {
  const Message signal = makeSignal(kBridge, "subscribe_event", {topic, payload});
  dbus_connection_send(bus(), signal.get(), nullptr);
  dbus_connection_flush(bus());
}

void Service::awaitHandled() const {
  callBlocking(bus(), makeCall(kService, "getSelfDescribing", {}).get());
}

}  // namespace bench
