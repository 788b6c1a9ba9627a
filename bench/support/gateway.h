/// The neighbours of the service, all in one: the bridge with a scheduler behind it, executors, a
/// parser. They answer at once and always with success.
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "bus.h"
#include "process.h"

namespace bench {

inline constexpr const char* kService = "iot.job.manager";
inline constexpr const char* kBridge = "iot.bridge.mqtt";

/// The resource types, each with an executor of the same name. The parser takes all of them.
inline const std::vector<std::string> kTypes{"alarm", "label", "page", "user"};
inline constexpr const char* kParser = "bench.parser";

class Gateway {
 public:
  Gateway();
  ~Gateway();
  Gateway(const Gateway&) = delete;
  Gateway& operator=(const Gateway&) = delete;

  /// Waits for a heartbeat that was not answered yet and returns its id. A heartbeat stays open
  /// until it is answered, so those that came meanwhile are all of use.
  std::int64_t takeHeartbeat();

  /// Forgets those of a service that has ended.
  void dropHeartbeats();

  /// Waits until the service has a runner id and beats.
  void awaitRegistered() const;

  /// What was published since the last call of forget().
  struct Published {
    std::size_t others = 0;             // with a topic that is none of the service's
    double lastReport = 0;              // when the last deployment result came, 0 for not yet
    double lastMessage = 0;             // when anything came
    std::string report;                 // the last deployment result
    std::vector<std::string> statuses;  // the status reports
  };
  Published published() const;
  double reportTime() const;
  std::size_t statusCount() const;
  std::size_t otherCount() const;
  void forget();

 private:
  void run();
  void handle(DBusMessage* message);
  void publish(DBusMessage* message);
  void grant(const std::string& payload);

  Connection connection;
  mutable std::mutex lock;  // of the two
  std::deque<std::int64_t> heartbeats;
  Published seen;
  std::atomic<bool> stopping = false;
  std::thread thread;
};

/// The service, known to the scheduler, with its executors and the parser registered.
class Service {
 public:
  enum Registered { kBuiltInsOnly, kBenchExecutors };
  explicit Service(const Gateway& gateway, const std::string& log = "/dev/null",
                   Registered registered = kBenchExecutors);

  Child& child() { return process; }
  DBusConnection* bus() const { return connection.get(); }

  /// Calls a method of the service and ends the program unless it succeeded.
  void call(const std::string& member, const std::string& payload) const;

  /// Sends what the scheduler answered, through the bridge.
  void send(const std::string& topic, const std::string& payload) const;

  /// Comes back when everything that was sent before has been handled.
  void awaitHandled() const;

 private:
  Connection connection;
  Child process;
};

/// Waits until somebody owns the bus name `name`.
void awaitName(DBusConnection* connection, const std::string& name);

/// The payload that registers `name` (also its bus name) for `types`.
std::string registration(const std::string& name, const std::vector<std::string>& types,
                         const std::string& path = "/bench");

/// The scheduler's answer to the heartbeat `id`, carrying `jobs` (a JSON array).
std::string heartbeatReply(std::int64_t id, const std::string& jobs);

/// Text as a JSON string, quotation marks included.
std::string quoted(const std::string& text);

/// The topic of the scheduler's replies.
std::string replyTopic();

}  // namespace bench
