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

constexpr gateway::Program kProgram{
    "gateway-scheduler",
    "the local gateway's cloud",
    "Grants runner ids, hands out the jobs that gateway-job submits, acknowledges status reports, "
    "collects "
    "deployment results, and traces as FAULT what a gateway should not have sent.",
    {},
    kOptions};

}  // namespace

int main(int argc, char** argv) {
  gateway::Options options;
  if (const auto status = options.parse(argc, argv, kProgram)) return *status;
  if (!options.has("product-key") || !options.has("device-name")) {
    return gateway::usageError(kProgram, "--product-key and --device-name are needed");
  }
  gateway::Cloud cloud({.productKey = options.get("product-key"),
                        .deviceName = options.get("device-name"),
                        .runId = options.number("run-id", 1001),
                        .recordFile = options.get("record")});
  cloud.run(options.get("host", "127.0.0.1"), options.number("port", 1883));
}
