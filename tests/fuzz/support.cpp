#include "support.h"

#include <comm_path.h>
#include <json_helper.h>
#include <openssl/evp.h>
#include <util/aes/job_aes.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "communicate_scene/request.h"
#include "dbus_process_call.h"
#include "executor_api/registry.h"
#include "executor_api/tables.h"
#include "neighbours.h"
#include "runner_api/identity.h"
#include "runner_api/routing.h"

namespace fuzz {
namespace {

constexpr std::string_view kSeparator = "\n---\n";
// As many as make a report that has to be split, and no more.
constexpr std::size_t kMaxFiles = 10;

std::vector<std::string> sectionsOf(std::string_view text) {
  std::vector<std::string> sections;
  while (true) {
    const std::size_t end = text.find(kSeparator);
    sections.emplace_back(text.substr(0, end));
    if (end == std::string_view::npos) return sections;
    text.remove_prefix(end + kSeparator.size());
  }
}

std::string md5(const std::string& text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned length = 0;
  EVP_Digest(text.data(), text.size(), digest.data(), &length, EVP_md5(), nullptr);
  std::string sum;
  for (unsigned i = 0; i < length; ++i) {
    std::array<char, 3> hex{};
    std::snprintf(hex.data(), hex.size(), "%02x", digest[i]);
    sum += hex.data();
  }
  return sum;
}

void startGateway() {
  World& all = world();
  all = World{};
  all.writableRoot = jobm::kDownloadRoot;
  all.store["gw_system_devicesecret"] = "0123456789abcdef0123456789abcdef";
  jobm::setDeviceInfo("key", "device");
  jobm::setRunId(77);
  jobm::setDeviceSecretReader([] { return jobm::getConfig("gw_system_devicesecret"); });
  jobm::rmDir(jobm::kDownloadRoot);
  forgetRegistrations();
}

void addOne(std::string (*add)(const std::string&), const char* name, const char* address,
            const char* watchType) {
  const std::string payload =
      std::string(R"({"linkType":1,"executorName":")") + name + R"(","executorAddr":{"name":")" +
      address + R"(","interface":"iot.test","path":"/iot/test"},"watchType":)" + watchType + "}";
  require(add(payload).empty(), "a neighbour can register");
}

// The scheduler accepts every report, so that no request stays open.
void acknowledgeReports() {
  const std::vector<Published> published = world().published;
  for (const Published& report : published) {
    if (report.topic.find("/scheduler/publish/") == std::string::npos) continue;
    Json::Value reply;
    reply["id"] = parsed(report.payload)["id"];
    reply["attrs"][0U]["code"] = 200;
    reply["attrs"][0U]["data"] = "\"ACK_REQUEST_OK\"";
    reply["reply"] = true;
    jobm::dispatchMasterResponse("/sys/key/device/scheduler/sysReply", jobm::json::styled(reply));
  }
}

void requireNextJobSucceeds() {
  world().replies.clear();
  // Whatever names the input's own deployments have.
  const std::vector<Published> before = std::exchange(world().published, {});
  jobm::handle1Job(R"({"deployId":"next job","taskId":"t","deployType":0,"resources":[]})");
  runLoop();
  Json::Value details;
  require(countReports("next job", details) == 1, "the next ordinary job succeeds");
  world().published = before;
}

}  // namespace

void require(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

Input::Input(const std::uint8_t* data, std::size_t size) {
  startGateway();
  auto sections = sectionsOf({reinterpret_cast<const char*>(data), size});
  head = std::move(sections.front());
  sections.erase(sections.begin());
  for (std::string& section : sections) {
    const char kind = section.empty() ? '\0' : section.front();
    if (kind == '?') {
      more.push_back(section.substr(1));
    } else if (kind != '=') {
      world().replies.push_back(std::move(section));
    } else if (world().files.size() < kMaxFiles) {
      world().files.push_back(section.substr(1));
    }
  }
}

Input::~Input() { world().writableRoot.clear(); }

std::string replaced(std::string text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string withSums(std::string text) {
  for (std::size_t i = 0; i < world().files.size(); ++i) {
    text = replaced(std::move(text), "$m" + std::to_string(i), md5(world().files[i]));
  }
  return text;
}

std::string upToZero(const std::string& text) { return text.substr(0, text.find('\0')); }

Json::Value parsed(const std::string& text) {
  Json::Value value;
  return jobm::json::parse(text, value) ? value : Json::Value();
}

std::string overTheWire(const std::string& text) {
  return parsed(jobm::json::styled(Json::Value(text))).asString();
}

void forgetRegistrations() {
  jobm::registry::Tables& tables = jobm::registry::tables();
  const std::lock_guard guard(tables.lock);
  tables.executorMap.clear();
  tables.parserMap.clear();
  tables.executorWatchMap.clear();
  tables.parserWatchMap.clear();
  tables.liveExecutors.clear();
  tables.liveParsers.clear();
}

void addNeighbours() {
  jobm::initAllExecutors();
  addOne(jobm::registerExecutor, "many", "iot.many", R"(["rule","label","page"])");
  addOne(jobm::registerExecutor, "uncallable", "no bus name", R"(["page"])");
  addOne(jobm::registerExecutor, "gw_jobm_executors", "iot.greedy", R"(["label"])");
  addOne(jobm::registerParser, "parser", "iot.parser", R"(["rule","stream"])");
  addOne(jobm::registerParser, "driver_manager", "iot.drivers", R"(["driver","rule"])");
}

void settle() {
  runLoop();
  acknowledgeReports();
  requireNextJobSucceeds();
  require(jobm::outstandingRequests() == 0, "no answered request stays open");
}

std::size_t countReports(const std::string& deployId, Json::Value& details) {
  std::size_t complete = 0;
  for (const Published& published : world().published) {
    if (!published.topic.ends_with("/edge/deploy/post")) continue;
    const Json::Value report = parsed(published.payload);
    if (report["deployId"] != Json::Value(deployId)) continue;
    for (const Json::Value& detail : report["details"]) details.append(detail);
    const bool last = report["isLastReply"].asBool();
    require(last || report["details"].size() == 200, "a report is split after 200 details");
    if (last) ++complete;
  }
  return complete;
}

}  // namespace fuzz
