#include "PendingRequests.h"

#include <gateway/log_macros.h>

#include <utility>

namespace quillon {
namespace {

const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }

void logSending(const DMessage* message) {
  DBusMessage* raw = message != nullptr ? message->raw() : nullptr;
  LOGI("Sending message: interface: %s destination: %s member: %s",
       orEmpty(raw != nullptr ? dbus_message_get_interface(raw) : nullptr),
       orEmpty(raw != nullptr ? dbus_message_get_destination(raw) : nullptr),
       orEmpty(raw != nullptr ? dbus_message_get_member(raw) : nullptr));
}

}  // namespace

bool PendingRequests::add(Request request) {
  const std::lock_guard guard(pendingLock);
  ++requestCounter;
  // What can't be sent at all is told at once and not when its turn comes.
  const bool mustWait = pendingRequests.size() >= kMaxInFlight;
  if (!mustWait || !DConnection::isSendable(request.message)) return sendAndFile(request);
  waitingRequests.push_back(std::move(request));
  return true;
}

// Both lines come when the message goes out, which is when it has a serial.
bool PendingRequests::sendAndFile(Request& request) {
  logSending(request.message.get());
  std::uint32_t serial = 0;
  const bool sent = send(request.message, &serial);
  LOGD("DProxy::sendMessageWithReply reqId = %d, sendStatus = %s\n", static_cast<int>(serial),
       sent ? "true" : "false");
  if (!sent) return false;
  request.message.reset();
  pendingRequests.insert_or_assign(serial, std::move(request));
  return true;
}

void PendingRequests::sendWaiting(std::vector<Request>& failed) {
  while (!waitingRequests.empty() && pendingRequests.size() < kMaxInFlight) {
    if (!sendAndFile(waitingRequests.front())) failed.push_back(std::move(waitingRequests.front()));
    waitingRequests.pop_front();
  }
}

bool PendingRequests::startsAgeing() {
  const std::lock_guard guard(pendingLock);
  return !pendingRequests.empty() && !std::exchange(ageing, true);
}

std::optional<PendingRequests::Request> PendingRequests::take(std::uint32_t serial,
                                                              std::vector<Request>& failed) {
  const std::lock_guard guard(pendingLock);
  auto node = pendingRequests.extract(serial);
  if (node.empty()) return std::nullopt;
  LOGD("handleReply reqId = %d, left requests size: %ld\n", static_cast<int>(serial),
       static_cast<long>(pendingRequests.size() + waitingRequests.size()));
  sendWaiting(failed);
  return std::move(node.mapped());
}

bool PendingRequests::age(std::uint32_t maxTicks, std::vector<Request>& ended) {
  const std::lock_guard guard(pendingLock);
  for (auto entry = pendingRequests.begin(); entry != pendingRequests.end();) {
    if (++entry->second.ticks < maxTicks) {
      ++entry;
      continue;
    }
    ended.push_back(std::move(entry->second));
    entry = pendingRequests.erase(entry);
  }
  sendWaiting(ended);
  ageing = !pendingRequests.empty();
  return ageing;
}

void PendingRequests::clear() {
  // What the callbacks hold may do anything when it goes, so it goes without the lock.
  std::map<std::uint32_t, Request> forgotten;
  std::list<Request> forgottenWaiting;
  const std::lock_guard guard(pendingLock);
  forgotten.swap(pendingRequests);
  forgottenWaiting.swap(waitingRequests);
}

}  // namespace quillon
