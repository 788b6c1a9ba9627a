// The glue, all of it on the loop's thread: while there is something to do, an idle handle calls
// uvIdleCallback in every turn of the loop, which lets libdbus read and write and then hands out
// every message that is there. A turn that finds nothing to do stops it, and the loop sleeps. A
// poll handle watches the connection's descriptor all the time and starts the idle handle when
// there is something to read, when the daemon hangs up, and, while libdbus has something unsent,
// when the socket takes more. A send starts it too when it leaves what no descriptor tells of.

#include "dbus_wrap/DServer.h"

#include <gateway/log_macros.h>
#include <gateway/output.h>
#include <unistd.h>

#include <array>
#include <exception>
#include <utility>

#include "Burst.h"
#include "DBusErrorGuard.h"
#include "dbus_wrap/LoopTasks.h"

namespace quillon {
namespace {

constexpr int kReadWriteMs = 10;
constexpr const char* kWatchdog = "iot.gateway.watchdog";

// The loop's thread frees the handle in a later turn; until then its data tells its callbacks that
// the server is gone.
template <typename Handle>
void closeHandle(std::unique_ptr<Handle>& handle) {
  if (!handle) return;
  handle->data = nullptr;
  uv_close(reinterpret_cast<uv_handle_t*>(handle.release()), [](uv_handle_t* closed) {
    const std::unique_ptr<Handle> owner(reinterpret_cast<Handle*>(closed));
  });
}

// Takes over a message that was popped.
std::shared_ptr<DMessage> wrapReceived(DBusMessage* raw) {
  return std::make_shared<DMessage>(raw, true, DMessage::kRead);
}

}  // namespace

DServer::DServer(const char* serverName, const char* serverPath)
    : DServer(serverName, serverPath, uv_default_loop()) {}

DServer::DServer(const char* serverName, const char* serverPath, uv_loop_t* serverLoop)
    : name(serverName), path(serverPath), loop(serverLoop), burst(std::make_unique<Burst>()) {}

DServer::~DServer() {
  stop();
  closeHandle(idle);
  if (connection) LOGD("----DServer release connection -------- \n");
}

bool DServer::filterMethodCall(const char*, DBusMessage*) { return false; }

int DServer::prepare() {
  connection = getDbusConnection();
  if (!connection) {
    LOGE("[%s]: get dbus session connection failed.\n", "quillon::DServer");
    return -1;
  }
  DBusErrorGuard error;
  const int result = dbus_validate_bus_name(name.c_str(), nullptr)
                         ? dbus_bus_request_name(connection.get(), name.c_str(),
                                                 DBUS_NAME_FLAG_REPLACE_EXISTING, error.get())
                         : -1;
  if (result == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER) return 0;
  LOGE("get dbus name for '%s' failed. ret is : %d\n", name.c_str(), result);
  if (error.isSet()) LOGE("get dbus name failed message: %s\n", error.message());
  connection.reset();
  return -1;
}

void DServer::addMatchRule(const char* rule) {
  LOGD("addMatchRule : %s\n", rule != nullptr ? rule : "(null)");
  if (rule == nullptr || !connection) return;
  dbus_bus_add_match(connection.get(), rule, nullptr);
  dbus_connection_flush(connection.get());
  noteUse();
}

void DServer::removeMatchRule(const char* rule) {
  if (rule == nullptr || !connection) return;
  dbus_bus_remove_match(connection.get(), rule, nullptr);
  dbus_connection_flush(connection.get());
  noteUse();
}

int DServer::start() {
  idle = std::make_unique<uv_idle_t>();
  idle->data = this;
  if (loop != uv_default_loop()) {
    startIdle();
    if (runLoop) uv_run(loop, UV_RUN_DEFAULT);
    return 0;
  }
  // Other threads may be making proxies, whose timers are on this loop too.
  runOnLoop([this] { startIdle(); });
  if (runLoop) runDefaultLoop();
  return 0;
}

void DServer::startIdle() {
  uv_idle_init(loop, idle.get());
  uv_idle_start(idle.get(), uvIdleCallback);
  int descriptor = -1;
  if (!dbus_connection_get_unix_fd(connection.get(), &descriptor)) return;
  watch = std::make_unique<uv_poll_t>();
  watch->data = this;
  watchedEvents = 0;
  if (uv_poll_init(loop, watch.get(), descriptor) != 0) {
    watch.reset();  // then the idle handle runs for ever, paced by its read-write
    return;
  }
  watchDescriptor();
}

void DServer::watchDescriptor() {
  // A send that finds the daemon gone may close the descriptor, and libuv ends the process over one
  // that is closed. The next turn comes without it, and says what has happened.
  if (!dbus_connection_get_is_connected(connection.get())) return;
  const bool unsent = dbus_connection_has_messages_to_send(connection.get());
  const int events = UV_READABLE | UV_DISCONNECT | (unsent ? UV_WRITABLE : 0);
  if (events == watchedEvents) return;
  watchedEvents = events;
  uv_poll_start(watch.get(), events, onDescriptorReady);
}

void DServer::onDescriptorReady(uv_poll_t* handle, int, int) {
  auto* server = static_cast<DServer*>(handle->data);
  if (server == nullptr) return;
  server->ready = true;
  uv_idle_start(server->idle.get(), uvIdleCallback);
}

void DServer::stop() {
  if (!idle) return;
  uv_idle_stop(idle.get());
  closeHandle(watch);
  if (runLoop) uv_stop(loop);
}

bool DServer::sendNow(const std::shared_ptr<DMessage>& message) {
  const bool sent = sendOn(connection.get(), message, nullptr);
  noteUse();
  return sent;
}

// The loop may be about to sleep: what the socket did not take goes out when it does, and for what
// no descriptor will tell of the next turn comes without one.
void DServer::noteUse() {
  if (!watch) return;
  watchDescriptor();
  if (hasUnread()) uv_idle_start(idle.get(), uvIdleCallback);
}

// What libdbus has read but nobody has popped, or a daemon that a send has found gone, whereupon
// libdbus has closed the descriptor.
bool DServer::hasUnread() const {
  return dbus_connection_get_dispatch_status(connection.get()) != DBUS_DISPATCH_COMPLETE ||
         !dbus_connection_get_is_connected(connection.get());
}

void DServer::send(const std::shared_ptr<DMessage>& message) { sendNow(message); }

bool DServer::sendSignal(const char* signalName, const std::string& text) {
  const auto signal = DMessage::makeSignalMessage(path.c_str(), name.c_str(), signalName);
  if (signal && !text.empty()) signal->writeString(text);
  if (sendNow(signal)) return true;
  LOGW("sendSignal '%s' failed. \n", signalName);
  return false;
}

bool DServer::sendSignal(const std::shared_ptr<DMessage>& message) {
  if (sendNow(message)) return true;
  LOGW("sendSignal failed. line number: %d\n", __LINE__);
  return false;
}

void DServer::feedWatchDog(const char* fedName, int seconds) {
  LOGD("feedWatchDog seconds: %d\n", seconds);
  const auto signal = DMessage::makeSignalMessage(path.c_str(), kWatchdog, "feedDog");
  if (!signal) return;
  signal->setDestination(kWatchdog);
  signal->writeString(name).writeString(fedName).writeInt32(seconds);
  sendNow(signal);
}

void DServer::uvIdleCallback(uv_idle_t* handle) {
  auto* server = static_cast<DServer*>(handle->data);
  if (server != nullptr) server->takeTurn();
}

void DServer::takeTurn() {
  if (watch && !std::exchange(ready, false) && !hasUnread()) {
    uv_idle_stop(idle.get());
    burst->rest();
    return;
  }
  if (!dbus_connection_read_write(connection.get(), kReadWriteMs)) {
    // Before anything is popped: libdbus ends the process without a word at the next pop.
    LOGE("DServer connection to dbus-daemon disconnected, quit DServer.\n");
    stop();
    _exit(1);  // no destructors while other threads run
  }
  popMessages();
  if (watch) watchDescriptor();
}

void DServer::signalHandler(int number) {
  // Not through stdio, whose lock the interrupted thread may hold.
  std::array<char, 64> text{};
  const int length = std::snprintf(text.data(), text.size(), "SIGNAL_HANDLER for %d \n", number);
  static_cast<void>(!write(STDOUT_FILENO, text.data(), static_cast<std::size_t>(length)));
}

void DServer::popMessages() {
  // A send of a handler may find the daemon gone; the next pop would then end the process without a
  // word.
  while (dbus_connection_get_is_connected(connection.get())) {
    DBusMessage* raw = dbus_connection_pop_message(connection.get());
    if (raw == nullptr) return;
    burst->addTurn();
    try {
      dispatch(raw);
    } catch (const std::exception& e) {
      LOGE("dispatch Exception e = %s\n", e.what());
    }
  }
}

void DServer::dispatch(DBusMessage* raw) {
  const int type = dbus_message_get_type(raw);
  if (type == DBUS_MESSAGE_TYPE_METHOD_CALL) {
    dispatchMethodCall(raw);
    return;
  }
  const auto message = wrapReceived(raw);
  if (type == DBUS_MESSAGE_TYPE_SIGNAL) {
    onSignalReceived(dbus_message_get_member(raw), message);
  } else if (type != DBUS_MESSAGE_TYPE_METHOD_RETURN) {
    gateway::printGuarded("dbus_message_get_type type=%d \n", type);
  }
}

void DServer::dispatchMethodCall(DBusMessage* raw) {
  const char* member = dbus_message_get_member(raw);
  if (filterMethodCall(member, raw)) return;
  const auto request = wrapReceived(raw);
  const auto reply = DMessage::makeReturnMessage(request);
  if (reply) onMethodCall(member, request, reply);
}

}  // namespace quillon
