// The calls of one proxy that nobody has answered yet: those in flight, by serial, and behind them
// those that wait for their turn, in order. One critical section covers sending and filing, so that
// a reply can't overtake its record, and one covers the end of a call and the sending of the next,
// so that nobody jumps the queue. No callback runs here, and none is destroyed under the lock.
#pragma once

#include <gateway/log_context.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "dbus_wrap/DMessage.h"
#include "dbus_wrap/DProxy.h"

namespace quillon {

class PendingRequests {
 public:
  /// A daemon without configured limits refuses the 129th unanswered call of a connection.
  static constexpr std::size_t kMaxInFlight = 100;

  struct Request {
    std::shared_ptr<DMessage> message;  // until it is sent
    ReplyCallback callback;
    void* userData = nullptr;
    std::uint32_t ticks = 0;
    gateway::LogContext context{};  // of the caller, taken up again for the callback
  };

  /// Sends a message and sets *serial to the number it got. Called with the lock held.
  using Send = std::function<bool(const std::shared_ptr<DMessage>&, std::uint32_t* serial)>;

  explicit PendingRequests(Send sendMessage) : send(std::move(sendMessage)) {}

  /// Sends the call and files it, or lets it wait when enough are in flight. Returns false when it
  /// was not sent and never will be. Any thread, as all of these.
  bool add(Request request);

  /// True for the one caller who has to start the ageing: something is pending, and age() has not
  /// been told to go on.
  bool startsAgeing();

  /// Removes the call of that serial and lets the next ones go out; empty when there is none. Those
  /// whose turn came and who could not be sent are appended to `failed`.
  std::optional<Request> take(std::uint32_t serial, std::vector<Request>& failed);

  /// One tick: removes what has been in flight for `maxTicks` of them and lets the next ones go
  /// out. Appends the removed ones and those who could not be sent to `ended`. Returns false when
  /// nothing is pending any more and the ageing stops.
  bool age(std::uint32_t maxTicks, std::vector<Request>& ended);

  /// Forgets everything, without a callback.
  void clear();

 private:
  bool sendAndFile(Request& request);
  void sendWaiting(std::vector<Request>& failed);

  const Send send;
  std::mutex pendingLock;  // of everything below
  std::uint32_t requestCounter = 0;
  std::map<std::uint32_t, Request> pendingRequests;  // by serial, which is the sending order
  std::list<Request> waitingRequests;                // only while kMaxInFlight are pending
  bool ageing = true;                                // the timer is started with the worker
};

}  // namespace quillon
