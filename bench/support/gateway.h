/// The neighbours of the service, all in one: the bridge with a scheduler behind it, executors, a
/// parser. They answer at once and always with success.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "bus.h"
#include "process.h"
#include "reader.h"

namespace bench {

inline constexpr const char* kService = "iot.job.manager";
inline constexpr const char* kBridge = "iot.bridge.mqtt";

/// The resource types, each with an executor of the same name. The parser takes all of them.
inline const std::vector<std::string> kTypes{"alarm", "label", "page", "user"};
inline constexpr const char* kParser = "bench.parser";

class Gateway {
 public:
  Gateway();

  /// Waits for a heartbeat that was not answered yet and returns its id. A heartbeat stays open
  /// until it is answered, so those that came meanwhile are all of use.
  std::int64_t takeHeartbeat();

  /// Forgets those of a service that has ended.
  void dropHeartbeats();

  /// From now on heartbeats are answered at once: there is nothing to do.
  void answerHeartbeats();

  /// Waits until the service has a runner id and beats.
  void awaitRegistered();

  /// What was published since the last call of forget().
  struct Published {
    std::size_t others = 0;             // with a topic that is none of the service's
    double lastReport = 0;              // when the last deployment result came, 0 for not yet
    double lastMessage = 0;             // when anything came
    std::size_t successes = 0;          // resources that the deployment results call deployed
    std::string report;                 // the last deployment result
    std::vector<std::string> statuses;  // the status reports
  };
  Published published() const;
  void forget();

  /// Waits until what was published fulfils `condition`, which runs on the gateway's thread, too.
  /// Returns false after `seconds` without.
  using Condition = std::function<bool(const Published&)>;
  bool hasPublished(const Condition& condition, double seconds);

  /// The same, and ends the program when it never does.
  void await(const char* what, const Condition& condition) {
    require(hasPublished(condition, 120), what);
  }

 private:
  void handle(DBusMessage* message);
  void publish(DBusMessage* message);
  void beat(std::int64_t id);
  void answer(const std::string& payload);
  bool awaitLocked(std::unique_lock<std::mutex>& guard, const std::function<bool()>& condition,
                   double seconds);

  mutable std::mutex lock;  // of all but the reader
  std::deque<std::int64_t> heartbeats;
  bool answersHeartbeats = false;
  Published seen;
  const std::function<bool()>* wanted = nullptr;  // what a thread waits for
  std::condition_variable fulfilled;
  DBusConnection* bus = nullptr;      // of the reader, and of its thread alone
  std::unique_ptr<BusReader> reader;  // the last member: its thread uses the others
};

/// The service, known to the scheduler, with its executors and the parser registered.
class Service {
 public:
  enum Registered { kBuiltInsOnly, kBenchExecutors };
  /// `before` is a command that runs the one behind it in the same process.
  explicit Service(Gateway& gateway, const std::string& log = "/dev/null",
                   Registered registered = kBenchExecutors,
                   const std::vector<std::string>& before = {});

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

/// The scheduler's answer to the request `id`; `data` is JSON.
std::string replyTo(std::int64_t id, int code, const std::string& data);

/// The same to a heartbeat, carrying `jobs` (a JSON array).
std::string heartbeatReply(std::int64_t id, const std::string& jobs);

/// Text as a JSON string, quotation marks included.
std::string quoted(const std::string& text);

/// The topic of the scheduler's replies.
std::string replyTopic();

}  // namespace bench
