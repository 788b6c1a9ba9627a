/// One deployment in its parser and executor phases: what they share, and how it ends. Listening
/// thread only.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "sync_job_status/sync_job_status.h"
#include "wire/codes.h"

namespace jobm {

/// Replies of executors for the deployment in flight: one process-wide pair, because deployments
/// run one at a time. Set when the executors are called, advanced by each reply.
struct ExecutorResultCounter {
  std::uint32_t done = 0;
  std::uint32_t total = 0;
};
extern ExecutorResultCounter G_ExecutorResultCounter;

enum class Phase { kParsers, kExecutors };

struct Deployment {
  DeploymentReport identity;  // whose deployment it is, as its report says
  Json::Value resources;      // of the request
  Json::Value downloaded;     // one result item for each of them, in their order

  Json::Value summary{Json::objectValue};  // by snapshotId
  Phase phase = Phase::kParsers;
  int received = 0;                    // answers of parsers
  int expected = 0;                    // calls to parsers
  std::map<std::string, int> awaited;  // snapshotId to its calls that no parser has answered yet
  bool ended = false;
  std::optional<std::string> failure;  // what a step of it has thrown, which fails it as a whole
};

/// Held by whoever may still add to the deployment: the phase under way and every reply handler.
using SharedDeployment = std::shared_ptr<Deployment>;

/// Begins the parser and executor phases of `deployment`; until it has ended, later requests wait.
///
/// It ends through endDeployment, and is over then:
///   - when the last executor has answered, or none was to be called;
///   - when the last parser has answered and one of them has refused its resource;
///   - when its last holder has gone without either: a parser never answered, and its resources
///     fail; or a step has thrown, and all resources fail.
[[nodiscard]] SharedDeployment beginDeployment(Deployment&& deployment);

/// Runs one step of the deployment. If it throws, no further step runs, and the deployment fails as
/// a whole when its last holder has gone. Does not throw.
void runStep(Deployment& deployment, const std::function<void()>& step);

/// Shows those who look on what becomes of a deployment: its phase, or that none is under way.
void showProgress(const DeploymentReport& identity, const char* phase);
void showNoDeployment();

/// Ends a deployment: reports `details`, and if it has come to the executors tells them that the
/// batch is finished. The next request starts, from the loop, when the last holder has gone.
void endDeployment(Deployment& deployment, Json::Value&& details);

/// The snapshotIds of a request's resources, without empty ones.
Json::Value snapshotIdsOf(const Json::Value& resources);

/// What a report says of the entry `name` of the summary; nothing when the entry is no object.
using DetailOf = std::optional<Json::Value> (*)(const std::string& name, const Json::Value& entry);

/// The whole entry, with its name as "snapshotId": what is reported of the parser phase.
std::optional<Json::Value> wholeDetail(const std::string& name, const Json::Value& entry);

/// "code", "message", "success" and "snapshotId", null where the entry lacks one: what is reported
/// of the executor phase.
std::optional<Json::Value> finalDetail(const std::string& name, const Json::Value& entry);

/// The details of a report, in the order of the snapshotIds.
Json::Value collectDetails(const Json::Value& summary, DetailOf detailOf);

/// True when `resource` is an object whose "operate" is the integer `operate`.
inline bool hasOperate(const Json::Value& resource, Operate operate) {
  if (!resource.isObject()) return false;
  const Json::Value& value = resource["operate"];
  return value.isInt() && value.asInt() == operate;
}

}  // namespace jobm
