// A message bus daemon without configured limits allows 128 unanswered calls a connection: nothing
// must be lost there. Runs in a sandbox without a bus.
#include <filesystem>
#include <fstream>
#include <string>

#include "rows.h"
#include "support/deploy.h"
#include "support/process.h"
#include "support/web.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

constexpr const char* kConfiguration = "/tarnvale/mbusd.conf";
constexpr const char* kSocket = "/tmp/var/run/mbusd/mbusd_socket";
constexpr double kPatience = 60;

Child startDaemon() {
  fs::create_directories(fs::path(kSocket).parent_path());
  std::ofstream(kConfiguration) << "<busconfig><type>mbusd</type><listen>unix:path=" << kSocket
                                << R"(</listen><auth>EXTERNAL</auth><policy context="default">
          <allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>
          <allow own="*"/><allow user="*"/></policy></busconfig>)";
  return Child({"dbus-daemon", "--config-file=" + std::string(kConfiguration), "--nofork",
                "--nopidfile", "--nosyslog"});
}

void sendReply(Gateway& gateway, const Service& service, const std::string& jobs) {
  const std::string reply = heartbeatReply(gateway.takeHeartbeat(), jobs);
  gateway.forget();
  service.send(replyTopic(), reply);
}

void measure(Gateway& gateway, const Service& service, const Web& web, std::size_t count) {
  sendReply(gateway, service, jobsOf(web.root(), count, 0));
  gateway.hasPublished([](const auto& seen) { return seen.lastReport > 0; }, kPatience);
  const auto deployed = static_cast<double>(gateway.published().successes);
  sample("unconfigured", "resources not deployed", "service",
         static_cast<double>(count) - deployed);
  sendReply(gateway, service, deleteOrders(count));
  gateway.hasPublished([&](const auto& seen) { return seen.statuses.size() >= count; }, kPatience);
  const auto heard = static_cast<double>(gateway.published().statuses.size());
  sample("unconfigured", "delete orders without a report", "service",
         static_cast<double>(count) - heard);
}

}  // namespace

void unconfigured(const Options& options) {
  const Child daemon = startDaemon();
  await("no bus daemon", [] { return gateway::isBusThere(); });
  const Web web;
  Gateway gateway;
  for (int run = 0; run < options.runs; ++run) {
    const Service service(gateway);
    measure(gateway, service, web, options.scaled(10000));
    gateway.dropHeartbeats();
  }
}

}  // namespace bench
