#include "watcher.h"

#include <gateway/wall_clock.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "wire/bus_names.h"

namespace gateway {
namespace {

using namespace jobm::bus;
using Seconds = std::chrono::duration<double>;

// The service gives a call up after 28 to 30 s.
constexpr std::chrono::seconds kPatience{30};
// So long a late answer is still known for what it is.
constexpr std::chrono::minutes kMemory{10};
// The daemon's word that a signal can't be delivered comes at once.
constexpr std::chrono::minutes kSignalMemory{1};

std::string orEmpty(const char* text) { return text == nullptr ? "" : text; }

Json::Value argumentAt(DBusMessageIter* it) {
  DBusBasicValue value{};
  const int type = dbus_message_iter_get_arg_type(it);
  if (dbus_type_is_basic(type)) dbus_message_iter_get_basic(it, static_cast<void*>(&value));
  switch (type) {
    case DBUS_TYPE_STRING:
    case DBUS_TYPE_OBJECT_PATH:
      return value.str;
    case DBUS_TYPE_INT32:
      return Json::Int64{value.i32};
    case DBUS_TYPE_UINT32:
      return Json::UInt64{value.u32};
    case DBUS_TYPE_BOOLEAN:
      return value.bool_val != 0;
    default:
      return {};  // lists and the like: nobody here sends them but the daemon
  }
}

Json::Value argumentsOf(DBusMessage* message) {
  Json::Value arguments(Json::arrayValue);
  DBusMessageIter it;
  for (bool more = dbus_message_iter_init(message, &it); more; more = dbus_message_iter_next(&it)) {
    arguments.append(argumentAt(&it));
  }
  return arguments;
}

std::string idOf(const std::string& caller, dbus_uint32_t serial) {
  return caller + "/" + std::to_string(serial);
}

// Signals to everybody that the service acts on: it goes by their paths.
bool isHeard(DBusMessage* message) {
  constexpr std::array kPaths = {kBridge.path, kScriptEngine.path, kWatchdog.path};
  const std::string path = orEmpty(dbus_message_get_path(message));
  return std::ranges::any_of(kPaths, [&](const char* one) { return path == one; });
}

Record silenceAfter(const Record& call, Watcher::Clock::duration time) {
  Record record = call;
  record.kind = Record::Kind::kUnanswered;
  record.time = wallClock();
  record.took = Seconds(time).count();
  std::swap(record.from, record.to);
  return record;
}

}  // namespace

Watcher::Watcher(Names givenNames, Filter givenFilter, Sink givenSink)
    : names(std::move(givenNames)), filter(std::move(givenFilter)), sink(std::move(givenSink)) {}

void Watcher::take(DBusMessage* message) {
  names.learn(message);
  if (!concerns(message)) return;
  Record record;
  record.time = wallClock();
  record.from = names.end(orEmpty(dbus_message_get_sender(message)));
  record.to = names.end(orEmpty(dbus_message_get_destination(message)));
  record.path = orEmpty(dbus_message_get_path(message));
  record.interface = orEmpty(dbus_message_get_interface(message));
  record.member = orEmpty(dbus_message_get_member(message));
  record.arguments = argumentsOf(message);
  switch (dbus_message_get_type(message)) {
    case DBUS_MESSAGE_TYPE_METHOD_CALL:
      return takeSent(message, std::move(record));
    case DBUS_MESSAGE_TYPE_SIGNAL:
      record.kind = Record::Kind::kSignal;
      return takeSent(message, std::move(record));
    default:
      return takeReply(message, std::move(record));
  }
}

// Whether the service sends or gets the message. What we ask ourselves passes, too.
bool Watcher::concerns(DBusMessage* message) {
  const std::string from = orEmpty(dbus_message_get_sender(message));
  const std::string to = orEmpty(dbus_message_get_destination(message));
  if (names.isOwn(from) || names.isOwn(to)) return false;
  const bool isBroadcast = to.empty() && dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_SIGNAL;
  return names.isService(from) || names.isService(to) || (isBroadcast && isHeard(message));
}

void Watcher::takeSent(DBusMessage* message, Record record) {
  const bool isSignal = record.kind == Record::Kind::kSignal;
  const bool isBroadcast = isSignal && record.to.address.empty();
  const std::string id = idOf(record.from.address, dbus_message_get_serial(message));
  if (!isBroadcast) record.call = id;
  if (!filter.passes(record)) return;
  sink(record);
  // A signal to somebody is answered when it can't be delivered, and then only.
  if (isBroadcast || dbus_message_get_no_reply(message)) return;
  keep(id, std::move(record));
}

void Watcher::keep(const std::string& id, Record record) {
  const auto now = Clock::now();
  const bool isSignal = record.kind == Record::Kind::kSignal;
  record.arguments = Json::Value(Json::arrayValue);  // packages may be large
  const auto [call, isNew] = calls.try_emplace(id, Call{std::move(record), now, {}, isSignal});
  if (isNew) await(call, now + (isSignal ? kSignalMemory : Clock::duration(kPatience)));
}

void Watcher::await(Calls::iterator call, Clock::time_point time) {
  call->second.due = time;
  due.emplace(time, call->first);
}

void Watcher::forget(Calls::iterator call) {
  due.erase({call->second.due, call->first});
  calls.erase(call);
}

void Watcher::takeReply(DBusMessage* message, Record record) {
  const bool isError = dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_ERROR;
  record.kind = isError ? Record::Kind::kError : Record::Kind::kAnswer;
  record.error = orEmpty(dbus_message_get_error_name(message));
  record.call = idOf(record.to.address, dbus_message_get_reply_serial(message));
  const auto found = calls.find(record.call);
  // A call of before our time.
  if (found == calls.end() && !filter.isOpen()) return;
  if (found != calls.end()) {
    const Record& call = found->second.record;
    record.path = call.path;
    record.interface = call.interface;
    record.member = call.member;
    record.took = Seconds(Clock::now() - found->second.time).count();
    forget(found);
  }
  sink(record);
}

void Watcher::takeDue(Calls::iterator call, Clock::time_point now) {
  if (call->second.isTold) return forget(call);
  call->second.isTold = true;
  sink(silenceAfter(call->second.record, now - call->second.time));
  due.erase({call->second.due, call->first});
  await(call, call->second.time + kMemory);
}

std::optional<int> Watcher::tellUnanswered() {
  const auto now = Clock::now();
  while (!due.empty() && due.begin()->first <= now) takeDue(calls.find(due.begin()->second), now);
  if (due.empty()) return {};
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(due.begin()->first - now);
  return static_cast<int>(left.count()) + 1;
}

}  // namespace gateway
