#include "bus_view.h"

#include <memory>
#include <vector>

#include "wire/bus_names.h"

namespace gateway {
namespace {

constexpr const char* kDaemon = jobm::bus::kDaemon.name;
constexpr int kTimeoutMs = 5000;

struct ListFree {
  void operator()(char** list) const { dbus_free_string_array(list); }
};

Message ask(DBusConnection* daemon, const char* method, const std::vector<std::string>& texts) {
  return callAndWait(daemon, makeCall(kDaemon, method, texts).get(), kTimeoutMs);
}

std::set<std::string> askNames(DBusConnection* daemon, const char* method) {
  const Message reply = ask(daemon, method, {});
  char** raw = nullptr;
  int count = 0;
  if (!reply || !dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING,
                                       &raw, &count, DBUS_TYPE_INVALID)) {
    return {};
  }
  const std::unique_ptr<char*, ListFree> names(raw);
  return {raw, raw + count};
}

std::optional<unsigned> askPid(DBusConnection* daemon, const std::string& name) {
  const Message reply = ask(daemon, "GetConnectionUnixProcessID", {name});
  dbus_uint32_t pid = 0;
  if (!reply ||
      !dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_UINT32, &pid, DBUS_TYPE_INVALID)) {
    return std::nullopt;
  }
  return pid;
}

}  // namespace

BusView viewBus() {
  BusView view;
  if (!isBusThere()) return view;
  view.connection = connectBus();
  DBusConnection* daemon = view.connection.get();
  view.taken = askNames(daemon, "ListNames");
  view.startable = askNames(daemon, "ListActivatableNames");
  view.servicePid = askPid(daemon, jobm::bus::kJobManager.name);
  return view;
}

}  // namespace gateway
