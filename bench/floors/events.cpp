#include "events.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdlib>

namespace bench {
namespace {

constexpr std::uint64_t kAgeMs = 2000;

int descriptorOf(DBusConnection* connection) {
  int descriptor = -1;
  require(dbus_connection_get_unix_fd(connection, &descriptor) != FALSE, "no descriptor");
  return descriptor;
}

// The second one that every worker watches, so that one word can end them all. Nobody gives it
// here.
int quitDescriptor() {
  static const int descriptor = eventfd(0, EFD_CLOEXEC);
  return descriptor;
}

}  // namespace

EventServer::EventServer(const std::string& name, std::size_t answerBytes)
    : BareServer(name, answerBytes) {
  uv_poll_init(uv_default_loop(), &poll, descriptorOf(connection.get()));
  poll.data = this;
  // Writable at once: what came behind the answers above lies in libdbus's queue already.
  watch(UV_READABLE | UV_WRITABLE);
}

void EventServer::watch(int events) {
  uv_poll_start(&poll, events, [](uv_poll_t* handle, int, int) {
    auto* server = static_cast<EventServer*>(handle->data);
    server->turn(0);
    const bool isFull = dbus_connection_has_messages_to_send(server->connection.get());
    server->watch(UV_READABLE | (isFull ? UV_WRITABLE : 0));
  });
}

EventProxy::EventProxy() : wakeWorker(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  uv_async_init(uv_default_loop(), &wakeLoop,
                [](uv_async_t* handle) { static_cast<EventProxy*>(handle->data)->onWake(); });
  wakeLoop.data = this;
  uv_timer_init(uv_default_loop(), &ageTimer);
  ageTimer.data = this;
  worker = std::thread([this] { read(); });
}

EventProxy::~EventProxy() {
  stopping = true;
  eventfd_write(wakeWorker, 1);
  worker.join();
  close(wakeWorker);
}

// What the socket doesn't take now the worker sends when it does.
void EventProxy::sent() {
  if (dbus_connection_has_messages_to_send(async.get())) eventfd_write(wakeWorker, 1);
}

void EventProxy::filed() {
  if (isAgeing) return;
  isAgeing = true;
  uv_async_send(&wakeLoop);
}

void EventProxy::read() {
  while (!stopping) {
    wait();
    if (!dbus_connection_read_write(async.get(), 0)) return;
    if (queueReplies()) uv_async_send(&wakeLoop);
  }
}

void EventProxy::wait() const {
  if (dbus_connection_get_dispatch_status(async.get()) == DBUS_DISPATCH_DATA_REMAINS) return;
  const bool isFull = dbus_connection_has_messages_to_send(async.get());
  const auto events = static_cast<short>(isFull ? POLLIN | POLLOUT : POLLIN);
  pollfd watched[] = {{descriptorOf(async.get()), events, 0},
                      {wakeWorker, POLLIN, 0},
                      {quitDescriptor(), POLLIN, 0}};
  ::poll(watched, std::size(watched), -1);
  eventfd_t ignored = 0;
  if (watched[1].revents != 0) eventfd_read(wakeWorker, &ignored);
}

void EventProxy::onWake() {
  {
    const std::lock_guard guard(pendingLock);
    if (isAgeing && !uv_is_active(reinterpret_cast<uv_handle_t*>(&ageTimer))) {
      uv_timer_start(
          &ageTimer, [](uv_timer_t* timer) { static_cast<EventProxy*>(timer->data)->age(); },
          kAgeMs, kAgeMs);
    }
  }
  drain();
}

void EventProxy::age() {
  const std::lock_guard guard(pendingLock);
  if (!pending.empty()) return;
  isAgeing = false;
  uv_timer_stop(&ageTimer);
}

}  // namespace bench
