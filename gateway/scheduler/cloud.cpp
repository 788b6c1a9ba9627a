#include "cloud.h"

#include <utility>

#include "common/trace.h"

namespace gateway {
namespace {

constexpr const char* kMe = "gateway-scheduler";
// For one gateway of many, its device name follows, behind a slash.
constexpr const char* kSubmitTopic = "local/scheduler/submit";
constexpr const char* kTriggerTopic = "local/scheduler/trigger";
constexpr int kQos = 1;

// "/sys/PRODUCT/DEVICE/...", "local/scheduler/submit/DEVICE": the part behind the `n`-th slash.
std::string partOf(const std::string& topic, int n) {
  std::size_t begin = 0;
  for (; n > 0; --n) {
    begin = topic.find('/', begin);
    if (begin++ == std::string::npos) return "";
  }
  return topic.substr(begin, topic.find('/', begin) - begin);
}

}  // namespace

Cloud::Cloud(SchedulerSettings given)
    : settings(std::move(given)),
      prefix(topicPrefix(settings)),
      mqtt(kMe, true,
           {.connected = [this] { subscribeTopics(); },
            .disconnected = [] { trace(kMe, "broker", "disconnected"); },
            .message = [this](const std::string& topic,
                              const std::string& payload) { onMessage(topic, payload); }}) {}

void Cloud::run(const std::string& host, int port) { mqtt.run(host, port); }

void Cloud::subscribeTopics() {
  trace(kMe, "broker", "connected");
  mqtt.subscribe(prefix + "/scheduler/publish/#", kQos);
  mqtt.subscribe(prefix + "/edge/deploy/post", kQos);
  mqtt.subscribe(prefix + "/edge/rule/post_log", kQos);
  for (const std::string topic : {kSubmitTopic, kTriggerTopic}) mqtt.subscribe(topic + "/#", kQos);
}

void Cloud::onMessage(const std::string& topic, const std::string& payload) {
  const bool isOrder = topic.starts_with(kSubmitTopic);
  const bool isTrigger = topic.starts_with(kTriggerTopic);
  Scheduler& scheduler = schedulerOf(partOf(topic, 3));
  if (isOrder) return scheduler.onSubmit(payload);
  if (isTrigger) return scheduler.onTrigger(payload);
  scheduler.onMessage(topic, payload);
}

Scheduler& Cloud::schedulerOf(const std::string& deviceName) {
  SchedulerSettings one = settings;
  if (!deviceName.empty()) one.deviceName = deviceName;
  one.runId += static_cast<std::int64_t>(schedulers.size());
  const std::string name = one.deviceName;
  const auto publish = [this](const std::string& topic, const std::string& payload) {
    mqtt.publish(topic, payload, kQos);
  };
  return schedulers.try_emplace(name, std::move(one), publish).first->second;
}

}  // namespace gateway
