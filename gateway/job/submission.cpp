#include "submission.h"

#include <gateway/shown_text.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string_view>

#include "common/mqtt_client.h"
#include "lib/json_helper.h"
#include "outcome.h"
#include "package/manifest.h"

namespace gateway {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kSubmitTopic = "local/scheduler/submit";
constexpr const char* kResultTopic = "local/scheduler/result/";
constexpr int kQos = 1;
constexpr int kLongestPump = 20000;  // milliseconds
constexpr int kConnectSeconds = 10;

// Each of its lines with a line end.
std::string shownLines(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    shown += shownText(line) + '\n';
    text.remove_prefix(std::min(line.size() + 1, text.size()));
  }
  return shown;
}

// Serves the connection until `done`. Returns false when it is lost or `until` has passed.
bool pumpUntil(MqttClient& mqtt, Clock::time_point until, const std::function<bool()>& done) {
  while (!done()) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
    if (left <= 0) return false;
    if (!mqtt.pump(static_cast<int>(std::min<long long>(left, kLongestPump)))) return false;
  }
  return true;
}

std::string orderText(const Order& order, const std::string& token) {
  Json::Value value(Json::objectValue);
  value["token"] = token;
  value["ackCode"] = order.ackCode;
  value["ackContent"] = order.ackContent;
  value["request"] = order.request;
  if (!order.jobId.empty()) {
    value["jobId"] = Json::Value::Int64{std::strtoll(order.jobId.c_str(), nullptr, 10)};
  }
  return jobm::json::compact(value);
}

}  // namespace

std::string submit(const Broker& broker, const Order& order, int seconds, Json::Value& result) {
  const std::string token = uniqueText();
  bool subscribed = false;
  bool finished = false;
  std::string lastHeard = "nothing";
  MqttClient mqtt("", false,
                  {.message =
                       [&](const std::string&, const std::string& payload) {
                         Json::Value event;
                         if (finished || !jobm::json::parse(payload, event) || !event.isObject())
                           return;
                         lastHeard = jobm::json::textOf(event, "event");
                         finished = isLastWord(event);
                         if (finished) result = event;
                       },
                   .subscribed = [&](bool granted) { subscribed = granted; }});
  const auto until = Clock::now() + std::chrono::seconds(seconds);
  // Subscribed before the order goes out: the answer must not come too early.
  if (!mqtt.connect(broker.host, broker.port) || !mqtt.subscribe(kResultTopic + token, kQos) ||
      !pumpUntil(mqtt, until, [&] { return subscribed; })) {
    return "no broker at " + broker.host + ":" + std::to_string(broker.port);
  }
  if (mqtt.publish(kSubmitTopic, orderText(order, token), kQos) != Handed::kTaken) {
    return "the order was not sent";
  }
  if (!pumpUntil(mqtt, until, [&] { return finished; })) {
    return "no result in time; last heard of: " + lastHeard;
  }
  return "";
}

std::string handOver(const Broker& broker, const Order& order) {
  return publishOnce(broker, kSubmitTopic, orderText(order, uniqueText()));
}

std::string publishOnce(const Broker& broker, const std::string& topic,
                        const std::string& payload) {
  bool arrived = false;
  MqttClient mqtt("", false, {.published = [&](int) { arrived = true; }});
  const auto until = Clock::now() + std::chrono::seconds(kConnectSeconds);
  const bool sent = mqtt.connect(broker.host, broker.port) &&
                    mqtt.publish(topic, payload, kQos) == Handed::kTaken &&
                    pumpUntil(mqtt, until, [&] { return arrived; });
  return sent ? "" : "no broker at " + broker.host + ":" + std::to_string(broker.port);
}

std::string watchTopics(const Broker& broker, const std::string& filter) {
  MqttClient mqtt("", false, {.message = [](const std::string& topic, const std::string& payload) {
                    std::printf("%s\n%s\n", shownText(topic).c_str(), shownLines(payload).c_str());
                    std::fflush(stdout);
                  }});
  if (!mqtt.connect(broker.host, broker.port) || !mqtt.subscribe(filter, kQos)) {
    return "no broker at " + broker.host + ":" + std::to_string(broker.port);
  }
  while (mqtt.pump(kLongestPump)) {
  }
  return "the connection to the broker is lost";
}

}  // namespace gateway
