#include "payload.h"

#include "lib/json_helper.h"

namespace gateway {
namespace {

std::string idsOf(const Json::Value& list) {
  std::string ids;
  for (const Json::Value& item : list) {
    const std::string id = jobm::json::textOf(item, "resourceId");
    if (id.empty()) return "";
    ids.append(ids.empty() ? "" : " ").append(id);
  }
  return ids;
}

}  // namespace

std::string payloadSummary(const std::string& payload) {
  Json::Value value;
  if (!jobm::json::parse(payload, value)) return payload;
  std::string known = value.isArray() ? idsOf(value) : jobm::json::textOf(value, "snapshotId");
  if (!known.empty()) return known;
  std::string text = jobm::json::compact(value);
  while (text.ends_with('\n')) text.pop_back();
  return text;
}

}  // namespace gateway
