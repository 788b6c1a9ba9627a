#include "answers.h"

#include "lib/json_helper.h"

namespace gateway {
namespace {

constexpr int kRefused = 400;

std::string messageFor(int code) {
  return code == 0 ? "success" : "refused with code " + std::to_string(code);
}

Json::Value perResourceData(const std::string& payload, const Misbehaviour* misbehaviour) {
  Json::Value resources;
  Json::Value data(Json::arrayValue);
  if (!jobm::json::parse(payload, resources) || !resources.isArray()) return data;
  for (const Json::Value& resource : resources) {
    const std::string id = jobm::json::textOf(resource, "resourceId");
    const bool fails = misbehaviour != nullptr && misbehaviour->kind == Misbehaviour::Kind::kCode &&
                       (misbehaviour->resourceId.empty() || misbehaviour->resourceId == id);
    Json::Value item(Json::objectValue);
    item["resourceId"] = id;
    item["code"] = fails ? misbehaviour->value : 0;
    item["message"] = messageFor(item["code"].asInt());
    data.append(item);
  }
  return data;
}

}  // namespace

std::string executorAnswer(const std::string& method, const std::string& payload,
                           const std::string& wrong, bool perResource,
                           const Misbehaviour* misbehaviour) {
  const bool forcedCode = misbehaviour != nullptr &&
                          misbehaviour->kind == Misbehaviour::Kind::kCode &&
                          misbehaviour->resourceId.empty();
  int code = forcedCode ? misbehaviour->value : 0;
  if (!wrong.empty()) code = kRefused;
  Json::Value answer(Json::objectValue);
  answer["code"] = code;
  answer["message"] = wrong.empty() ? messageFor(code) : wrong;
  answer["data"] =
      perResource && method == "deployJob" ? perResourceData(payload, misbehaviour) : Json::Value();
  return jobm::json::styled(answer);
}

}  // namespace gateway
