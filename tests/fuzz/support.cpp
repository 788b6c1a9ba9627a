#include "support.h"

#include <fcntl.h>
#include <gateway/config.h>
#include <uv.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "communicate_scene/request.h"
#include "dbus_process_call/dbus_process_call.h"
#include "dbus_wrap/ProxyHook.h"
#include "digest/digest.h"
#include "executor_api/registry.h"
#include "lib/comm_path.h"
#include "lib/json_helper.h"
#include "scheduler_link/identity.h"
#include "scheduler_link/routing.h"
#include "tables.h"
#include "transfer.h"
#include "util/aes/job_aes.h"
#include "util/http_download_kiv.h"

namespace fuzz {
namespace {

std::string takeReply(const std::string& method) {
  std::string reply = R"({"code":0,"message":"","data":[]})";
  if (!world.replies.empty()) {
    reply = std::move(world.replies.front());
    world.replies.pop_front();
  }
  if (method == "deployConfig" && (reply.empty() || reply == "!")) world.parserSilent = true;
  if (method == "deleteJob") world.deletionSent = true;
  return reply;
}

void publish(const std::string& topic, const std::string& payload) {
  require(topic.starts_with("/sys/key/device/"), "only this gateway's topics are used");
  Json::Value value;
  require(jobm::json::parse(payload, value) || topic.ends_with("/post_log"),
          "what goes to the cloud is JSON");
  world.published.emplace_back(topic, value);
}

// Paths are built from checked names, so none leads upwards, and each is in its place.
void requireWritable(const char* changed) {
  const std::string& root = world.writableRoot;
  if (changed == nullptr || root.empty()) return;
  const std::string path = std::string(changed) + "/";
  const char* output = std::getenv("FUZZ_OUTPUT");
  const bool isFinding = output != nullptr && path.starts_with(output);  // the fuzzer's own file
  require(isFinding || path.starts_with(root + "/"), "files stay in the working tree");
  require(path.find("/../") == std::string::npos, "no path leads upwards");
}

std::string answerOf(const quillon::DMessage& message) {
  quillon::DMessage reader(message.raw(), quillon::DMessage::kRead);
  const std::string argument = reader.readString();
  if (dbus_message_has_destination(message.raw(), "iot.bridge.mqtt")) {
    publish(argument, reader.readString());
    return R"({"code":0})";
  }
  require(argument.empty() || !parsed(argument).isNull(), "executors get JSON");
  return takeReply(dbus_message_get_member(message.raw()));
}

// Every neighbour on the bus.
class Neighbours : public quillon::ProxyHook {
 public:
  bool sendMessageWithReply(const quillon::DProxy& /*proxy*/,
                            const std::shared_ptr<quillon::DMessage>& message,
                            quillon::ReplyCallback callback, void* userData) override {
    if (!message) return false;
    std::string reply = answerOf(*message);
    if (reply == "!") return false;
    const bool isFirst = reply.starts_with('>');
    if (isFirst) reply.erase(0, 1);
    const auto read = [reply, callback = std::move(callback), userData] {
      callback(reply.empty() ? nullptr : makeReply(reply), userData);
    };
    world.tasks.insert(isFirst ? world.tasks.begin() : world.tasks.end(), read);
    return true;
  }
  std::shared_ptr<quillon::DMessage> sendMessageWithReplyBlocking(
      const std::shared_ptr<quillon::DMessage>& /*message*/) override {
    return makeReply(R"({"code":0})");
  }
  int sendSignal(const std::shared_ptr<quillon::DMessage>& /*message*/) override { return 0; }
};

}  // namespace

void require(bool holds, const char* promise) {
  if (holds) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

std::vector<std::string> start(std::string input) {
  constexpr std::string_view kSeparator = "\n---\n";
  static Neighbours neighbours;
  quillon::setProxyHook(neighbours);
  world = World{};
  world.store["gw_system_devicesecret"] = "0123456789abcdef0123456789abcdef";
  jobm::setDeviceInfo("key", "device");
  jobm::setRunId(77);
  jobm::setDeviceSecretReader([] { return jobm::getConfig("gw_system_devicesecret"); });
  jobm::mkDir(jobm::kDownloadRoot);
  jobm::rmDir(jobm::kDownloadRoot);  // leaves what it is in
  world.writableRoot = jobm::kDownloadRoot;
  restart();

  std::vector<std::string> events{take(input, kSeparator)};
  while (!input.empty()) {
    const std::string section = take(input, kSeparator);
    const std::string kind = section.substr(0, 1);
    const std::string rest = section.substr(kind.size());
    if (kind == "?") {
      events.push_back(rest);
    } else if (kind == "E" || kind == "P") {
      static_cast<void>(kind == "E" ? jobm::registerExecutor(rest) : jobm::registerParser(rest));
    } else if (kind == "=" && world.files.size() < 10) {
      world.files["m:" + std::to_string(world.files.size())] = rest;
    } else {
      world.replies.push_back(section);
    }
  }
  for (const auto& [url, file] : world.files) {
    for (std::string& event : events) substitute(event, "$" + url, gateway::md5Of(file));
  }
  return events;
}

void restart() {
  std::destroy_at(&jobm::registry::tables());
  std::construct_at(&jobm::registry::tables());
  static_cast<void>(jobm::initAllExecutors());
}

void runLoop() {
  // What the service posted comes before the next answer; a post may lead to another one, of which
  // nothing tells.
  constexpr int kPosts = 100;
  for (int turn = 0; turn < kPosts || !world.tasks.empty(); ++turn) {
    uv_run(uv_default_loop(), UV_RUN_NOWAIT);
    if (world.tasks.empty()) continue;
    const auto task = std::move(world.tasks.front());
    world.tasks.pop_front();
    task();
    turn = 0;
  }
}

void settle() {
  runLoop();
  // The scheduler accepts every report, so that no request stays open.
  for (const auto& [topic, report] : std::exchange(world.published, {})) {
    if (topic.find("/scheduler/publish/") == std::string::npos) continue;
    std::string reply = R"({"attrs":[{"code":200,"data":"\"ACK_REQUEST_OK\""}],"id":)";
    reply += report["id"].asString() + "}";
    jobm::dispatchMasterResponse("/sys/key/device/scheduler/sysReply", reply);
  }
  world.replies.clear();
  jobm::handle1Job(R"({"deployId":"next job","taskId":"t","deployType":0,"resources":[]})");
  runLoop();
  require(reportsOf("next job").size() == 1, "the next ordinary job succeeds");
  require(jobm::outstandingRequests() == 0, "no answered request stays open");
}

std::vector<std::set<std::string>> reportsOf(const std::string& deployId) {
  std::vector<std::set<std::string>> reports;
  std::set<std::string> named;
  for (const auto& [topic, report] : world.published) {
    if (!topic.ends_with("/edge/deploy/post") || report["deployId"] != deployId) continue;
    const Json::Value& details = report["details"];
    for (const Json::Value& detail : details) {
      named.insert(jobm::json::textOf(detail, "snapshotId"));
    }
    const bool isLast = report["isLastReply"].asBool();
    require(isLast || details.size() == 200, "a report is split after 200 details");
    if (isLast) reports.push_back(std::exchange(named, {}));
  }
  return reports;
}

std::shared_ptr<quillon::DMessage> makeReply(const std::string& text) {
  DBusMessage* raw = dbus_message_new(DBUS_MESSAGE_TYPE_METHOD_RETURN);
  quillon::DMessage writer(raw, quillon::DMessage::kWrite);
  static_cast<void>(text.starts_with('\x01') ? writer.writeInt32(1) : writer.writeString(text));
  return std::make_shared<quillon::DMessage>(raw, true, quillon::DMessage::kRead);
}

std::string take(std::string& text, std::string_view end) {
  const std::size_t length = std::min(text.find(end), text.size());
  std::string taken = text.substr(0, length);
  text.erase(0, length + end.size());
  return taken;
}

void substitute(std::string& text, std::string_view from, const std::string& to) {
  std::string rest = std::exchange(text, {});
  while (rest.find(from) != std::string::npos) text += take(rest, from) + to;
  text += rest;
}

}  // namespace fuzz

using fuzz::world;

int get_config(DBusConnection*, const char* key, char** value, int) {
  const auto entry = world.store.find(key);
  if (entry == world.store.end()) return -1;
  *value = strdup(entry->second.c_str());
  return 0;
}

int set_config(DBusConnection*, const char* key, const char* value, int) {
  const std::string_view name = key;
  const bool isRegistry = name == "gw_jobm_executors" || name == "gw_jobm_parsers";
  const bool isOwn = isRegistry || name == "gw_jobm_jobId" || name == "gw_jobm_jobContent" ||
                     name.starts_with("gw_jobm_deployment_");
  const bool isReserved = name.starts_with("gw_jobm_") || name.starts_with("gw_system_");
  fuzz::require(isOwn || !isReserved, "no foreign key is reserved, and no identity written");
  fuzz::require(!isRegistry || fuzz::parsed(value).isObject(), "the registry stays readable");
  world.store[key] = value;
  return 0;
}

jobm::Transfer jobm::transfer(const std::string& url, FILE* to) {
  const auto file = world.files.find(url);
  if (file == world.files.end()) return {CURLE_COULDNT_CONNECT};
  std::fwrite(file->second.data(), 1, file->second.size(), to);
  return {CURLE_OK, 200};
}
void jobm::releaseConnections() {}

/// Puts the watch before a function of the C library; last come the paths that it changes.
#define WATCHED(result, function, parameters, arguments, ...)                 \
  result __real_##function parameters;                                        \
  result __wrap_##function parameters {                                       \
    for (const char* changed : {__VA_ARGS__}) fuzz::requireWritable(changed); \
    return __real_##function arguments;                                       \
  }

extern "C" {
WATCHED(int, mkdir, (const char* path, mode_t mode), (path, mode), path)
WATCHED(int, rmdir, (const char* path), (path), path)
WATCHED(int, unlink, (const char* path), (path), path)
WATCHED(int, remove, (const char* path), (path), path)
WATCHED(int, rename, (const char* from, const char* to), (from, to), from, to)
WATCHED(FILE*, fopen, (const char* path, const char* mode), (path, mode),
        mode[0] != 'r' ? path : nullptr)
WATCHED(int, open, (const char* path, int flags, mode_t mode), (path, flags, mode),
        (flags & (O_WRONLY | O_RDWR | O_CREAT)) != 0 ? path : nullptr)
// A command is no path in the tree: nothing from outside reaches a shell.
WATCHED(int, system, (const char* command), (command), command)

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::check(std::string(reinterpret_cast<const char*>(data), size));
  fuzz::world.writableRoot.clear();  // what follows is written by the fuzzer
  return 0;
}
}  // extern "C"
