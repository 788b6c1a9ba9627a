// One deployment of text resources, from the heartbeat's reply to the last report, as it grows;
// then the largest one again onto its own job list, and its deletion.
#include <gateway/config.h>
#include <openssl/evp.h>

#include <array>
#include <string>

#include "rows.h"
#include "support/gateway.h"
#include "support/hex.h"
#include "support/process.h"
#include "support/web.h"

namespace bench {
namespace {

constexpr std::size_t kBytes = 1024;

std::string md5Of(const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  EVP_Digest(text.data(), text.size(), digest.data(), nullptr, EVP_md5(), nullptr);
  return hexOf({reinterpret_cast<const char*>(digest.data()), 16});
}

std::string resourceOf(const Web& web, std::size_t number, int operate) {
  const std::string id = std::to_string(number);
  return R"({"operate":)" + std::to_string(operate) + R"(,"resourceType":")" +
         kTypes[number % kTypes.size()] + R"(","resourceId":"r)" + id + R"(","snapshotId":"s)" +
         id + R"(","resourceName":"resource )" + id + R"(","configKivAddress":")" +
         web.url(kBytes, number) + R"(","configFormat":"text","configMd5":")" +
         md5Of(webText(kBytes, number)) + "\"}";
}

// The job list that carries a request with `count` resources.
std::string jobsOf(const Web& web, std::size_t count, int operate) {
  std::string request = R"({"deployId":"d","taskId":"t","deployType":0,"resources":[)";
  for (std::size_t i = 0; i < count; ++i) {
    if (i > 0) request += ',';
    request += resourceOf(web, i, operate);
  }
  request += "]}";
  const std::string content =
      R"({"content":)" + quoted(request) + R"(,"type":"inline","name":"bench","context":""})";
  return R"([{"id":1,"ackCode":10201,"jobId":1,"executor":"label","ackContent":)" +
         quoted(content) + "}]";
}

// Seconds from the reply to the last report.
double deploy(Gateway& gateway, const Service& service, const std::string& jobs) {
  const std::string reply = heartbeatReply(gateway.takeHeartbeat(), jobs);
  gateway.forget();
  const double begin = now();
  service.send(replyTopic(), reply);
  await("no report came", [&] { return gateway.reportTime() > 0; });
  const auto published = gateway.published();
  require(published.report.find("\"success\" : false") == std::string::npos, "a resource failed");
  return published.lastReport - begin;
}

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
    const std::string jobs = jobsOf(web, count, 0);
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
    sample("deployment", "again: s", "service", deploy(gateway, service, jobsOf(web, largest, 0)));
    sample("deployment", "deleted: s", "service",
           deploy(gateway, service, jobsOf(web, largest, 1)));
    gateway.dropHeartbeats();
  }
}

}  // namespace bench
