// The glue: an idle handle on the loop calls uvIdleCallback in every turn, which lets libdbus read
// and write for up to 10 ms and then hands out every message that is there. An active idle handle
// keeps the loop from blocking, so that wait is what paces the server, and the timers of the
// proxies fire between two of them.

#include "dbus_wrap/DServer.h"

#include <gateway/log_macros.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <exception>

#include "DBusErrorGuard.h"
#include "dbus_wrap/LoopTasks.h"

namespace quillon {
namespace {

constexpr int kReadWriteMs = 10;
constexpr const char* kWatchdog = "iot.gateway.watchdog";

// Takes over a message that was popped.
std::shared_ptr<DMessage> wrapReceived(DBusMessage* raw) {
  return std::make_shared<DMessage>(raw, true, DMessage::kRead);
}

}  // namespace

DServer::DServer(const char* serverName, const char* serverPath)
    : DServer(serverName, serverPath, uv_default_loop()) {}

DServer::DServer(const char* serverName, const char* serverPath, uv_loop_t* serverLoop)
    : name(serverName), path(serverPath), loop(serverLoop) {}

DServer::~DServer() {
  stop();
  if (idle) {
    idle->data = nullptr;
    uv_close(reinterpret_cast<uv_handle_t*>(idle.release()), [](uv_handle_t* handle) {
      const std::unique_ptr<uv_idle_t> closed(reinterpret_cast<uv_idle_t*>(handle));
    });
  }
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
}

void DServer::removeMatchRule(const char* rule) {
  if (rule == nullptr || !connection) return;
  dbus_bus_remove_match(connection.get(), rule, nullptr);
  dbus_connection_flush(connection.get());
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
}

void DServer::stop() {
  if (!idle) return;
  uv_idle_stop(idle.get());
  if (runLoop) uv_stop(loop);
}

void DServer::send(const std::shared_ptr<DMessage>& message) {
  sendOn(connection.get(), message, nullptr);
}

bool DServer::sendSignal(const char* signalName, const std::string& text) {
  const auto signal = DMessage::makeSignalMessage(path.c_str(), name.c_str(), signalName);
  if (signal && !text.empty()) signal->writeString(text);
  if (sendOn(connection.get(), signal, nullptr)) return true;
  LOGW("sendSignal '%s' failed. \n", signalName);
  return false;
}

bool DServer::sendSignal(const std::shared_ptr<DMessage>& message) {
  if (sendOn(connection.get(), message, nullptr)) return true;
  LOGW("sendSignal failed. line number: %d\n", __LINE__);
  return false;
}

void DServer::feedWatchDog(const char* fedName, int seconds) {
  LOGD("feedWatchDog seconds: %d\n", seconds);
  const auto signal = DMessage::makeSignalMessage(path.c_str(), kWatchdog, "feedDog");
  if (!signal) return;
  signal->setDestination(kWatchdog);
  signal->writeString(name).writeString(fedName).writeInt32(seconds);
  sendOn(connection.get(), signal, nullptr);
}

void DServer::uvIdleCallback(uv_idle_t* handle) {
  auto* server = static_cast<DServer*>(handle->data);
  if (server == nullptr) return;
  if (!dbus_connection_read_write(server->connection.get(), kReadWriteMs)) {
    // Before anything is popped: libdbus ends the process without a word at the next pop.
    LOGE("DServer connection to dbus-daemon disconnected, quit DServer.\n");
    server->stop();
    _exit(1);  // no destructors while other threads run
  }
  server->popMessages();
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
    std::printf("dbus_message_get_type type=%d \n", type);
    std::fflush(stdout);
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
