/// A neighbour of the service, for tests: a bus client with a thread of its own, written directly
/// on libdbus so that it shares nothing with the code under test.
#pragma once

#include <dbus/dbus.h>

#include <atomic>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace test {

using Argument = std::variant<std::string, std::int32_t>;

/// One message as it came in.
struct Received {
  bool isSignal = false;
  std::string member;
  std::string path;
  std::string interface;
  std::vector<Argument> arguments;

  /// Argument `i` as text, "" when there is none or it is of another type.
  std::string text(std::size_t i = 0) const;
};

/// What a peer does with a call: answer one text, answer an error of that name and text, answer the
/// same text two times, or stay silent.
struct Error {
  std::string name;
  std::string text;
};
struct Twice {
  std::string text;
};
using Answer = std::variant<std::string, Error, Twice, std::monostate>;

class FakePeer {
 public:
  /// Connects, takes `busName` (unless it is empty) and matches `rules`. Aborts the test without a
  /// daemon.
  explicit FakePeer(const std::string& busName, const std::vector<std::string>& rules = {});
  ~FakePeer();
  FakePeer(const FakePeer&) = delete;
  FakePeer& operator=(const FakePeer&) = delete;

  /// How calls of `member` are answered; the default is {"code":0,"message":"","data":null}. The
  /// function runs on the peer's thread.
  void on(const std::string& member, std::function<Answer(const Received&)> handler);
  void answer(const std::string& member, Answer answer);

  /// The calls and signals of `member` so far, of all members when it is empty.
  std::vector<Received> received(const std::string& member = "") const;
  std::size_t count(const std::string& member) const { return received(member).size(); }

  /// Waits up to `seconds` for the `n`-th message of `member`; empty when it doesn't come.
  std::optional<Received> await(const std::string& member, std::size_t n = 1, double seconds = 10);

  /// Sends a signal with text arguments, to `destination` unless that is empty.
  void emit(const std::string& path, const std::string& interface, const std::string& member,
            const std::vector<std::string>& texts, const std::string& destination = "");

 private:
  void run();
  void handle(DBusMessage* message);
  void reply(DBusMessage* call, const Answer& answer);

  DBusConnection* const connection;
  const std::string name;
  std::map<std::string, std::function<Answer(const Received&)>> handlers;
  std::vector<Received> messages;
  mutable std::mutex lock;  // of handlers and messages
  std::atomic<bool> stopping = false;
  std::thread thread;
};

/// Calls a method with text arguments over a connection of its own and waits up to `seconds` for
/// the reply's first text (an error's, too); empty when none comes. Interface and bus name are the
/// same.
std::optional<std::string> busCall(const std::string& service, const std::string& path,
                                   const std::string& member, const std::vector<std::string>& texts,
                                   double seconds = 10);

/// Waits up to `seconds` until `condition` holds; returns whether it does.
bool eventually(const std::function<bool()>& condition, double seconds = 10);

}  // namespace test
