// The glue: two threads. The bus thread runs the default loop and owns the subscriptions, the
// outbox and the connection state; the broker's thread lives in MqttClient::run(). What the
// broker's thread learns (connected, disconnected, a message, an acknowledgement) it hands to the
// bus thread as a task of the loop, in order. The bus thread hands packets to the MQTT library,
// which queues them and never blocks.

#include "bridge_server.h"

#include <gateway/log_macros.h>

#include <chrono>
#include <future>
#include <thread>

#include "common/trace.h"
#include "dbus_wrap/LoopTasks.h"
#include "lib/json_helper.h"

namespace gateway {
namespace {

constexpr const char* kName = "iot.bridge.mqtt";
constexpr const char* kPath = "/iot/bridge/mqtt";
constexpr const char* kMe = "mqtt-bridge";
constexpr int kFailed = 1;
constexpr auto kHandOverLimit = std::chrono::seconds(10);

std::string answer(const std::string& failure) {
  Json::Value reply(Json::objectValue);
  reply["code"] = failure.empty() ? 0 : kFailed;
  reply["message"] = failure.empty() ? "success" : failure;
  return jobm::json::compact(reply);
}

bool isQos(int qos) { return qos >= 0 && qos <= 2; }

// Waits until the bus thread has done `task`, so that the broker's acknowledgement of a message
// goes out only when the message is on the bus, and a flood from the cloud is slowed down at its
// source. The bus thread never waits for the broker's thread, so this can't lock up; the limit is
// for a bus thread that is being ended.
void handOver(std::function<void()> task) {
  auto done = std::make_shared<std::promise<void>>();
  auto finished = done->get_future();
  quillon::runOnLoop([task = std::move(task), done] {
    task();
    done->set_value();
  });
  finished.wait_for(kHandOverLimit);
}

}  // namespace

BridgeServer::BridgeServer(const BridgeSettings& given)
    : DServer(kName, kPath),
      settings(given),
      mqtt(given.clientId, !given.stateFile.empty(),
           {.connected = [this] { handOver([this] { connectivityChanged(true); }); },
            .disconnected = [this] { handOver([this] { connectivityChanged(false); }); },
            .message =
                [this](const std::string& topic, const std::string& payload) {
                  handOver([this, topic, payload] { deliver(topic, payload); });
                },
            .subscribed = {},
            .published =
                [this](int packet) {
                  quillon::runOnLoop([this, packet] { courier.acknowledged(packet); });
                }}),
      courier(outbox, mqtt) {}

int BridgeServer::serve() {
  // The name first: until it is ours, an earlier bridge may write what is restored here.
  if (prepare() != 0 || !store.open(settings.stateFile)) return 1;
  subscriptions.restore(store);
  outbox.restore(store);
  trace(kMe, "bus", std::string("owns ") + kName);
  std::thread([this] { mqtt.run(settings.host, settings.port); }).detach();
  setRunLoop(true);
  start();
  return 1;
}

bool BridgeServer::onMethodCall(const char* member,
                                const std::shared_ptr<quillon::DMessage>& request,
                                const std::shared_ptr<quillon::DMessage>& reply) {
  const std::string method = member;
  std::string failure = "unknown method " + method;
  if (method == "publish") failure = publish(*request);
  if (method == "subscribe") failure = subscribe(*request);
  if (method == "unsubscribe") failure = unsubscribe(*request);
  if (!failure.empty()) LOGW("%s refused: %s", member, failure.c_str());
  reply->writeString(answer(failure));
  send(reply);
  return true;
}

bool BridgeServer::onSignalReceived(const char*, const std::shared_ptr<quillon::DMessage>&) {
  return true;
}

std::string BridgeServer::publish(quillon::DMessage& request) {
  const std::string topic = request.readString();
  const std::string payload = request.readString();
  const int qos = request.readInt32();
  trace("task-dispatcher", kMe,
        "publish " + topic + " (" + std::to_string(payload.size()) + " bytes)");
  if (!isTopic(topic) || !isQos(qos)) return "bad topic or quality of service";
  std::string failure = outbox.add(topic, payload, qos);
  courier.send();
  return failure;
}

std::string BridgeServer::subscribe(quillon::DMessage& request) {
  const std::string filter = request.readString();
  const std::string busName = request.readString();
  const int qos = request.readInt32();
  trace("task-dispatcher", kMe, "subscribe " + filter + " for " + busName);
  if (!isTopicFilter(filter) || !isQos(qos)) return "bad topic or quality of service";
  if (!dbus_validate_bus_name(busName.c_str(), nullptr)) return "bad bus name";
  if (!subscriptions.add(filter, busName, qos)) return "the subscription can't be stored";
  // Not waited for: the broker takes the packets of one connection in order, so whatever this
  // caller publishes next finds the subscription made. Without a connection the next one makes it.
  if (connected) mqtt.subscribe(filter, subscriptions.qosOf(filter));
  return "";
}

std::string BridgeServer::unsubscribe(quillon::DMessage& request) {
  const std::string filter = request.readString();
  const std::string busName = request.readString();
  trace("task-dispatcher", kMe, "unsubscribe " + filter + " for " + busName);
  if (!isTopicFilter(filter)) return "bad topic";
  const bool last = subscriptions.remove(filter, busName);
  if (last && connected) mqtt.unsubscribe(filter);
  return "";
}

void BridgeServer::connectivityChanged(bool now) {
  if (now == connected) return;
  connected = now;
  trace(kMe, "broker", now ? "connected" : "disconnected");
  if (now) {
    // The broker may be a new one that knows nothing of us.
    for (const std::string& filter : subscriptions.filters()) {
      mqtt.subscribe(filter, subscriptions.qosOf(filter));
    }
  }
  courier.connectivityChanged(now);
  sendSignal("cloudConnectivityEvent", now ? "connected" : "disconnected");
}

void BridgeServer::deliver(const std::string& topic, const std::string& payload) {
  for (const std::string& busName : subscriptions.subscribersOf(topic)) {
    const auto signal = quillon::DMessage::makeSignalMessage(kPath, kName, "subscribe_event");
    if (!signal || !signal->setDestination(busName.c_str())) continue;
    signal->writeString(topic).writeString(payload);
    sendSignal(signal);
    trace(kMe, busName, topic + " (" + std::to_string(payload.size()) + " bytes)");
  }
}

}  // namespace gateway
