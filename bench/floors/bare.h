/// The least that a server and a client of the service's shape can be: libdbus and libuv, the same
/// threads, connections and locks, and nothing else. In two shapes: one waits by the clock, one by
/// events. One thread, but for the proxy's send.
#pragma once

#include <uv.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "support/bus.h"

namespace bench {

/// What a floor waits by.
enum class Shape { kPolling, kEvents };

/// The shape called "polling" or "events"; ends the program for other words.
Shape shapeOf(const std::string& word);

/// Takes everything there is. Calls are answered with one text of `answerBytes` bytes, the member
/// "count" with the signals so far. It hears the signals of NAME.bridge.
class BareServer {
 public:
  virtual ~BareServer() = default;
  BareServer(const BareServer&) = delete;
  BareServer& operator=(const BareServer&) = delete;

  /// Is called for every signal and every call that was answered.
  std::function<void(DBusMessage*)> onMessage;

 protected:
  BareServer(const std::string& name, std::size_t answerBytes);

  /// Reads and writes for up to `milliseconds`, and handles all that is there. Ends the process
  /// with its connection.
  void turn(int milliseconds);

  Connection connection;

 private:
  void answer(DBusMessage* call);

  const std::string bridge;
  const std::string text;
  std::size_t signals = 0;
};

/// A connection for blocking calls, and one with a worker that reads it.
class BareProxy {
 public:
  using Callback = std::function<void(DBusMessage*)>;

  virtual ~BareProxy() = default;
  BareProxy(const BareProxy&) = delete;
  BareProxy& operator=(const BareProxy&) = delete;

  /// Sends a message that has no reply. Any thread.
  void send(DBusMessage* signal);

  /// Sends a call; `callback` gets the reply on the loop's thread. Any thread.
  void send(DBusMessage* call, Callback callback);

 protected:
  BareProxy();

  /// After every message that was sent, and, under pendingLock, after every call that was filed.
  virtual void sent() {}
  virtual void filed() {}

  /// For the worker: queues the replies that are there. Returns whether the first one found the
  /// queue empty.
  bool queueReplies();

  /// For the loop: calls back for all replies in the queue.
  void drain();

  Connection blocking;
  Connection async;
  std::mutex pendingLock;
  std::map<std::uint32_t, Callback> pending;

 private:
  std::mutex replyLock;
  std::vector<Message> replies;
};

/// Both are made before the default loop runs, on the thread that will run it.
std::unique_ptr<BareServer> makeServer(Shape shape, const std::string& name,
                                       std::size_t answerBytes);
std::unique_ptr<BareProxy> makeProxy(Shape shape);

}  // namespace bench
