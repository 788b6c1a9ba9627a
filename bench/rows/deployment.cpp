// One deployment of text resources, from the heartbeat's reply to the last report, as it grows;
// then the largest one again onto its own job list, and its deletion.
#include <gateway/config.h>

#include <string>

#include "rows.h"
#include "support/deploy.h"
#include "support/gateway.h"
#include "support/process.h"
#include "support/web.h"

namespace bench {
namespace {

double floorSeconds(std::size_t count, const Web& web) {
  Child floor({beside("bench-floor"), "deploy", std::to_string(count), std::to_string(web.port())},
              "/dev/stderr", true);
  return std::stod(floor.readOutput());
}

void measureGrowth(Gateway& gateway, Service& service, const Web& web, std::size_t largest) {
  service.awaitHandled();
  const pid_t process = service.child().id();
  // What the start took at its peak is not the deployment's.
  resetPeak(process);
  const double before = usageOf(process).resident;
  for (std::size_t count = 1; count <= largest; count *= 10) {
    const std::string jobs = jobsOf(web.root(), count, 0);
    for (const std::string& type : kTypes) set_config(nullptr, type.c_str(), "[]", 10000);
    const std::string size = std::to_string(count);
    const double cpu = usageOf(process).cpu;
    const double seconds = deploy(gateway, service, jobs);
    sample("deployment", size + ": s", "service", seconds);
    sample("deployment", size + ": CPU s", "service", usageOf(process).cpu - cpu);
    sample("deployment", size + ": memory KiB", "service", usageOf(process).peak - before);
    if (count == largest) {
      sample("deployment", "again: s", "floor", seconds);
      sample("deployment", "deleted: s", "floor", seconds);
    }
    const double floorCpu = cpuOfChildren();
    sample("deployment", size + ": s", "floor", floorSeconds(count, web));
    sample("deployment", size + ": CPU s", "floor", cpuOfChildren() - floorCpu);
  }
}

}  // namespace

void deployment(const Options& options) {
  const Web web;
  Gateway gateway;
  const std::size_t largest = options.scaled(10000, 100);
  for (int run = 0; run < options.runs; ++run) {
    // A service of its own for each run: memory is counted from its start.
    Service service(gateway);
    measureGrowth(gateway, service, web, largest);
    sample("deployment", "again: s", "service",
           deploy(gateway, service, jobsOf(web.root(), largest, 0)));
    sample("deployment", "deleted: s", "service",
           deploy(gateway, service, jobsOf(web.root(), largest, 1)));
    gateway.dropHeartbeats();
  }
}

}  // namespace bench
