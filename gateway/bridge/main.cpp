#include <sys/stat.h>

#include "bridge_server.h"
#include "common/options.h"

namespace {

constexpr gateway::OptionEntry kOptions[] = {
    {"host", "NAME", "the broker's host; default 127.0.0.1"},
    {"port", "NUMBER", "the broker's port; default 1883"},
    {"client-id", "TEXT", "MQTT client id; default mqtt-bridge"},
    {"state", "FILE", "keep subscriptions and undelivered messages in FILE"},
};

constexpr gateway::Program kProgram{
    "mqtt-bridge",
    "the local gateway's MQTT bridge",
    "Owns \"iot.bridge.mqtt\" on the gateway's bus and passes messages between it and a broker. "
    "What it has "
    "answered with code 0 is kept in the file of --state until the broker has it.",
    {},
    kOptions};

}  // namespace

int main(int argc, char** argv) {
  gateway::Options options;
  if (const auto status = options.parse(argc, argv, kProgram)) return *status;
  umask(S_IRWXG | S_IRWXO);  // the messages that are kept are nobody else's business
  gateway::BridgeServer server({.host = options.get("host", "127.0.0.1"),
                                .port = options.number("port", 1883),
                                .stateFile = options.get("state"),
                                .clientId = options.get("client-id", "mqtt-bridge")});
  return server.serve();
}
