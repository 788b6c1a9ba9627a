#include "engine_api/bus_control.h"

#include <gateway/log_macros.h>

#include <csignal>
#include <memory>

#include "dbus_process_call/proxies.h"

namespace jobm {
namespace {

using Message = std::shared_ptr<quillon::DMessage>;

// Without effect, see "Start flags and file sizes" in docs/architecture.md.
constexpr std::uint32_t kStartFlags = 4;

// Calls `method` with the name, and the flags where given, and waits. An error reply counts as
// none: its argument 0 is never of the type that the callers read.
Message callDaemon(const char* method, const std::string& name, const std::uint32_t* flags) {
  quillon::DProxy* daemon = busDaemonProxy;
  const Message call = daemon != nullptr ? daemon->makeMethodCall(method) : Message{};
  if (!call) return {};
  call->writeString(name);
  if (flags != nullptr) call->writeUInt32(*flags);
  return daemon->sendMessageWithReplyBlocking(call);
}

int firstNumber(const Message& reply) {
  std::uint32_t number = 0;
  return reply && quillon::readFirstUInt32(*reply, number) ? static_cast<int>(number) : -1;
}

}  // namespace

bool nameHasOwner(const std::string& name) {
  const Message reply = callDaemon("NameHasOwner", name, nullptr);
  const bool owned = reply && reply->readBoolean();
  LOGI("MethodCall %s NameHasOwner get reply : %d\n", name.c_str(), owned ? 1 : 0);
  return owned;
}

int startServiceByName(const std::string& name, std::uint32_t flags) {
  LOGI("StartServiceByName begin name = %s\n", name.c_str());
  const int result = firstNumber(callDaemon("StartServiceByName", name, &flags));
  LOGI("MethodCall StartServiceByName get reply : %d\n", result);
  return result;
}

void handleEngineDead(const std::string& name) {
  LOGI("handleEngineDead begin name = %s\n", name.c_str());
  if (nameHasOwner(name)) return;
  // One try, see "Restarting the script engine" in docs/architecture.md.
  const int result = startServiceByName(name, kStartFlags);
  LOGI("handleEngineDead res = %d", result);
}

int stopServiceByName(const std::string& name) {
  const int pid = getPidByName(name);
  if (pid != -1) kill(pid, SIGKILL);
  LOGI("stopServiceByName begin name = %s  pid=%d\n", name.c_str(), pid);
  return 1;
}

int getPidByName(const std::string& name) {
  // With a small first letter, see "The method that no daemon has" in docs/architecture.md.
  const int pid = firstNumber(callDaemon("getConnectionUnixProcessID", name, nullptr));
  LOGI("MethodCall getPidByName get reply : %d\n", pid);
  return pid;
}

}  // namespace jobm
