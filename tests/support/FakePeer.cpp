#include "FakePeer.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace test {
namespace {

constexpr const char* kAddress = "unix:path=/tmp/var/run/mbusd/mbusd_socket";
constexpr const char* kDefaultAnswer = R"({"code":0,"message":"","data":null})";

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "test peer: %s\n", what);
  std::abort();
}

template <typename T>
T basic(DBusMessageIter* iterator) {
  T value{};
  dbus_message_iter_get_basic(iterator, &value);
  return value;
}

std::vector<Argument> argumentsOf(DBusMessage* message) {
  std::vector<Argument> arguments;
  DBusMessageIter it;
  for (bool more = dbus_message_iter_init(message, &it); more; more = dbus_message_iter_next(&it)) {
    switch (dbus_message_iter_get_arg_type(&it)) {
      case DBUS_TYPE_STRING:
        arguments.emplace_back(std::string(basic<const char*>(&it)));
        break;
      case DBUS_TYPE_INT32:
        arguments.emplace_back(basic<std::int32_t>(&it));
        break;
      default:
        arguments.emplace_back("(of another type)");
        break;
    }
  }
  return arguments;
}

std::string orEmpty(const char* text) { return text != nullptr ? text : ""; }

void appendTexts(DBusMessage* message, const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    const char* raw = text.c_str();
    dbus_message_append_args(message, DBUS_TYPE_STRING, &raw, DBUS_TYPE_INVALID);
  }
}

DBusConnection* connect() {
  DBusConnection* connection = dbus_connection_open_private(kAddress, nullptr);
  require(connection != nullptr, "no daemon at the fixed address");
  require(dbus_bus_register(connection, nullptr), "not registered");
  dbus_connection_set_exit_on_disconnect(connection, FALSE);
  return connection;
}

}  // namespace

std::string Received::text(std::size_t i) const {
  if (i >= arguments.size()) return {};
  const auto* value = std::get_if<std::string>(&arguments[i]);
  return value != nullptr ? *value : std::string();
}

FakePeer::FakePeer(const std::string& busName, const std::vector<std::string>& rules)
    : connection(connect()), name(busName) {
  if (!name.empty()) {
    const int result =
        dbus_bus_request_name(connection, name.c_str(), DBUS_NAME_FLAG_DO_NOT_QUEUE, nullptr);
    require(result == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER, name.c_str());
  }
  for (const std::string& rule : rules) dbus_bus_add_match(connection, rule.c_str(), nullptr);
  dbus_connection_flush(connection);
  thread = std::thread([this] { run(); });
}

FakePeer::~FakePeer() {
  stopping = true;
  thread.join();
  // Waits for the daemon, so that the next peer of this name gets it.
  if (!name.empty()) dbus_bus_release_name(connection, name.c_str(), nullptr);
  dbus_connection_close(connection);
  dbus_connection_unref(connection);
}

void FakePeer::on(const std::string& member, std::function<Answer(const Received&)> handler) {
  const std::lock_guard guard(lock);
  handlers[member] = std::move(handler);
}

void FakePeer::answer(const std::string& member, Answer answer) {
  on(member, [answer = std::move(answer)](const Received&) { return answer; });
}

std::vector<Received> FakePeer::received(const std::string& member) const {
  const std::lock_guard guard(lock);
  std::vector<Received> matching;
  for (const Received& message : messages) {
    if (member.empty() || message.member == member) matching.push_back(message);
  }
  return matching;
}

std::optional<Received> FakePeer::await(const std::string& member, std::size_t n, double seconds) {
  if (!eventually([&] { return count(member) >= n; }, seconds)) return std::nullopt;
  return received(member)[n - 1];
}

void FakePeer::emit(const std::string& path, const std::string& interface,
                    const std::string& member, const std::vector<std::string>& texts,
                    const std::string& destination) {
  DBusMessage* signal = dbus_message_new_signal(path.c_str(), interface.c_str(), member.c_str());
  if (!destination.empty()) dbus_message_set_destination(signal, destination.c_str());
  appendTexts(signal, texts);
  dbus_connection_send(connection, signal, nullptr);
  dbus_message_unref(signal);
}

void FakePeer::run() {
  while (!stopping && dbus_connection_read_write(connection, 5)) {
    while (DBusMessage* message = dbus_connection_pop_message(connection)) {
      handle(message);
      dbus_message_unref(message);
    }
  }
}

void FakePeer::handle(DBusMessage* message) {
  const int type = dbus_message_get_type(message);
  if (type != DBUS_MESSAGE_TYPE_SIGNAL && type != DBUS_MESSAGE_TYPE_METHOD_CALL) return;
  const Received received{type == DBUS_MESSAGE_TYPE_SIGNAL,
                          orEmpty(dbus_message_get_member(message)),
                          orEmpty(dbus_message_get_path(message)),
                          orEmpty(dbus_message_get_interface(message)), argumentsOf(message)};
  std::function<Answer(const Received&)> handler;
  {
    const std::lock_guard guard(lock);
    messages.push_back(received);
    const auto found = handlers.find(received.member);
    if (found != handlers.end()) handler = found->second;
  }
  if (received.isSignal) return;
  reply(message, handler ? handler(received) : Answer(std::string(kDefaultAnswer)));
}

void FakePeer::reply(DBusMessage* call, const Answer& answer) {
  DBusMessage* message = nullptr;
  if (const auto* twice = std::get_if<Twice>(&answer)) {
    reply(call, twice->text);
    reply(call, twice->text);
  } else if (const auto* text = std::get_if<std::string>(&answer)) {
    message = dbus_message_new_method_return(call);
    appendTexts(message, {*text});
  } else if (const auto* error = std::get_if<Error>(&answer)) {
    message = dbus_message_new_error(call, error->name.c_str(), error->text.c_str());
  }
  if (message == nullptr) return;
  dbus_connection_send(connection, message, nullptr);
  dbus_message_unref(message);
}

std::optional<std::string> busCall(const std::string& service, const std::string& path,
                                   const std::string& member, const std::vector<std::string>& texts,
                                   double seconds) {
  DBusConnection* connection = connect();
  DBusMessage* message =
      dbus_message_new_method_call(service.c_str(), path.c_str(), service.c_str(), member.c_str());
  appendTexts(message, texts);
  DBusPendingCall* pending = nullptr;
  dbus_connection_send_with_reply(connection, message, &pending, static_cast<int>(seconds * 1000));
  dbus_message_unref(message);
  dbus_pending_call_block(pending);
  DBusMessage* reply = dbus_pending_call_steal_reply(pending);
  dbus_pending_call_unref(pending);
  // What libdbus makes up for a time-out has no sender.
  const bool came = dbus_message_get_sender(reply) != nullptr;
  Received answer;
  answer.arguments = argumentsOf(reply);
  dbus_message_unref(reply);
  dbus_connection_close(connection);
  dbus_connection_unref(connection);
  return came ? std::optional(answer.text()) : std::nullopt;
}

bool eventually(const std::function<bool()>& condition, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace test
