#include "gateway.h"

#include <gateway/config.h>

#include <cstring>

#include "lib/json_helper.h"

namespace bench {
namespace {

constexpr int kConfigMs = 10000;
constexpr const char* kTopicRoot = "/sys/bench/gateway";
constexpr const char* kSuccess = R"({"code":0,"message":"","data":null})";

bool endsWith(const std::string& text, const char* end) { return text.ends_with(end); }

std::int64_t idOf(const std::string& payload) {
  Json::Value request;
  require(jobm::json::parse(payload, request), "a request is no JSON");
  return request["id"].asInt64();
}

std::vector<std::string> makeStore(std::vector<std::string> command) {
  require(set_config(nullptr, "gw_system_productkey", "bench", kConfigMs) == 0, "no store");
  set_config(nullptr, "gw_system_devicename", "gateway", kConfigMs);
  set_config(nullptr, "gw_jobm_executors", "{}", kConfigMs);
  set_config(nullptr, "gw_jobm_parsers", "{}", kConfigMs);
  for (const std::string& type : kTypes) set_config(nullptr, type.c_str(), "[]", kConfigMs);
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

std::string heartbeatReply(std::int64_t id, const std::string& jobs) {
  return R"({"id":)" + std::to_string(id) + R"(,"reply":true,"attrs":[{"code":10200,"data":)" +
         jobs + R"(,"message":""}]})";
}

std::string replyTopic() { return std::string(kTopicRoot) + "/scheduler/sysReply"; }

void awaitName(DBusConnection* connection, const std::string& name) {
  await(name.c_str(),
        [&] { return dbus_bus_name_has_owner(connection, name.c_str(), nullptr) != FALSE; });
}

Gateway::Gateway() : connection(connectBus()) {
  requestName(connection.get(), kBridge);
  requestName(connection.get(), std::string("bench.") + kParser);
  for (const std::string& type : kTypes) requestName(connection.get(), "bench." + type);
  thread = std::thread([this] { run(); });
}

Gateway::~Gateway() {
  stopping = true;
  thread.join();
}

void Gateway::run() {
  while (!stopping && dbus_connection_read_write(connection.get(), 100)) {
    while (DBusMessage* raw = dbus_connection_pop_message(connection.get())) {
      const Message message(raw);
      if (dbus_message_get_type(raw) == DBUS_MESSAGE_TYPE_METHOD_CALL) handle(raw);
    }
  }
}

void Gateway::handle(DBusMessage* message) {
  const Message reply = makeReply(message, kSuccess);
  dbus_connection_send(connection.get(), reply.get(), nullptr);
  if (std::strcmp(dbus_message_get_member(message), "publish") == 0) publish(message);
}

void Gateway::publish(DBusMessage* message) {
  std::vector<std::string> texts = textsOf(message);
  const std::string& topic = texts.at(0);
  const double time = now();
  const std::lock_guard guard(lock);
  seen.lastMessage = time;
  if (endsWith(topic, "/registerRunner")) {
    grant(texts.at(1));
  } else if (endsWith(topic, "/heartbeat")) {
    heartbeats.push_back(idOf(texts.at(1)));
  } else if (endsWith(topic, "/syncStatusPassive") || endsWith(topic, "/syncStatusActive")) {
    seen.statuses.push_back(std::move(texts.at(1)));
  } else if (endsWith(topic, "/edge/deploy/post")) {
    seen.report = std::move(texts.at(1));
    if (seen.report.find("\"isLastReply\" : true") != std::string::npos) seen.lastReport = time;
  } else {
    ++seen.others;
  }
}

void Gateway::grant(const std::string& payload) {
  const std::string reply = R"({"id":)" + std::to_string(idOf(payload)) +
                            R"(,"reply":true,"attrs":[{"code":200,"data":77,"message":""}]})";
  const Message signal = makeSignal(kBridge, "subscribe_event", {replyTopic(), reply});
  dbus_connection_send(connection.get(), signal.get(), nullptr);
}

std::int64_t Gateway::takeHeartbeat() {
  std::int64_t id = 0;
  await(
      "no heartbeat came",
      [&] {
        const std::lock_guard guard(lock);
        if (heartbeats.empty()) return false;
        id = heartbeats.front();
        heartbeats.pop_front();
        return true;
      },
      60);
  return id;
}

void Gateway::dropHeartbeats() {
  const std::lock_guard guard(lock);
  heartbeats.clear();
}

void Gateway::awaitRegistered() const {
  await(
      "the service was not registered",
      [&] {
        const std::lock_guard guard(lock);
        return !heartbeats.empty();
      },
      60);
}

Gateway::Published Gateway::published() const {
  const std::lock_guard guard(lock);
  return seen;
}

double Gateway::reportTime() const {
  const std::lock_guard guard(lock);
  return seen.lastReport;
}

std::size_t Gateway::statusCount() const {
  const std::lock_guard guard(lock);
  return seen.statuses.size();
}

std::size_t Gateway::otherCount() const {
  const std::lock_guard guard(lock);
  return seen.others;
}

void Gateway::forget() {
  const std::lock_guard guard(lock);
  seen = {};
}

Service::Service(const Gateway& gateway, const std::string& log, Registered registered)
    : connection(connectBus()), process(makeStore({beside("task-dispatcher")}), log) {
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
