/// The cloud of one local gateway, or of many: a scheduler for each, on one MQTT connection.
#pragma once

#include <map>
#include <string>

#include "common/mqtt_client.h"
#include "scheduler.h"

namespace gateway {

class Cloud {
 public:
  /// A device name "+" serves every device of the product, and grants the runner ids from
  /// `settings`.runId on.
  explicit Cloud(SchedulerSettings settings);

  /// Serves the broker at `host`:`port`; never returns.
  [[noreturn]] void run(const std::string& host, int port);

 private:
  void subscribeTopics();
  void onMessage(const std::string& topic, const std::string& payload);
  Scheduler& schedulerOf(const std::string& deviceName);

  const SchedulerSettings settings;
  const std::string prefix;                     // of every topic of the runners; a filter
  std::map<std::string, Scheduler> schedulers;  // by device name
  MqttClient mqtt;
};

}  // namespace gateway
