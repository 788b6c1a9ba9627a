// gateway-trace: what the service says on its bus and what is said to it, as it happens.

#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "common/options.h"
#include "neighbour/wait.h"
#include "watcher.h"

namespace {

using gateway::Connection;
using gateway::Message;
using gateway::Record;

constexpr gateway::OptionEntry kOptions[] = {
    {"job", "ID", "only what is about the job of this jobId, deployId, taskId or snapshotId"},
    {"resource", "ID", "only what is about the resource of this resourceId or snapshotId"},
    {"executor", "NAME", "only what is about the executor or parser of this name or bus name"},
    {"json", "", "print one JSON object a line"},
    {"address", "TEXT", "the bus; default unix:path=/tmp/var/run/mbusd/mbusd_socket"},
};

constexpr gateway::Program kProgram{
    "gateway-trace",
    "shows what task-dispatcher says on its bus, and hears",
    "One line for each call, answer and signal of task-dispatcher, as it passes: the time, from "
    "whom, to whom, what; an answer has its result and how long it took. A call that has no answer "
    "after 30 seconds gets a line, too. It reads along as a monitor of the bus and changes nothing "
    "there. Bus daemons permit that to root and to the user that they run as.\n\n"
    "The objects of --json and what the filters can know are described in gateway-trace.md, which "
    "is in docs or /usr/share/doc/task-dispatcher.",
    {},
    kOptions};

constexpr int kFailed = 1;

int fail(const std::string& what) {
  std::fprintf(stderr, "gateway-trace: %s\n", what.c_str());
  return kFailed;
}

// None, with a message, where there is no daemon.
Connection connect(const std::string& address) {
  std::string why;
  Connection connection = gateway::openBus(address, why);
  if (!connection) fail("no bus daemon at " + address + ": " + why);
  return connection;
}

// The answer that the daemon permits none, or no answer.
void tellRefusal(DBusMessage* reply) {
  if (reply == nullptr) {
    fail("the bus daemon does not answer");
    return;
  }
  const std::vector<std::string> texts = gateway::textsOf(reply);
  fail("the bus daemon permits no monitor: " + (texts.empty() ? "no reason given" : texts[0]));
  if (dbus_message_is_error(reply, DBUS_ERROR_ACCESS_DENIED)) {
    std::fputs("  Run it as root or as the user that the bus daemon runs as.\n", stderr);
  }
}

// Everything that passes: the service's own calls come over connections without a name, which no
// rule could name before they are made.
bool becomeMonitor(DBusConnection* connection) {
  const Message call(dbus_message_new_method_call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                  "org.freedesktop.DBus.Monitoring",
                                                  "BecomeMonitor"));
  const char** rules = nullptr;
  const dbus_uint32_t flags = 0;
  dbus_message_append_args(call.get(), DBUS_TYPE_ARRAY, DBUS_TYPE_STRING, &rules, 0,
                           DBUS_TYPE_UINT32, &flags, DBUS_TYPE_INVALID);
  const Message reply = gateway::callAndWait(connection, call.get(), 10000);
  if (reply && dbus_message_get_type(reply.get()) != DBUS_MESSAGE_TYPE_ERROR) return true;
  tellRefusal(reply.get());
  return false;
}

int watch(Connection connection, gateway::Watcher& watcher) {
  gateway::BusWait wait(connection.get());
  while (wait.readWrite(watcher.tellUnanswered())) {
    while (const Message message{dbus_connection_pop_message(connection.get())}) {
      watcher.take(message.get());
    }
  }
  return fail("the bus daemon is gone");
}

int run(const gateway::Options& options) {
  const std::string address = options.get("address", gateway::kBusAddress);
  Connection asker = connect(address);
  Connection monitor = asker ? connect(address) : nullptr;
  if (!monitor || !becomeMonitor(monitor.get())) return kFailed;
  const bool isJson = options.has("json");
  const gateway::Filter filter({.job = options.get("job"),
                                .resource = options.get("resource"),
                                .executor = options.get("executor")});
  gateway::Watcher watcher(
      gateway::Names(std::move(asker)), filter, [isJson](const Record& record) {
        std::fputs((isJson ? gateway::jsonOf(record) : gateway::textOf(record)).c_str(), stdout);
        std::fflush(stdout);
      });
  return watch(std::move(monitor), watcher);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    gateway::Options options;
    if (const auto status = options.parse(argc, argv, kProgram)) return *status;
    if (!options.words().empty()) {
      return gateway::usageError(kProgram, "what is '" + options.words()[0] + "'?");
    }
    return run(options);
  } catch (const std::exception& e) {
    return fail(e.what());
  }
}
