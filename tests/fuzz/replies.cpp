// What executors answer. The head and each further section is one call, "VERB EXECUTOR" as a line
// and its argument: "deploy" or "delete" with an array of resources, which together make one
// deployment, "reset", or another verb for a call of that method. The answers follow.
#include <exception>
#include <optional>
#include <set>

#include "dbus_process_call.h"
#include "executor_api/deployment_results.h"
#include "executor_api/job_calls.h"
#include "executor_api/job_status.h"
#include "executor_api/reset.h"
#include "neighbours.h"
#include "support.h"

namespace {

struct Deployment {
  jobm::SharedResults results;
  std::uint32_t calls = 0;
  std::set<std::string> snapshotIds;
};

// Only what passes the request's checks comes so far.
Json::Value resourcesOf(const std::string& text) {
  Json::Value resources(Json::arrayValue);
  const Json::Value all = fuzz::parsed(text);
  if (!all.isArray()) return resources;
  for (const Json::Value& item : all) {
    if (!item.isObject()) continue;
    if (item["resourceId"].isString() && item["snapshotId"].isString()) resources.append(item);
  }
  return resources;
}

void callJob(Deployment& deployment, const std::string& verb, const std::string& executor,
             Json::Value resources) {
  const bool isDeletion = verb == "delete";
  const Json::Value result =
      isDeletion ? jobm::deleteEJob("d", "t", resources, executor, deployment.results)
                 : jobm::deployEJob("d", "t", resources, executor, deployment.results);
  const int code = result["code"].asInt();
  // Then no reply will come.
  if (code != 0 && !(isDeletion && code == jobm::kStoreFailed)) return;
  ++deployment.calls;
  for (const Json::Value& item : resources) {
    deployment.snapshotIds.insert(fuzz::overTheWire(item["snapshotId"].asString()));
  }
}

void callOther(const std::string& verb, const std::string& executorName,
               const std::string& argument) {
  if (verb == "reset") {
    jobm::resetEJobs();
    return;
  }
  const std::optional<jobm::Executor> executor = jobm::getExecutor(executorName);
  if (!executor) return;
  const auto ignore = [](int, const std::string&, const std::string&) {};
  jobm::callMethod(verb.c_str(), *executor, Json::Value(1).toStyledString(), ignore);
  jobm::deployParserJob(verb, argument, *executor, ignore);
  jobm::getJobStatus(1, argument, *executor);
  jobm::initExecutor(*executor);
}

void call(Deployment& deployment, const std::string& text) {
  const std::size_t end = text.find('\n');
  const std::string line = text.substr(0, end);
  const std::string argument = end != std::string::npos ? text.substr(end + 1) : "";
  const std::size_t space = line.find(' ');
  const std::string verb = line.substr(0, space);
  const std::string executor = space != std::string::npos ? line.substr(space + 1) : "";
  if (verb == "deploy" || verb == "delete") {
    callJob(deployment, verb, executor, resourcesOf(argument));
  } else {
    callOther(verb, executor, argument);
  }
}

void readReplies() {
  const jobm::TextLog quiet = [](const char*) {};
  for (const std::string& reply : fuzz::world().replies) {
    static_cast<void>(jobm::classifyReply(reply, {quiet, quiet, quiet}));
    static_cast<void>(jobm::parseProxyRetCode(fuzz::makeReply(reply), "fuzz"));
    static_cast<void>(jobm::reportJobStatus(reply));
  }
}

void check(const Deployment& deployment) {
  Json::Value details(Json::arrayValue);
  const std::size_t reports = fuzz::countReports("d", details);
  fuzz::require(reports == (deployment.calls > 0 ? 1 : 0), "a deployment is reported once");
  std::set<std::string> reported;
  for (const Json::Value& detail : details) reported.insert(detail["snapshotId"].asString());
  fuzz::require(reported == deployment.snapshotIds || deployment.calls == 0,
                "the report names every resource");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  fuzz::addNeighbours();
  readReplies();
  int over = 0;
  Deployment deployment;
  deployment.results = std::make_shared<jobm::DeploymentResults>([&over](bool) { ++over; });
  call(deployment, input.head);
  for (const std::string& text : input.more) call(deployment, text);
  jobm::G_ExecutorResultCounter = {0, deployment.calls};
  deployment.results.reset();
  fuzz::runLoop();
  fuzz::require(over == 1, "a deployment is over once its replies are in");
  check(deployment);
  fuzz::settle();
  return 0;
}
