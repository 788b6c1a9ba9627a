#include "ProxyWorker.h"

#include <gateway/log_macros.h>
#include <poll.h>

#include <array>
#include <exception>
#include <iterator>
#include <utility>

#include "dbus_wrap/LoopTasks.h"

namespace quillon {
namespace {

constexpr int kReadWriteMs = 10;
constexpr std::uint64_t kAgeMs = 2000;
// 15 ticks of 2 s: a call without an answer is given up after about 30 s.
constexpr std::uint32_t kMaxTicks = 15;
// How long a worker that ends waits for a daemon that takes nothing of what is still queued.
constexpr int kMaxStallMs = 1000;

const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

// Signalled once, when the workers of the process end, and never cleared, so that each of them sees
// it. Never destroyed: workers outlive static destruction.
const EventDescriptor& quitEvent() {
  static const auto& event = *std::make_unique<EventDescriptor>().release();
  return event;
}

bool waitFor(pollfd* files, nfds_t count, int timeoutMs) {
  return poll(files, count, timeoutMs) > 0;
}

}  // namespace

std::atomic<bool> ProxyWorker::quit = false;

ProxyWorker::ProxyWorker(ConnectionPtr connection)
    : mConnectionAsync(std::move(connection)),
      requests(
          [this](const auto& message, std::uint32_t* serial) { return send(message, serial); }) {}

bool ProxyWorker::startWorkers() {
  if (!wakeUp.isOpen() || !quitEvent().isOpen()) return false;
  if (!dbus_connection_get_unix_fd(mConnectionAsync.get(), &descriptor)) return false;
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
  wakeUp.signal();
  runOnLoop([keep = shared_from_this()] { keep->closeIfDone(); });
}

void ProxyWorker::stopWorkers() {
  endAllWorkers();
  runOnLoop([keep = shared_from_this()] { keep->stopTimers(); });
  joinWorker();
}

void ProxyWorker::endAllWorkers() {
  quit = true;
  quitEvent().signal();
}

void ProxyWorker::joinWorker() {
  const std::lock_guard guard(joinLock);
  if (!joinable) return;
  const uv_thread_t current = uv_thread_self();
  if (uv_thread_equal(&current, &worker)) return;  // a worker never waits for itself
  uv_thread_join(&worker);
  joinable = false;
}

// Writes at once, as the worker holds nothing of libdbus while it waits. What the socket does not
// take is the worker's to write when it does. A send that finds the daemon gone makes libdbus close
// the descriptor that the worker waits on.
bool ProxyWorker::send(const std::shared_ptr<DMessage>& message, std::uint32_t* serial) {
  DBusConnection* connection = mConnectionAsync.get();
  if (!sendOn(connection, message, serial)) return false;
  const bool isWorkersTurn = dbus_connection_has_messages_to_send(connection) ||
                             !dbus_connection_get_is_connected(connection);
  if (isWorkersTurn) wakeUp.signal();
  return true;
}

bool ProxyWorker::sendMessageWithReply(const std::shared_ptr<DMessage>& message,
                                       ReplyCallback callback, void* userData) {
  if (!requests.add({message, std::move(callback), userData})) return false;
  if (requests.startsAgeing()) runOnLoop([keep = shared_from_this()] { keep->startAgeing(); });
  return true;
}

bool ProxyWorker::sendSignal(const std::shared_ptr<DMessage>& message) {
  return send(message, nullptr);
}

void ProxyWorker::loop_thread_worker(void* share) {
  const std::unique_ptr<std::shared_ptr<ProxyWorker>> owner(
      static_cast<std::shared_ptr<ProxyWorker>*>(share));
  LOGD("uvIdleCallback threadId =%lu \n", static_cast<unsigned long>(uv_thread_self()));
  ProxyWorker& self = **owner;
  self.readUntilToldToStop();
  postToLoop([keep = *owner] {
    keep->finished = true;
    keep->closeIfDone();
  });
}

void ProxyWorker::readUntilToldToStop() {
  while (waitUntilReady()) {
    if (!dbus_connection_read_write(mConnectionAsync.get(), kReadWriteMs)) {
      LOGE("DProxy connection to dbus-daemon disconnected, quit.\n");
      // This thread can't join itself. The timers go on: where the process outlives this, nobody
      // waits for an outcome for ever.
      endAllWorkers();
      return;
    }
    runTask([this] { popMessages(); });
  }
  sendRest();
}

// Returns false when the worker is to end.
bool ProxyWorker::waitUntilReady() {
  while (!quit && !released) {
    if (hasUnread()) return true;
    const bool unsent = dbus_connection_has_messages_to_send(mConnectionAsync.get());
    if (!unsent) burst.rest();
    const auto events = static_cast<short>(unsent ? POLLIN | POLLOUT : POLLIN);
    std::array<pollfd, 3> files{
        {{descriptor, events, 0}, {wakeUp.get(), POLLIN, 0}, {quitEvent().get(), POLLIN, 0}}};
    if (!waitFor(files.data(), files.size(), -1)) continue;
    if (files[1].revents != 0) wakeUp.clear();
    if ((files[0].revents & POLLOUT) != 0) burst.addTurn();
    if (files[0].revents != 0) return true;
  }
  return false;
}

// No descriptor tells of what lies in libdbus's queue already (whoever waits for a reply reads what
// comes before it, too) or still lacks memory there, nor of a daemon that a send has found gone.
bool ProxyWorker::hasUnread() {
  return dbus_connection_get_dispatch_status(mConnectionAsync.get()) != DBUS_DISPATCH_COMPLETE ||
         !dbus_connection_get_is_connected(mConnectionAsync.get());
}

void ProxyWorker::popMessages() {
  std::vector<ReceivedReply> replies;
  // Another thread's send may find the daemon gone; the next pop would then end the process without
  // a word.
  while (dbus_connection_get_is_connected(mConnectionAsync.get())) {
    DBusMessage* raw = dbus_connection_pop_message(mConnectionAsync.get());
    if (raw == nullptr) break;
    auto message = std::make_shared<DMessage>(raw, true, DMessage::kRead);
    const int type = dbus_message_get_type(raw);
    const std::uint32_t serial = dbus_message_get_reply_serial(raw);
    LOGD("DProxy pop message: reqId = %d, type: %s sender: %s interface: %s member: %s",
         static_cast<int>(serial), dbus_message_type_to_string(type),
         orEmpty(dbus_message_get_path(raw)), orEmpty(dbus_message_get_interface(raw)),
         orEmpty(dbus_message_get_member(raw)));
    if (type != DBUS_MESSAGE_TYPE_METHOD_RETURN && type != DBUS_MESSAGE_TYPE_ERROR) continue;
    replies.push_back({std::move(message), serial});
  }
  if (!replies.empty()) queueReplies(std::move(replies));
}

void ProxyWorker::queueReplies(std::vector<ReceivedReply> replies) {
  bool wasEmpty = false;
  {
    const std::lock_guard guard(replyLock);
    wasEmpty = replyQueue.empty();
    std::move(replies.begin(), replies.end(), std::back_inserter(replyQueue));
  }
  // Otherwise the loop is on its way already.
  if (wasEmpty) postToLoop([keep = shared_from_this()] { keep->startDraining(); });
}

void ProxyWorker::sendRest() {
  while (dbus_connection_has_messages_to_send(mConnectionAsync.get())) {
    pollfd file{descriptor, POLLOUT, 0};
    if (!waitFor(&file, 1, kMaxStallMs)) return;
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
  // Once, for what has come in until now.
  const int started = uv_timer_start(&replyTimer, onReplyTimer, 0, 0);
  LOGI("uv_timer_init return %d", initialised);
  LOGI("DProxy::startWorkers finished, uv_timer_start return %d", started);
  closeIfDone();
}

void ProxyWorker::stopTimers() {
  stopped = true;
  if (!timersReady) return;
  uv_timer_stop(&timeoutTimer);
  uv_timer_stop(&replyTimer);
}

// Tasks of the loop may come before the timers are there and after they have been closed. The
// timers of other proxies go on when this one's are stopped: what is pending there has its outcome.
bool ProxyWorker::mayRunTimers() const { return timersReady && !stopped; }

void ProxyWorker::startDraining() {
  if (mayRunTimers()) uv_timer_start(&replyTimer, onReplyTimer, 0, 0);
}

void ProxyWorker::startAgeing() {
  if (mayRunTimers()) uv_timer_start(&timeoutTimer, onTimeoutTimer, kAgeMs, kAgeMs);
}

// The release, the start of the timers and the end of the worker come in any order; the last of
// them closes everything.
void ProxyWorker::closeIfDone() {
  if (!released || !timersReady) return;
  stopTimers();
  if (!finished) return;
  joinWorker();
  timersReady = false;
  mConnectionAsync.reset();
  uv_close(reinterpret_cast<uv_handle_t*>(&replyTimer), onTimerClosed);
  uv_close(reinterpret_cast<uv_handle_t*>(&timeoutTimer), onTimerClosed);
}

void ProxyWorker::complete(const Request& request, const std::shared_ptr<DMessage>& reply) {
  // A callback of the same batch may have dropped the proxy.
  if (released || !request.callback) return;
  const gateway::LogContextScope context(request.context);
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
    if (released) return;
    handleReply(received);
    received.reply.reset();
  }
}

void ProxyWorker::handleReply(const ReceivedReply& received) {
  LOGD("DProxy::handleReply reqId = %d", static_cast<int>(received.serial));
  std::vector<Request> failed;
  const auto request = requests.take(received.serial, failed);
  if (!request) return;
  complete(*request, received.reply);
  for (const Request& other : failed) complete(other, {});
}

void ProxyWorker::agePending() {
  std::vector<Request> ended;
  if (!requests.age(kMaxTicks, ended)) uv_timer_stop(&timeoutTimer);
  for (const Request& request : ended) complete(request, {});
}

void ProxyWorker::onReplyTimer(uv_timer_t* timer) {
  // A callback may drop the last proxy and with it everything but this share.
  const auto keep = static_cast<ProxyWorker*>(timer->data)->shared_from_this();
  runTask([&] { keep->drainReplies(); });
}

void ProxyWorker::onTimeoutTimer(uv_timer_t* timer) {
  const auto keep = static_cast<ProxyWorker*>(timer->data)->shared_from_this();
  // After a turn that took long, this timer comes before the one that such an answer has armed.
  runTask([&] {
    keep->drainReplies();
    if (!keep->released) keep->agePending();
  });
}

void ProxyWorker::onTimerClosed(uv_handle_t* handle) {
  auto* worker = static_cast<ProxyWorker*>(handle->data);
  if (--worker->openTimers > 0) return;
  const auto last = std::move(worker->self);
  worker->requests.clear();
}

}  // namespace quillon
