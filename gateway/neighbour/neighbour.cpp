#include "neighbour.h"

#include <algorithm>
#include <utility>

namespace gateway {
namespace {

constexpr const char* kDefaultAnswer = R"({"code":0,"message":"","data":null})";

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

Received received(DBusMessage* message) {
  return {dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_SIGNAL,
          orEmpty(dbus_message_get_member(message)),
          orEmpty(dbus_message_get_path(message)),
          orEmpty(dbus_message_get_interface(message)),
          orEmpty(dbus_message_get_signature(message)),
          argumentsOf(message)};
}

}  // namespace

std::string Received::text(std::size_t i) const {
  if (i >= arguments.size()) return {};
  const auto* value = std::get_if<std::string>(&arguments[i]);
  return value != nullptr ? *value : std::string();
}

Neighbour::Neighbour(const std::string& busName, const std::vector<std::string>& rules,
                     Handler other)
    : connection(connectBus()), wait(connection.get()), name(busName), otherwise(std::move(other)) {
  // The rules first: who sees the name on the bus may emit what they are for.
  for (const std::string& rule : rules) dbus_bus_add_match(connection.get(), rule.c_str(), nullptr);
  dbus_connection_flush(connection.get());
  if (!name.empty()) requestName(connection.get(), name);
  thread = std::thread([this] { run(); });
}

Neighbour::~Neighbour() {
  stopping = true;
  wait.wake();
  thread.join();
  // Waits for the daemon, so that the next one of this name gets it.
  if (!name.empty()) dbus_bus_release_name(connection.get(), name.c_str(), nullptr);
}

void Neighbour::on(const std::string& member, Handler handler) {
  const std::lock_guard guard(lock);
  handlers[member] = std::move(handler);
}

void Neighbour::answer(const std::string& member, Answer answer) {
  on(member, [answer = std::move(answer)](const Received&) { return answer; });
}

std::vector<Received> Neighbour::received(const std::string& member) const {
  const std::lock_guard guard(lock);
  std::vector<Received> copies;
  for (const Received* message : matching(member)) copies.push_back(*message);
  return copies;
}

std::size_t Neighbour::count(const std::string& member) const {
  const std::lock_guard guard(lock);
  return matching(member).size();
}

std::optional<Received> Neighbour::await(const std::string& member, std::size_t n, double seconds) {
  std::unique_lock guard(lock);
  const bool came = arrived.wait_for(guard, std::chrono::duration<double>(seconds),
                                     [&] { return matching(member).size() >= n; });
  return came ? std::optional(*matching(member)[n - 1]) : std::nullopt;
}

// With the lock held; the messages stay where they are only as long as it is.
std::vector<const Received*> Neighbour::matching(const std::string& member) const {
  std::vector<const Received*> found;
  for (const Received& message : messages) {
    if (member.empty() || message.member == member) found.push_back(&message);
  }
  return found;
}

void Neighbour::emit(const std::string& path, const std::string& interface,
                     const std::string& member, const std::vector<std::string>& texts,
                     const std::string& destination) {
  const Message signal(dbus_message_new_signal(path.c_str(), interface.c_str(), member.c_str()));
  if (!destination.empty()) dbus_message_set_destination(signal.get(), destination.c_str());
  append(signal.get(), texts);
  wait.send(signal.get());
}

void Neighbour::run() {
  for (bool connected = true; connected && !stopping;) {
    connected = wait.readWrite(untilNextIsDue());
    while (const Message message{dbus_connection_pop_message(connection.get())}) {
      handle(message.get());
    }
    sendWhatIsDue();
  }
}

void Neighbour::handle(DBusMessage* message) {
  const int type = dbus_message_get_type(message);
  if (type != DBUS_MESSAGE_TYPE_SIGNAL && type != DBUS_MESSAGE_TYPE_METHOD_CALL) return;
  const Received now = gateway::received(message);
  Handler handler = otherwise;
  {
    const std::lock_guard guard(lock);
    const auto found = handlers.find(now.member);
    if (found != handlers.end()) handler = found->second;
    if (found != handlers.end() || !otherwise) messages.push_back(now);
  }
  arrived.notify_all();
  const Answer answer = handler ? handler(now) : Answer(std::string(kDefaultAnswer));
  if (!now.isSignal) reply(message, answer);
}

void Neighbour::reply(DBusMessage* call, const Answer& answer) {
  Message message;
  if (const auto* twice = std::get_if<Twice>(&answer)) {
    reply(call, twice->text);
    reply(call, twice->text);
  } else if (const auto* slow = std::get_if<Late>(&answer)) {
    late.emplace(std::chrono::steady_clock::now() + std::chrono::milliseconds(slow->milliseconds),
                 makeReply(call, slow->text));
  } else if (const auto* text = std::get_if<std::string>(&answer)) {
    message = makeReply(call, *text);
  } else if (const auto* error = std::get_if<Error>(&answer)) {
    message.reset(dbus_message_new_error(call, error->name.c_str(), error->text.c_str()));
  }
  if (message) wait.send(message.get());
}

std::optional<int> Neighbour::untilNextIsDue() const {
  if (late.empty()) return std::nullopt;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(late.begin()->first -
                                                                 std::chrono::steady_clock::now());
  return std::max(static_cast<int>(left.count()), 0);
}

void Neighbour::sendWhatIsDue() {
  while (!late.empty() && late.begin()->first <= std::chrono::steady_clock::now()) {
    wait.send(late.begin()->second.get());
    late.erase(late.begin());
  }
}

std::optional<std::string> busCall(const std::string& service, const std::string& path,
                                   const std::string& member, const std::vector<std::string>& texts,
                                   double seconds) {
  const Connection connection = connectBus();
  const Message call = makeCall(service, member, texts);
  dbus_message_set_path(call.get(), path.c_str());
  const Message reply = callAndWait(connection.get(), call.get(), static_cast<int>(seconds * 1000));
  if (!reply) return std::nullopt;
  const std::vector<std::string> answer = textsOf(reply.get());
  return answer.empty() ? std::string() : answer[0];
}

bool eventually(const std::function<bool()>& condition, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace gateway
