#include "ProxyWorker.h"

#include <gateway/log_macros.h>
#include <sys/prctl.h>

#include <exception>
#include <utility>

#include "dbus_wrap/LoopTasks.h"

namespace quillon {
namespace {

constexpr int kReadWriteMs = 10;
constexpr unsigned long kOrdinarySlackNs = 50000;
constexpr std::uint64_t kDrainMs = 10;
constexpr std::uint64_t kAgeMs = 2000;
// 15 ticks of 2 s: a call without an answer is given up after about 30 s.
constexpr std::uint32_t kMaxTicks = 15;
// How often a released worker tries, for 10 ms each, to get rid of what is queued.
constexpr int kMaxRestTries = 100;

const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

}  // namespace

std::atomic<bool> ProxyWorker::quit = false;

ProxyWorker::ProxyWorker(ConnectionPtr connection) : mConnectionAsync(std::move(connection)) {}

bool ProxyWorker::startWorkers() {
  auto share = std::make_unique<std::shared_ptr<ProxyWorker>>(shared_from_this());
  {
    const std::lock_guard guard(joinLock);
    if (uv_thread_create(&worker, loop_thread_worker, share.get()) != 0) return false;
    joinable = true;
  }
  // The worker thread takes its share over.
  static_cast<void>(share.release());
  runOnLoop([keep = shared_from_this()] { keep->startTimers(); });
  return true;
}

void ProxyWorker::release() {
  released = true;
  runOnLoop([keep = shared_from_this()] { keep->startReaping(); });
}

void ProxyWorker::stopWorkers() {
  quit = true;
  runOnLoop([keep = shared_from_this()] { keep->stopTimers(); });
  joinWorker();
}

void ProxyWorker::joinWorker() {
  const std::lock_guard guard(joinLock);
  if (!joinable) return;
  const uv_thread_t current = uv_thread_self();
  if (uv_thread_equal(&current, &worker)) return;  // a worker never waits for itself
  uv_thread_join(&worker);
  joinable = false;
}

bool ProxyWorker::sendMessageWithReply(const std::shared_ptr<DMessage>& message,
                                       ReplyCallback callback, void* userData) {
  // One critical section for sending and filing, so that a reply can't overtake its record.
  const std::lock_guard guard(pendingLock);
  ++requestCounter;
  DBusMessage* raw = message ? message->raw() : nullptr;
  LOGI("Sending message: interface: %s destination: %s member: %s",
       orEmpty(raw != nullptr ? dbus_message_get_interface(raw) : nullptr),
       orEmpty(raw != nullptr ? dbus_message_get_destination(raw) : nullptr),
       orEmpty(raw != nullptr ? dbus_message_get_member(raw) : nullptr));
  std::uint32_t serial = 0;
  const bool sent = sendOn(mConnectionAsync.get(), message, &serial);
  if (sent) {
    pendingRequests.insert_or_assign(serial, PendingRequest{std::move(callback), userData, 0});
  }
  LOGD("DProxy::sendMessageWithReply reqId = %d, sendStatus = %s\n", static_cast<int>(serial),
       sent ? "true" : "false");
  return sent;
}

bool ProxyWorker::sendSignal(const std::shared_ptr<DMessage>& message) {
  return sendOn(mConnectionAsync.get(), message, nullptr);
}

void ProxyWorker::loop_thread_worker(void* share) {
  const std::unique_ptr<std::shared_ptr<ProxyWorker>> owner(
      static_cast<std::shared_ptr<ProxyWorker>*>(share));
  LOGD("uvIdleCallback threadId =%lu \n", static_cast<unsigned long>(uv_thread_self()));
  ProxyWorker& self = **owner;
  self.readUntilToldToStop();
  self.finished = true;
}

void ProxyWorker::readUntilToldToStop() {
  // A worker that the loop's thread starts inherits its exact waits, which would spread the
  // wake-ups of many idle workers.
  prctl(PR_SET_TIMERSLACK, kOrdinarySlackNs, 0UL, 0UL, 0UL);
  while (!quit && !released) {
    if (!dbus_connection_read_write(mConnectionAsync.get(), kReadWriteMs)) {
      LOGE("DProxy connection to dbus-daemon disconnected, quit.\n");
      // The flag alone: this thread can't join itself, and the timers stop on the loop's thread.
      quit = true;
      return;
    }
    popMessages();
  }
  sendRest();
}

void ProxyWorker::popMessages() {
  // Another thread's send may find the daemon gone; the next pop would then end the process without
  // a word.
  while (dbus_connection_get_is_connected(mConnectionAsync.get())) {
    DBusMessage* raw = dbus_connection_pop_message(mConnectionAsync.get());
    if (raw == nullptr) return;
    auto message = std::make_shared<DMessage>(raw, true, DMessage::kRead);
    const int type = dbus_message_get_type(raw);
    const std::uint32_t serial = dbus_message_get_reply_serial(raw);
    LOGD("DProxy pop message: reqId = %d, type: %s sender: %s interface: %s member: %s",
         static_cast<int>(serial), dbus_message_type_to_string(type),
         orEmpty(dbus_message_get_path(raw)), orEmpty(dbus_message_get_interface(raw)),
         orEmpty(dbus_message_get_member(raw)));
    if (type != DBUS_MESSAGE_TYPE_METHOD_RETURN && type != DBUS_MESSAGE_TYPE_ERROR) continue;
    const std::lock_guard guard(replyLock);
    replyQueue.push_back({std::move(message), serial});
  }
}

void ProxyWorker::sendRest() {
  for (int tries = 0; tries < kMaxRestTries; ++tries) {
    if (!dbus_connection_has_messages_to_send(mConnectionAsync.get())) return;
    if (!dbus_connection_read_write(mConnectionAsync.get(), kReadWriteMs)) return;
  }
}

void ProxyWorker::startTimers() {
  self = shared_from_this();
  timersReady = true;
  openTimers = 2;
  uv_timer_init(uv_default_loop(), &timeoutTimer);
  timeoutTimer.data = this;
  uv_timer_start(&timeoutTimer, onTimeoutTimer, 0, kAgeMs);
  const int initialised = uv_timer_init(uv_default_loop(), &replyTimer);
  replyTimer.data = this;
  const int started = uv_timer_start(&replyTimer, onReplyTimer, 0, kDrainMs);
  LOGI("uv_timer_init return %d", initialised);
  LOGI("DProxy::startWorkers finished, uv_timer_start return %d", started);
  if (released) startReaping();
}

void ProxyWorker::stopTimers() {
  if (!timersReady) return;
  uv_timer_stop(&timeoutTimer);
  uv_timer_stop(&replyTimer);
}

void ProxyWorker::startReaping() {
  // A release can overtake the start of the timers, which then comes back here.
  if (!timersReady) return;
  stopTimers();
  uv_timer_start(&replyTimer, onReapTimer, 0, kDrainMs);
}

void ProxyWorker::reap() {
  if (!finished) return;
  joinWorker();
  uv_timer_stop(&replyTimer);
  mConnectionAsync.reset();
  uv_close(reinterpret_cast<uv_handle_t*>(&replyTimer), onTimerClosed);
  uv_close(reinterpret_cast<uv_handle_t*>(&timeoutTimer), onTimerClosed);
}

void ProxyWorker::complete(const PendingRequest& request, const std::shared_ptr<DMessage>& reply) {
  // A callback of the same batch may have dropped the proxy.
  if (released || !request.callback) return;
  try {
    request.callback(reply, request.userData);
  } catch (const std::exception& e) {
    LOGE("complete Exception e = %s\n", e.what());
  }
}

void ProxyWorker::drainReplies() {
  std::vector<ReceivedReply> replies;
  {
    const std::lock_guard guard(replyLock);
    replies.swap(replyQueue);
  }
  for (ReceivedReply& received : replies) {
    handleReply(received);
    received.reply.reset();
  }
}

void ProxyWorker::handleReply(const ReceivedReply& received) {
  LOGD("DProxy::handleReply reqId = %d", static_cast<int>(received.serial));
  PendingRequest request{};
  {
    const std::lock_guard guard(pendingLock);
    auto node = pendingRequests.extract(received.serial);
    if (node.empty()) return;
    request = std::move(node.mapped());
    LOGD("handleReply reqId = %d, left requests size: %ld\n", static_cast<int>(received.serial),
         static_cast<long>(pendingRequests.size()));
  }
  complete(request, received.reply);
}

void ProxyWorker::agePending() {
  std::vector<PendingRequest> expired;
  {
    const std::lock_guard guard(pendingLock);
    for (auto entry = pendingRequests.begin(); entry != pendingRequests.end();) {
      if (++entry->second.ticks < kMaxTicks) {
        ++entry;
        continue;
      }
      expired.push_back(std::move(entry->second));
      entry = pendingRequests.erase(entry);
    }
  }
  for (const PendingRequest& request : expired) complete(request, {});
}

void ProxyWorker::onReplyTimer(uv_timer_t* timer) {
  // A callback may drop the last proxy and with it everything but this share.
  const auto keep = static_cast<ProxyWorker*>(timer->data)->shared_from_this();
  if (quit) {
    keep->stopTimers();
    return;
  }
  keep->drainReplies();
}

void ProxyWorker::onTimeoutTimer(uv_timer_t* timer) {
  const auto keep = static_cast<ProxyWorker*>(timer->data)->shared_from_this();
  if (!quit) keep->agePending();
}

void ProxyWorker::onReapTimer(uv_timer_t* timer) { static_cast<ProxyWorker*>(timer->data)->reap(); }

void ProxyWorker::onTimerClosed(uv_handle_t* handle) {
  auto* worker = static_cast<ProxyWorker*>(handle->data);
  if (--worker->openTimers > 0) return;
  const auto last = std::move(worker->self);
  // What the callbacks hold may do anything when it goes, so it goes without the lock.
  std::map<std::uint32_t, PendingRequest> forgotten;
  const std::lock_guard guard(worker->pendingLock);
  forgotten.swap(worker->pendingRequests);
}

}  // namespace quillon
