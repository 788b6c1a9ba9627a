/// The cloud of the local gateway: one runner's scheduler. Everything runs on the thread that
/// serves its MQTT connection.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <fstream>
#include <list>
#include <map>
#include <set>
#include <string>

#include "common/mqtt_client.h"
#include "reports.h"

namespace gateway {

struct SchedulerSettings {
  std::string productKey;
  std::string deviceName;
  std::int64_t runId;
  std::string recordFile;  // where to append what passes, one line a message; empty for nowhere
};

class Scheduler {
 public:
  explicit Scheduler(SchedulerSettings settings);

  /// Serves the broker at `host`:`port`; never returns.
  [[noreturn]] void run(const std::string& host, int port);

 private:
  // A job from its submission to its last word.
  struct Job {
    std::string token;  // of the submitter: where to send what becomes of the job
    std::int64_t jobId = 0;
    std::int64_t ackId = 0;
    int ackCode = 0;
    std::string executor;
    std::string ackContent;
    Json::Value request;  // the deployment request inside; null when there is none
    bool handedOut = false;
    bool heardOf = false;  // a status or a report came back
  };

  void subscribeTopics();
  void onMessage(const std::string& topic, const std::string& payload);
  void onSubmit(const Json::Value& order);
  void onRequest(const std::string& suffix, const Json::Value& request);
  void onReport(const Json::Value& message);
  void answerHeartbeat(const Json::Value& request);
  void takeStatus(const Json::Value& request);
  bool isRedelivery(const std::string& suffix, const Json::Value& request);
  bool isKnownReport(const Json::Value& message);
  Job* jobOfReport(const Json::Value& report);
  Json::Value acknowledgement(const Job& job) const;
  void reply(const Json::Value& request, int code, const Json::Value& data,
             const std::string& message);
  void tell(const Job& job, Json::Value event);
  void complain(const std::string& what);
  void send(const std::string& suffix, const std::string& payload);
  void record(const std::string& topic, const std::string& payload);

  const SchedulerSettings settings;
  const std::string prefix;  // of every topic of the runner
  std::int64_t nextId;       // of jobs and acknowledgements; never used twice, also over restarts
  std::list<Job> jobs;
  std::map<std::uint64_t, std::string> requests;  // by id: an id may come again only by redelivery
  std::set<std::size_t> reports;                  // hashes of those that came
  ReportJoiner joiner;
  std::ofstream recording;
  MqttClient mqtt;
};

}  // namespace gateway
