// A heartbeat's reply with many delete orders, against publishing as many reports.
#include <set>
#include <string>

#include "lib/json_helper.h"
#include "rows.h"
#include "support/deploy.h"
#include "support/process.h"

namespace bench {
namespace {

std::size_t differentIds(const std::vector<std::string>& reports) {
  std::set<std::int64_t> ids;
  for (const std::string& report : reports) {
    Json::Value request;
    require(jobm::json::parse(report, request), "a report is no JSON");
    ids.insert(request["id"].asInt64());
  }
  return ids.size();
}

// Publishes like any client of the bridge that doesn't wait for the answers.
double publishMany(Gateway& gateway, std::size_t count, const std::string& payload) {
  const Connection connection = connectBus();
  gateway.forget();
  const double begin = now();
  for (std::size_t i = 0; i < count; ++i) {
    const Message call = makeCall(kBridge, "publish", {"/bench/floor", payload});
    const dbus_int32_t qos = 1;
    dbus_message_append_args(call.get(), DBUS_TYPE_INT32, &qos, DBUS_TYPE_INVALID);
    dbus_connection_send(connection.get(), call.get(), nullptr);
  }
  dbus_connection_flush(connection.get());
  gateway.await("not published", [&](const auto& seen) { return seen.others >= count; });
  return gateway.published().lastMessage - begin;
}

// The same from a proxy of the service's shape, whose worker reads meanwhile.
double publishManyByProxy(Gateway& gateway, DBusConnection* connection, const std::string& relay,
                          std::size_t count) {
  gateway.forget();
  const double begin = now();
  callBlocking(connection, makeCall(relay, "burst", {std::to_string(count)}).get());
  gateway.await("not published", [&](const auto& seen) { return seen.others >= count; });
  return gateway.published().lastMessage - begin;
}

}  // namespace

void deletes(const Options& options) {
  Gateway gateway;
  const Service service(gateway);
  const std::size_t count = options.scaled(1000);
  const std::string orders = deleteOrders(count);
  for (int run = 0; run < options.runs; ++run) {
    const std::string reply = heartbeatReply(gateway.takeHeartbeat(), orders);
    gateway.forget();
    const double begin = now();
    service.send(replyTopic(), reply);
    gateway.await("status reports are missing",
                  [&](const auto& seen) { return seen.statuses.size() >= count; });
    const auto published = gateway.published();
    sample("deletes", "s", "service", published.lastMessage - begin);
    sample("deletes", "different ids", "service",
           static_cast<double>(differentIds(published.statuses)));
    sample("deletes", "s", "floor", publishMany(gateway, count, published.statuses[0]));
    const std::string bytes = std::to_string(published.statuses[0].size());
    for (const char* shape : kShapes) {
      const std::string name = std::string("bench.floor.") + shape;
      const Child relay({beside("bench-floor"), "relay", shape, name, "0", bytes});
      awaitName(service.bus(), name);
      sample("deletes", "s", std::string(shape) + ", passing on",
             publishManyByProxy(gateway, service.bus(), name, count));
    }
  }
}

}  // namespace bench
