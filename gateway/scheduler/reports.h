/// Deployment results as the gateway reports them: joining the messages of one result, and finding
/// the resources that its details speak of. Plain functions of JSON values; no thread of their own.
#pragma once

#include <json/value.h>

#include <map>
#include <optional>
#include <string>
#include <utility>

namespace gateway {

/// Joins results that came in more than one message.
class ReportJoiner {
 public:
  /// Takes one message. Returns the whole result once its last message is in: {"deployId",
  /// "taskId", "deployType", "details", "messages" (how many it took)}; nothing before that.
  std::optional<Json::Value> add(const Json::Value& message);

 private:
  using Key = std::pair<std::string, std::string>;  // deployId, taskId
  std::map<Key, Json::Value> partial;
};

/// What is wrong with one message of the result of the deployment request `request`, "" when
/// nothing is. Null stands for a request that is not known; a message without ids says that there
/// was none to be read, and is always one of a deployment.
std::string reportFault(const Json::Value& message, const Json::Value& request);

/// One row per resource of the deployment request `request`, in its order: {"resourceId",
/// "resourceName", "resourceType", "operate", "snapshotId", "success", "code", "message"}. A
/// resource that `details` does not speak of has the message "no result" and "success" false, or
/// null if it was to be deleted: only executors report deletions, and not every type has one. Of
/// two details for one snapshot the first counts. Details that belong to no resource follow as rows
/// of their own.
Json::Value rowsOf(const Json::Value& request, const Json::Value& details);

}  // namespace gateway
