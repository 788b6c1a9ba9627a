/// The client side of the bus layer: one proxy stands for one remote service. It has two private
/// connections to the daemon: one for asynchronous calls and signals, read by a worker thread of
/// its own, and one for blocking calls. Every operation may be called from any thread.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "dbus_wrap/DConnection.h"
#include "dbus_wrap/DMessage.h"

namespace quillon {

class ProxyWorker;

/// Takes the reply of an asynchronous call (empty when none came in about 30 s) and the pointer
/// that was given with the call. Runs on the thread of the default loop, and may send on the same
/// proxy.
using ReplyCallback = std::function<void(std::shared_ptr<DMessage>, void*)>;

class DProxy : public DConnection {
 public:
  /// Connects to the daemon; blocks for its answer. Without both connections the proxy is inert:
  /// every send fails at once. Never requests a bus name.
  DProxy(const char* wellknownName, const char* path, const char* interface);

  /// Closes the connections. Calls in flight or waiting for their turn are forgotten, their
  /// callbacks not called (but for one that the loop's thread is calling while another thread comes
  /// here); what was sent still goes out.
  virtual ~DProxy();
  DProxy(const DProxy&) = delete;
  DProxy& operator=(const DProxy&) = delete;

  /// A call of `member` of the remote service, or a signal from its path and interface; empty when
  /// a name breaks the bus's rules.
  std::shared_ptr<DMessage> makeMethodCall(const char* member) const {
    return DMessage::makeNewMethodCallMessage(wellknownName.c_str(), path.c_str(),
                                              interface.c_str(), member);
  }
  std::shared_ptr<DMessage> makeSignal(const char* member) const {
    return DMessage::makeSignalMessage(path.c_str(), interface.c_str(), member);
  }

  /// Sends a call; the reply comes through `callback`. At most 100 calls are in flight at a time:
  /// further ones count as sent and go out in order as answers come; for one that can't be sent
  /// when its turn comes the callback is called with an empty message. Returns false when the call
  /// was not sent; the callback is then never called.
  bool sendMessageWithReply(const std::shared_ptr<DMessage>& message, ReplyCallback callback,
                            void* userData);

  /// Sends a call and waits for the reply, an error reply included, for libdbus's default time-out
  /// of 25 s. Empty when none came. Calls on one proxy wait for each other.
  std::shared_ptr<DMessage> sendMessageWithReplyBlocking(const std::shared_ptr<DMessage>& message);

  /// Returns 0, or -1 when the signal was not sent.
  int sendSignal(const std::shared_ptr<DMessage>& message);

  /// Ends the workers of every proxy of the process for good and waits for this one's, see "One
  /// flag ends all workers" in docs/architecture.md. Nothing calls this yet.
  void stopWorkers();

  /// True when this proxy was made for that service and can reach the daemon.
  bool isFor(const std::string& otherName, const std::string& otherPath,
             const std::string& otherInterface) const {
    return connected && wellknownName == otherName && path == otherPath &&
           interface == otherInterface;
  }

  bool isConnected() const { return connected; }

  /// Calls `use(connection)` with the blocking connection (null when there is none) while no other
  /// blocking call uses it, and returns what it returns.
  template <typename Use>
  auto withBlockingConnection(const Use& use) {
    const std::lock_guard guard(blockingLock);
    return use(mConnectionBlocking.get());
  }

 private:
  const std::string wellknownName;
  const std::string path;
  const std::string interface;
  ConnectionPtr mConnectionBlocking;
  std::mutex blockingLock;  // of mConnectionBlocking
  // The asynchronous connection, its worker and its timers: they hold this themselves and outlive
  // the proxy until each has let go.
  std::shared_ptr<ProxyWorker> worker;
  bool connected = false;
};

}  // namespace quillon
