/// A neighbour of the service on the bus, written once for the executors of the local gateway and
/// for whatever tests need beside the service. Directly on libdbus, so that it shares nothing with
/// the service's own bus layer.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

#include "bus.h"
#include "wait.h"

namespace gateway {

using Argument = std::variant<std::string, std::int32_t>;

/// One message as it came in.
struct Received {
  bool isSignal = false;
  std::string member;
  std::string path;
  std::string interface;
  std::string signature;
  std::vector<Argument> arguments;

  /// Argument `i` as text, "" when there is none or it is of another type.
  std::string text(std::size_t i = 0) const;
};

/// What a neighbour does with a call: answer one text, answer an error of that name and text,
/// answer the same text two times or not at once, or stay silent.
struct Error {
  std::string name;
  std::string text;
};
struct Twice {
  std::string text;
};
struct Late {
  std::string text;
  int milliseconds;
};
using Answer = std::variant<std::string, Error, Twice, Late, std::monostate>;

class Neighbour {
 public:
  using Handler = std::function<Answer(const Received&)>;

  /// Connects, takes `busName` (unless it is empty) and matches `rules`. Ends the program without
  /// a daemon and when the name is taken. Messages without a handler of their own go to `other`
  /// and are not kept; without that, they are, and calls are answered with
  /// {"code":0,"message":"","data":null}. The last message of a lost connection is libdbus's own
  /// signal "Disconnected".
  explicit Neighbour(const std::string& busName, const std::vector<std::string>& rules = {},
                     Handler other = {});
  ~Neighbour();
  Neighbour(const Neighbour&) = delete;
  Neighbour& operator=(const Neighbour&) = delete;

  /// What is done with messages of `member`. The handler runs on the neighbour's thread, one at a
  /// time; what it returns for a signal is ignored.
  void on(const std::string& member, Handler handler);
  void answer(const std::string& member, Answer answer);

  /// The calls and signals of `member` so far, of all members when it is empty.
  std::vector<Received> received(const std::string& member = "") const;
  std::size_t count(const std::string& member) const;

  /// Waits up to `seconds` for the `n`-th message of `member`; empty when it doesn't come.
  std::optional<Received> await(const std::string& member, std::size_t n = 1, double seconds = 60);

  /// Sends a signal with text arguments, to `destination` unless that is empty.
  void emit(const std::string& path, const std::string& interface, const std::string& member,
            const std::vector<std::string>& texts, const std::string& destination = "");

 private:
  void run();
  void handle(DBusMessage* message);
  void reply(DBusMessage* call, const Answer& answer);
  void sendWhatIsDue();
  std::optional<int> untilNextIsDue() const;  // milliseconds
  std::vector<const Received*> matching(const std::string& member) const;

  const Connection connection;
  BusWait wait;
  const std::string name;
  const Handler otherwise;
  std::map<std::string, Handler> handlers;
  std::vector<Received> messages;
  mutable std::mutex lock;                                             // of handlers and messages
  std::condition_variable arrived;                                     // a message
  std::multimap<std::chrono::steady_clock::time_point, Message> late;  // of the thread
  std::atomic<bool> stopping = false;
  std::thread thread;
};

/// Calls a method with text arguments over a connection of its own and waits up to `seconds` for
/// the reply's first text (an error's, too); empty when none comes. Interface and bus name are the
/// same.
std::optional<std::string> busCall(const std::string& service, const std::string& path,
                                   const std::string& member, const std::vector<std::string>& texts,
                                   double seconds = 60);

/// Waits up to `seconds` until `condition` holds; returns whether it does. Asks every 2 ms: for
/// tests, of what nobody announces.
bool eventually(const std::function<bool()>& condition, double seconds = 60);

}  // namespace gateway
