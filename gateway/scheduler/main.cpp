#include <cstdio>

#include "cloud.h"
#include "common/options.h"

namespace {

constexpr gateway::OptionEntry kOptions[] = {
    {"host", "NAME", "the broker's host; default 127.0.0.1"},
    {"port", "NUMBER", "the broker's port; default 1883"},
    {"product-key", "TEXT", "the gateway's product key"},
    {"device-name", "TEXT", "the gateway's device name; +: all gateways of the product"},
    {"run-id", "NUMBER", "the runner id to grant (with +: the first); default 1001"},
    {"record", "FILE", "append every message of the gateway and every event of a job to FILE"},
};

}  // namespace

int main(int argc, char** argv) {
  gateway::Options options;
  if (!options.parse(argc, argv, kOptions)) return 2;
  if (!options.has("product-key") || !options.has("device-name")) {
    std::fputs("--product-key and --device-name are needed\n", stderr);
    return 2;
  }
  gateway::Cloud cloud({.productKey = options.get("product-key"),
                        .deviceName = options.get("device-name"),
                        .runId = options.number("run-id", 1001),
                        .recordFile = options.get("record")});
  cloud.run(options.get("host", "127.0.0.1"), options.number("port", 1883));
}
