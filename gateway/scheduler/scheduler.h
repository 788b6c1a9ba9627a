/// One runner's scheduler. Everything runs on the thread that serves the MQTT connection.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <fstream>
#include <functional>
#include <list>
#include <map>
#include <set>
#include <string>

#include "reports.h"

namespace gateway {

struct SchedulerSettings {
  std::string productKey;
  std::string deviceName;
  std::int64_t runId;
  std::string recordFile;  // where to append what passes, one line a message; empty for nowhere
};

/// What all topics of a runner begin with.
std::string topicPrefix(const SchedulerSettings& settings);

class Scheduler {
 public:
  using Publish = std::function<void(const std::string& topic, const std::string& payload)>;

  /// `publish` sends a message to the broker.
  Scheduler(SchedulerSettings settings, Publish publish);

  /// Takes what came on one of the runner's topics, which begin with topicPrefix() of its settings.
  void onMessage(const std::string& topic, const std::string& payload);

  /// Takes an order for a job: {"token", "ackCode", "ackContent", "executor", "request", and
  /// "jobId" when it is about a job that was given before}.
  void onSubmit(const std::string& payload);

  /// Triggers the runner's rule engine.
  void onTrigger(const std::string& payload);

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

  void queue(const Json::Value& order);
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
  const Publish publish;
};

}  // namespace gateway
