#include "daemon.h"

#include <memory>
#include <vector>

namespace gateway {
namespace {

constexpr int kTimeoutMs = 5000;

struct ListFree {
  void operator()(char** list) const { dbus_free_string_array(list); }
};

Message ask(DBusConnection* connection, const char* method, const std::vector<std::string>& texts) {
  return callAndWait(connection, makeCall(DBUS_SERVICE_DBUS, method, texts).get(), kTimeoutMs);
}

}  // namespace

std::set<std::string> askNames(DBusConnection* connection, const char* method) {
  const Message reply = ask(connection, method, {});
  char** raw = nullptr;
  int count = 0;
  if (!reply || !dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_ARRAY, DBUS_TYPE_STRING,
                                       &raw, &count, DBUS_TYPE_INVALID)) {
    return {};
  }
  const std::unique_ptr<char*, ListFree> names(raw);
  return {raw, raw + count};
}

std::string askOwner(DBusConnection* connection, const std::string& name) {
  const Message reply = ask(connection, "GetNameOwner", {name});
  if (!reply || dbus_message_get_type(reply.get()) == DBUS_MESSAGE_TYPE_ERROR) return "";
  const std::vector<std::string> texts = textsOf(reply.get());
  return texts.empty() ? "" : texts[0];
}

std::optional<unsigned> askProcess(DBusConnection* connection, const std::string& name) {
  const Message reply = ask(connection, "GetConnectionUnixProcessID", {name});
  dbus_uint32_t process = 0;
  if (!reply ||
      !dbus_message_get_args(reply.get(), nullptr, DBUS_TYPE_UINT32, &process, DBUS_TYPE_INVALID)) {
    return std::nullopt;
  }
  return process;
}

}  // namespace gateway
