// The asynchronous half of a proxy.
//
// Threads: the worker thread reads the connection and files replies in replyQueue; the thread of
// the default loop runs both timers, hence every callback; any thread sends. The two locks (of the
// requests and of the queue) are never held together, and none is held while a callback runs. The
// timers' handles belong to the loop's thread. `self` keeps this alive until the loop has let go of
// them; the worker thread holds a share of its own.
//
// Who wakes whom; nobody waits by the clock:
// - The worker sleeps in poll(2), holding nothing of libdbus. The daemon wakes it through the
//   connection's descriptor, a send that left something unsent (or found the daemon gone) and a
//   release through its own event descriptor, the end of all workers through the process's one.
// - The loop sleeps in its own poll. The worker posts it a task (LoopTasks) when it files an answer
//   in an empty queue, which arms replyTimer for now, and when it ends.
// - timeoutTimer ticks while something is pending. A call that finds it at rest has it started on
//   the loop's thread; the tick that finds nothing stops it.
#pragma once

#include <uv.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "Burst.h"
#include "EventDescriptor.h"
#include "PendingRequests.h"
#include "dbus_wrap/DConnection.h"
#include "dbus_wrap/DProxy.h"

namespace quillon {

class ProxyWorker : public std::enable_shared_from_this<ProxyWorker>, private DConnection {
 public:
  explicit ProxyWorker(ConnectionPtr connection);

  /// Starts the worker thread and both timers. Returns false when there is no thread or descriptor
  /// to be had.
  bool startWorkers();

  /// Lets go: the worker sends what is queued and ends, then the loop's thread closes everything.
  void release();

  /// Ends the workers of the whole process and waits for this one's.
  void stopWorkers();

  bool sendMessageWithReply(const std::shared_ptr<DMessage>& message, ReplyCallback callback,
                            void* userData);
  bool sendSignal(const std::shared_ptr<DMessage>& message);

 private:
  using Request = PendingRequests::Request;
  struct ReceivedReply {
    std::shared_ptr<DMessage> reply;
    std::uint32_t serial;
  };

  bool send(const std::shared_ptr<DMessage>& message, std::uint32_t* serial);
  static void endAllWorkers();

  // On the worker thread.
  static void loop_thread_worker(void* share);
  void readUntilToldToStop();
  bool waitUntilReady();
  bool hasUnread();
  void popMessages();
  void queueReplies(std::vector<ReceivedReply> replies);
  void sendRest();

  // On the loop's thread.
  void startTimers();
  void stopTimers();
  void startDraining();
  void startAgeing();
  bool mayRunTimers() const;
  void closeIfDone();
  void drainReplies();
  void handleReply(const ReceivedReply& received);
  void complete(const Request& request, const std::shared_ptr<DMessage>& reply);
  void agePending();
  static void onReplyTimer(uv_timer_t* timer);
  static void onTimeoutTimer(uv_timer_t* timer);
  static void onTimerClosed(uv_handle_t* handle);

  void joinWorker();

  // Ends the worker loops of every proxy in the process.
  static std::atomic<bool> quit;

  ConnectionPtr mConnectionAsync;
  int descriptor = -1;  // the connection's, for waiting; libdbus closes it when the daemon goes
  const EventDescriptor wakeUp;
  Burst burst;  // of what the socket did not take at once
  PendingRequests requests;
  std::mutex replyLock;
  std::vector<ReceivedReply> replyQueue;  // under replyLock

  uv_thread_t worker{};
  std::mutex joinLock;
  bool joinable = false;  // under joinLock
  std::atomic<bool> released = false;

  // Loop's thread only, from here on.
  uv_timer_t replyTimer{};
  uv_timer_t timeoutTimer{};
  bool timersReady = false;
  bool stopped = false;   // for good: the timers of this proxy
  bool finished = false;  // the worker is past its last use of the connection
  int openTimers = 0;
  std::shared_ptr<ProxyWorker> self;
};

}  // namespace quillon
