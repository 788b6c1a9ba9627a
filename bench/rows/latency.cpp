// Reply latency of an asynchronous call over a proxy of the bus layer, beside a server on the loop.
#include <cstdio>
#include <string>

#include "rows.h"
#include "support/gateway.h"
#include "support/process.h"

namespace bench {
namespace {

constexpr const char* kEcho = "bench.echo";

void measure(const char* side, std::size_t calls, std::size_t executors) {
  Child program({beside("bench-latency"), side, std::to_string(calls), std::to_string(executors)},
                "/dev/null", true);
  double median = 0;
  double p99 = 0;
  // Lines of the bus layer may come before.
  const std::string output = program.readOutput();
  const std::size_t last = output.rfind('\n', output.size() - 2);
  const char* line = output.c_str() + (last == std::string::npos ? 0 : last + 1);
  require(std::sscanf(line, "%lf %lf", &median, &p99) == 2, "no figures");
  const std::string prefix = std::to_string(executors) + " executors: ";
  sample("latency", prefix + "median ms", side, median * 1e3);
  sample("latency", prefix + "p99 ms", side, p99 * 1e3);
}

}  // namespace

void latency(const Options& options) {
  // By events: what it adds is the same for all.
  Child echo({beside("bench-floor"), "server", "events", kEcho, "64", "0"});
  const Connection connection = connectBus();
  awaitName(connection.get(), kEcho);
  for (int run = 0; run < options.runs; ++run) {
    for (const std::size_t executors : {3U, 20U, 100U}) {
      measure("service", options.scaled(500), executors);
      for (const char* shape : kShapes) measure(shape, options.scaled(500), executors);
    }
  }
}

}  // namespace bench
