// Method calls: one caller and eight, each with its own connection, each waiting for its answer.
#include <string>
#include <thread>
#include <vector>

#include "rows.h"
#include "support/gateway.h"
#include "support/process.h"

namespace bench {
namespace {

constexpr const char* kRelay = "bench.floor.relay";

struct Method {
  std::string name;
  std::vector<std::string> arguments;
  std::string floor;  // who answers a text of the same size
};

std::vector<double> callOneByOne(const std::string& service, const Method& method,
                                 std::size_t count) {
  const Connection connection = connectBus();
  std::vector<double> latencies(count);
  for (double& latency : latencies) {
    const Message call = makeCall(service, method.name, method.arguments);
    const double begin = now();
    callBlocking(connection.get(), call.get());
    latency = now() - begin;
  }
  return latencies;
}

void measure(const char* side, const std::string& service, const Method& method,
             std::size_t callers, std::size_t total) {
  std::vector<std::vector<double>> parts(callers);
  std::vector<std::thread> threads;
  const double begin = now();
  for (auto& part : parts) {
    threads.emplace_back([&] { part = callOneByOne(service, method, total / callers); });
  }
  for (std::thread& thread : threads) thread.join();
  const double seconds = now() - begin;
  std::vector<double> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  const std::string prefix = method.name + ", " + std::to_string(callers) + " callers: ";
  sample("calls", prefix + "calls/s", side, static_cast<double>(all.size()) / seconds);
  sample("calls", prefix + "median us", side, percentile(all, 50) * 1e6);
  sample("calls", prefix + "p99 us", side, percentile(all, 99) * 1e6);
}

std::size_t answerSize(const Service& service, const Method& method) {
  const Message reply =
      callBlocking(service.bus(), makeCall(kService, method.name, method.arguments).get());
  return textsOf(reply.get()).at(0).size();
}

}  // namespace

void calls(const Options& options) {
  Gateway gateway;
  const Service service(gateway);
  const std::string status =
      R"({"jobId":4711,"jobStatus":3,"executor":"label","result":"deployed","foreignKey":"key"})";
  const Method describing{"getSelfDescribing", {}, "bench.floor.describing"};
  const Method sync{"syncJobStatus", {status}, "bench.floor.sync"};
  const auto floorOf = [&](const Method& method) {
    const std::string size = std::to_string(answerSize(service, method));
    return Child({beside("bench-floor"), "server", method.floor, size, "0"});
  };
  const Child floors[] = {floorOf(describing), floorOf(sync)};
  // Beside the floor of the call alone, one that passes as much on to the bridge.
  await("no status report", [&] { return gateway.statusCount() > 0; });
  const Child relay({beside("bench-floor"), "relay", kRelay,
                     std::to_string(answerSize(service, sync)),
                     std::to_string(gateway.published().statuses.at(0).size())});
  for (const std::string& name : {describing.floor, sync.floor, std::string(kRelay)}) {
    awaitName(service.bus(), name);
  }
  for (int run = 0; run < options.runs; ++run) {
    for (const Method* method : {&describing, &sync}) {
      for (const std::size_t callers : {1U, 8U}) {
        const std::size_t total = options.scaled(16000);
        measure("service", kService, *method, callers, total);
        measure("floor", method->floor, *method, callers, total);
        if (method == &sync) measure("passing on", kRelay, *method, callers, total);
        gateway.forget();
      }
    }
  }
}

}  // namespace bench
