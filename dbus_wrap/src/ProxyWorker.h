// The asynchronous half of a proxy.
//
// Threads: the worker thread reads the connection and files replies in replyQueue; the thread of
// the default loop runs both timers, hence every callback; any thread sends. The two locks are
// never held together, and none is held while a callback runs. The timers' handles belong to the
// loop's thread. `self` keeps this alive until the loop has let go of them; the worker thread holds
// a share of its own.
#pragma once

#include <uv.h>

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "dbus_wrap/DConnection.h"
#include "dbus_wrap/DProxy.h"

namespace quillon {

class ProxyWorker : public std::enable_shared_from_this<ProxyWorker>, private DConnection {
 public:
  explicit ProxyWorker(ConnectionPtr connection);

  /// Starts the worker thread and both timers. Returns false when there is no thread to be had.
  bool startWorkers();

  /// Lets go: the worker sends what is queued and ends, then the loop's thread closes everything.
  void release();

  /// Ends the workers of the whole process and waits for this one's.
  void stopWorkers();

  bool sendMessageWithReply(const std::shared_ptr<DMessage>& message, ReplyCallback callback,
                            void* userData);
  bool sendSignal(const std::shared_ptr<DMessage>& message);

 private:
  struct PendingRequest {
    ReplyCallback callback;
    void* userData;
    std::uint32_t ticks;
  };
  struct ReceivedReply {
    std::shared_ptr<DMessage> reply;
    std::uint32_t serial;
  };

  // On the worker thread.
  static void loop_thread_worker(void* share);
  void readUntilToldToStop();
  void popMessages();
  void sendRest();

  // On the loop's thread.
  void startTimers();
  void stopTimers();
  void startReaping();
  void reap();
  void drainReplies();
  void handleReply(const ReceivedReply& received);
  void complete(const PendingRequest& request, const std::shared_ptr<DMessage>& reply);
  void agePending();
  static void onReplyTimer(uv_timer_t* timer);
  static void onTimeoutTimer(uv_timer_t* timer);
  static void onReapTimer(uv_timer_t* timer);
  static void onTimerClosed(uv_handle_t* handle);

  void joinWorker();

  // Ends the worker loops of every proxy in the process.
  static std::atomic<bool> quit;

  ConnectionPtr mConnectionAsync;
  std::uint32_t requestCounter = 0;                         // under pendingLock
  std::map<std::uint32_t, PendingRequest> pendingRequests;  // by serial, which is the sending order
  std::mutex pendingLock;
  std::mutex replyLock;
  std::vector<ReceivedReply> replyQueue;

  uv_thread_t worker{};
  std::mutex joinLock;
  bool joinable = false;  // under joinLock
  std::atomic<bool> released = false;
  std::atomic<bool> finished = false;  // the worker is past its last use of the connection

  // Loop's thread only, from here on.
  uv_timer_t replyTimer{};
  uv_timer_t timeoutTimer{};
  bool timersReady = false;
  int openTimers = 0;
  std::shared_ptr<ProxyWorker> self;
};

}  // namespace quillon
