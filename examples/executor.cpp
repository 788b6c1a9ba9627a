// An executor for fans and lamps, to begin one's own with: docs/executors.md tells the rest.
//
// Needs libsdbus-c++-dev and libjsoncpp-dev. A resource's content is its program, {"steps": 3}; to
// run it means to print a line here.

#include <json/json.h>
#include <sdbus-c++/sdbus-c++.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

constexpr const char* kBus = "unix:path=/tmp/var/run/mbusd/mbusd_socket";
constexpr const char* kManager = "iot.job.manager";
constexpr const char* kManagerPath = "/iot/job/manager";
constexpr const char* kName = "iot.fan.control";  // of the bus name and the interface
constexpr const char* kPath = "/iot/fan/control";
constexpr const char* kFiles = "/tarnvale/run/downloaded-job/configmanager/";
constexpr const char* kRegistration = R"({
  "executorName": "fan_control", "linkType": 0,
  "executorAddr": {"name": "iot.fan.control", "interface": "iot.fan.control", "path": "/iot/fan/control"},
  "storeType": ["file"], "watchType": ["fan", "lamp"]})";
constexpr const char* kSuccess = R"({"code": 0, "message": "", "data": null})";
constexpr const char* kFailure = R"({"code": 1, "message": "see the log", "data": null})";

Json::Value parsed(const std::string& text) {
  Json::Value value;
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  if (!reader->parse(text.data(), text.data() + text.size(), &value, nullptr)) {
    throw std::runtime_error("not JSON");
  }
  return value;
}

void run(const std::string& resourceId) {
  std::ifstream file(kFiles + resourceId + "/config.json");
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const int steps = parsed(text)["steps"].asInt();
  std::cout << "runs " << resourceId << ' ' << steps << std::endl;
}

// Whatever the bus library calls goes through this: no exception may reach it. Those of jsoncpp
// tell of values of another type.
std::string answered(const std::function<void()>& work) try {
  work();
  return kSuccess;
} catch (const std::exception& error) {
  std::cout << "refuses " << error.what() << std::endl;
  return kFailure;
}

std::string deployJob(const std::string& resources) {
  return answered([&] {
    for (const Json::Value& resource : parsed(resources)) run(resource["resourceId"].asString());
  });
}

std::string deleteJob(const std::string& resources) {
  return answered([&] {
    for (const Json::Value& resource : parsed(resources)) {
      std::cout << "stops " << resource["resourceId"].asString() << std::endl;
    }
  });
}

std::string resetJobs() {
  std::cout << "stops everything" << std::endl;
  return kSuccess;
}

std::string onWatchTypesFinish() {
  std::cout << "knows that the deployment is over" << std::endl;
  return kSuccess;
}

// Called by nobody at present.
std::string getJobStatus(const std::string&) { return kSuccess; }
std::string initExecutor() { return kSuccess; }

// Without waiting for the answer: task-dispatcher may be calling us, or downloading, just now.
void registerAt(sdbus::IProxy& manager) {
  manager.callMethodAsync("registerExecutor")
      .onInterface(kManager)
      .withTimeout(std::chrono::minutes(10))
      .withArguments(std::string(kRegistration))
      .uponReplyInvoke([](const sdbus::Error* error, const std::string& answer) {
        answered([&] {
          const std::string said =
              error ? error->getMessage() : "code " + parsed(answer)["code"].asString();
          std::cout << "registerExecutor " << said << std::endl;
        });
      });
}

}  // namespace

int main() {
  const auto connection = sdbus::createSessionBusConnectionWithAddress(kBus);
  const auto object = sdbus::createObject(*connection, kPath);
  object->registerMethod("deployJob").onInterface(kName).implementedAs(&deployJob);
  object->registerMethod("deleteJob").onInterface(kName).implementedAs(&deleteJob);
  object->registerMethod("resetJobs").onInterface(kName).implementedAs(&resetJobs);
  object->registerMethod("onWatchTypesFinish")
      .onInterface(kName)
      .implementedAs(&onWatchTypesFinish);
  object->registerMethod("getJobStatus").onInterface(kName).implementedAs(&getJobStatus);
  object->registerMethod("initExecutor").onInterface(kName).implementedAs(&initExecutor);
  object->finishRegistration();
  connection->requestName(kName);

  // The signal first: then task-dispatcher can't come unnoticed between the two.
  const auto manager = sdbus::createProxy(*connection, kManager, kManagerPath);
  const auto daemon =
      sdbus::createProxy(*connection, "org.freedesktop.DBus", "/org/freedesktop/DBus");
  daemon->uponSignal("NameOwnerChanged")
      .onInterface("org.freedesktop.DBus")
      .call([&](const std::string& name, const std::string&, const std::string& newOwner) {
        if (name == kManager && !newOwner.empty()) answered([&] { registerAt(*manager); });
      });
  daemon->finishRegistration();
  registerAt(*manager);
  connection->enterEventLoop();
}
