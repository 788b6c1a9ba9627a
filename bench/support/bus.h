/// The bus for the benchmarks. A figure of a run in which something went wrong is worse than none:
/// everything here ends the program when it doesn't go well.
#pragma once

#include "neighbour/bus.h"

namespace bench {

using gateway::connectBus;
using gateway::Connection;
using gateway::makeCall;
using gateway::makeReply;
using gateway::makeSignal;
using gateway::Message;
using gateway::requestName;
using gateway::require;
using gateway::textsOf;

/// Sends a call and waits for its reply, which must be a good one.
inline Message callBlocking(DBusConnection* connection, DBusMessage* call) {
  constexpr int kReplyMs = 60000;
  Message reply = gateway::callAndWait(connection, call, kReplyMs);
  require(reply && dbus_message_get_type(reply.get()) == DBUS_MESSAGE_TYPE_METHOD_RETURN,
          "no reply");
  return reply;
}

}  // namespace bench
