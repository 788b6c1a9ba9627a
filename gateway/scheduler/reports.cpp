#include "reports.h"

#include "lib/json_helper.h"

namespace gateway {
namespace {

constexpr Json::ArrayIndex kSplitAt = 200;
constexpr int kDeployment = 0;

const Json::Value& member(const Json::Value& object, const char* key) {
  return object.isObject() ? object[key] : Json::Value::nullSingleton();
}

// The type that the result of `request` must carry: its own.
int expectedType(const Json::Value& message, const Json::Value& request) {
  const Json::Value& type = member(request, "deployType");
  return message.isMember("deployId") && type.isInt() ? type.asInt() : kDeployment;
}

// Copies what a detail says about success into a row.
void copyOutcome(const Json::Value& detail, Json::Value& row) {
  for (const char* key : {"success", "code", "message"}) row[key] = member(detail, key);
  // The answer to a reset says "detail" for what others call "message".
  if (row["message"].isNull()) row["message"] = member(detail, "detail");
}

}  // namespace

std::optional<Json::Value> ReportJoiner::add(const Json::Value& message) {
  const Key key{jobm::json::textOf(message, "deployId"), jobm::json::textOf(message, "taskId")};
  Json::Value& whole = partial[key];
  for (const Json::Value& detail : member(message, "details")) whole["details"].append(detail);
  whole["messages"] = whole.get("messages", 0).asInt() + 1;
  const Json::Value& last = member(message, "isLastReply");
  if (last.isBool() && !last.asBool()) return std::nullopt;

  whole["deployId"] = key.first;
  whole["taskId"] = key.second;
  whole["deployType"] = member(message, "deployType");
  if (!whole.isMember("details")) whole["details"] = Json::Value(Json::arrayValue);
  Json::Value result = std::move(whole);
  partial.erase(key);
  return result;
}

std::string reportFault(const Json::Value& message, const Json::Value& request) {
  if (!message.isObject()) return "not an object";
  for (const std::string& name : message.getMemberNames()) {
    const bool isId = name == "deployId" || name == "taskId";
    if (isId && (!message[name].isString() || message[name].asString().empty())) {
      return name + " is not a non-empty text";
    }
    if (!isId && name != "isLastReply" && name != "deployType" && name != "details") {
      return "unknown member " + name;
    }
  }
  const Json::Value& last = member(message, "isLastReply");
  const Json::Value& details = member(message, "details");
  if (!last.isBool()) return "isLastReply is not a truth value";
  const Json::Value& type = member(message, "deployType");
  if (!type.isInt() || type.asInt() != expectedType(message, request)) {
    return "deployType is not that of the request";
  }
  if (!details.isArray()) return "details is not a list";
  if (!last.asBool() && details.size() != kSplitAt) return "a first part without 200 details";
  return "";
}

Json::Value rowsOf(const Json::Value& request, const Json::Value& details) {
  std::map<std::string, const Json::Value*> unclaimed;  // snapshotId -> detail
  Json::Value strangers(Json::arrayValue);
  for (const Json::Value& detail : details) {
    const std::string id = jobm::json::textOf(detail, "snapshotId");
    if (id.empty() || !unclaimed.emplace(id, &detail).second) strangers.append(detail);
  }
  Json::Value rows(Json::arrayValue);
  for (const Json::Value& resource : member(request, "resources")) {
    Json::Value row(Json::objectValue);
    for (const char* key :
         {"resourceId", "resourceName", "resourceType", "operate", "snapshotId"}) {
      row[key] = member(resource, key);
    }
    const auto found = unclaimed.find(jobm::json::textOf(resource, "snapshotId"));
    if (found == unclaimed.end()) {
      row["success"] = row["operate"] == 1 ? Json::Value() : Json::Value(false);
      row["code"] = Json::Value();
      row["message"] = "no result";
    } else {
      copyOutcome(*found->second, row);
      unclaimed.erase(found);
    }
    rows.append(row);
  }
  for (const auto& [id, detail] : unclaimed) strangers.append(*detail);
  for (const Json::Value& stranger : strangers) {
    Json::Value row(Json::objectValue);
    row["snapshotId"] = member(stranger, "snapshotId");
    copyOutcome(stranger, row);
    rows.append(row);
  }
  return rows;
}

}  // namespace gateway
