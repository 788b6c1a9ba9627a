/// What the phases of one deployment share. Held by whoever still has to answer for it; listening
/// thread only.
#pragma once

#include <json/value.h>

#include <memory>
#include <string>

#include "executor_api/deployment_results.h"

namespace jobm {

/// The codes of a resource that could not be deployed.
enum SceneCode : int {
  kKeysMissing = 101201,
  kNoDirectory = 101202,
  kDownloadFail = 101208,
  kChecksumFail = 101209,
};

/// What is to be done with a resource.
enum Operate : int { kOnAdd = 0, kOnDelete = 1 };

struct Deployment {
  std::string deployId;
  std::string taskId;
  Json::Value resources;   // of the request
  Json::Value downloaded;  // one result item for each of them, in their order
  SharedResults summary;   // by snapshotId
  int received = 0;        // answers of parsers
  int expected = 0;        // calls to parsers
};
using SharedDeployment = std::shared_ptr<Deployment>;

/// True when `resource` is an object whose "operate" is the integer `operate`.
inline bool hasOperate(const Json::Value& resource, Operate operate) {
  if (!resource.isObject()) return false;
  const Json::Value& value = resource["operate"];
  return value.isInt() && value.asInt() == operate;
}

}  // namespace jobm
