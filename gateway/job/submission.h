/// One order to the scheduler and what becomes of it.
#pragma once

#include <json/value.h>

#include <string>

namespace gateway {

struct Broker {
  std::string host;
  int port = 0;
};

struct Order {
  int ackCode = 0;         // what the gateway is to do, see kAddJob and its kin
  std::string ackContent;  // goes to the gateway as it is
  Json::Value request;     // the deployment request inside, for the names of its resources; or null
  std::string jobId;       // of an earlier job; empty: a new one
};

inline constexpr int kAddJob = 10201;
inline constexpr int kDeleteJob = 10204;
inline constexpr int kResetJobs = 10219;

/// Submits `order` and waits at most `seconds` for its last word: the deployment's report, or for
/// orders without a deployment (and for packages that could not be fetched) the status. Returns ""
/// and sets `result` to that event, or says what went wrong.
std::string submit(const Broker& broker, const Order& order, int seconds, Json::Value& result);

/// Hands `order` to the scheduler and leaves what becomes of it to others. Returns "" when the
/// broker has it, or says what went wrong.
std::string handOver(const Broker& broker, const Order& order);

/// Publishes one message. Returns "" or says what went wrong.
std::string publishOnce(const Broker& broker, const std::string& topic, const std::string& payload);

/// Prints every message of `filter` until the connection is lost, and then says so.
std::string watchTopics(const Broker& broker, const std::string& filter);

}  // namespace gateway
