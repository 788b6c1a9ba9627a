/// The least that a server and a client of the service's shape can be: libdbus and libuv, the same
/// handles, threads, waits and locks, and nothing else. One thread, but for the proxy's send.
#pragma once

#include <uv.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/bus.h"

namespace bench {

/// An idle handle that reads and writes for up to 10 ms and takes everything there is. Calls are
/// answered with one text of `answerBytes` bytes, the member "count" with the signals so far. It
/// hears the signals of NAME.bridge.
class BareServer {
 public:
  BareServer(const std::string& name, std::size_t answerBytes);

  /// Is called for every signal and every call that was answered.
  std::function<void(DBusMessage*)> onMessage;

 private:
  void turn();
  void answer(DBusMessage* call);

  Connection connection;
  const std::string bridge;
  const std::string text;
  std::size_t signals = 0;
  uv_idle_t idle{};
};

/// A connection for blocking calls, one with a worker that reads it, and two timers.
class BareProxy {
 public:
  using Callback = std::function<void(DBusMessage*)>;

  BareProxy();
  ~BareProxy();
  BareProxy(const BareProxy&) = delete;
  BareProxy& operator=(const BareProxy&) = delete;

  /// Sends a message that has no reply. Any thread.
  void send(DBusMessage* signal);

  /// Sends a call; `callback` gets the reply on the loop's thread. Any thread.
  void send(DBusMessage* call, Callback callback);

 private:
  void read();
  void drain();

  Connection blocking;
  Connection async;
  std::mutex pendingLock;
  std::map<std::uint32_t, Callback> pending;
  std::mutex replyLock;
  std::vector<Message> replies;
  uv_timer_t replyTimer{};
  uv_timer_t ageTimer{};
  std::atomic<bool> stopping = false;
  std::thread worker;
};

}  // namespace bench
