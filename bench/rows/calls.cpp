// Method calls: one caller and eight, each with its own connection, each waiting for its answer.
#include <list>
#include <string>
#include <thread>
#include <vector>

#include "rows.h"
#include "support/gateway.h"
#include "support/process.h"

namespace bench {
namespace {

struct Method {
  std::string name;
  std::vector<std::string> arguments;
  bool isPassedOn;  // to the bridge
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

void measure(const std::string& side, const std::string& service, const Method& method,
             std::size_t callers, std::size_t total) {
  std::vector<std::vector<double>> parts(callers);
  std::vector<std::thread> threads;
  threads.reserve(callers);
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

// Who answers a text of the same size and, if need be, passes one on that is as long as a report.
class Floor {
 public:
  Floor(const char* shape, const Service& service, const Method& method, std::size_t reportSize)
      : side(method.isPassedOn ? std::string(shape) + ", passing on" : shape),
        name("bench.floor." + method.name + "." + shape),
        child({beside("bench-floor"), method.isPassedOn ? "relay" : "server", shape, name,
               std::to_string(answerSize(service, method)),
               std::to_string(method.isPassedOn ? reportSize : 0)}) {
    awaitName(service.bus(), name);
  }

  const std::string side;
  const std::string name;

 private:
  const Child child;
};

}  // namespace

void calls(const Options& options) {
  Gateway gateway;
  const Service service(gateway);
  const std::string status =
      R"({"jobId":4711,"jobStatus":3,"executor":"label","result":"deployed","foreignKey":"key"})";
  const Method methods[] = {{"getSelfDescribing", {}, false}, {"syncJobStatus", {status}, true}};
  answerSize(service, methods[1]);
  gateway.await("no status report", [](const auto& seen) { return !seen.statuses.empty(); });
  const std::size_t reportSize = gateway.published().statuses.at(0).size();
  for (const Method& method : methods) {
    std::list<Floor> floors;
    for (const char* shape : kShapes) floors.emplace_back(shape, service, method, reportSize);
    for (int run = 0; run < options.runs; ++run) {
      for (const std::size_t callers : {1U, 8U}) {
        const std::size_t total = options.scaled(16000);
        measure("service", kService, method, callers, total);
        for (const Floor& floor : floors) {
          measure(floor.side, floor.name, method, callers, total);
        }
        gateway.forget();
      }
    }
  }
}

}  // namespace bench
