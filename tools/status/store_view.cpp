#include "store_view.h"

#include <gateway/config.h>

#include <cstdlib>
#include <memory>
#include <utility>

#include "lib/json_helper.h"
#include "wire/store_keys.h"

namespace gateway {
namespace {

constexpr int kTimeoutMs = 2000;
// More than may wait; slots that were used once stay.
constexpr int kMaxSlots = 1000;

struct FreeBuffer {
  void operator()(char* buffer) const { std::free(buffer); }  // the library allocates with malloc
};

bool isUnreadable(int result) {
#ifdef GATEWAY_CONFIG_UNREADABLE  // the header of a gateway's own library may know no such result
  return result == GATEWAY_CONFIG_UNREADABLE;
#else
  return false;
#endif
}

Json::Value parsed(const std::string& text) {
  Json::Value value;
  return jobm::json::parse(text, value) ? value : Json::Value();
}

Json::Value registrationOf(const Json::Value& stored) {
  const Json::Value nothing(Json::objectValue);
  const Json::Value& address = stored["executorAddr"].isObject() ? stored["executorAddr"] : nothing;
  Json::Value shown;
  shown["origin"] = "stored";
  shown["busName"] = address["name"];
  shown["path"] = address["path"];
  shown["interface"] = address["interface"];
  shown["watchTypes"] = stored["watchType"];
  shown["storeTypes"] = stored["storeType"];
  return shown;
}

}  // namespace

std::string StoreView::read(const std::string& key) {
  char* raw = nullptr;
  const int result = get_config(connection, key.c_str(), &raw, kTimeoutMs);
  const std::unique_ptr<char, FreeBuffer> value(raw);
  if (isUnreadable(result)) readable = false;
  return result == 0 && value ? value.get() : "";
}

Json::Value StoreView::registrations(const std::string& key) {
  const Json::Value stored = parsed(read(key));
  Json::Value shown(Json::objectValue);
  if (!stored.isObject()) return shown;
  for (const std::string& name : stored.getMemberNames()) {
    if (stored[name].isObject()) shown[name] = registrationOf(stored[name]);
  }
  return shown;
}

Json::Int64 StoreView::jobsOf(const std::string& executor) {
  const Json::Value jobs = parsed(read(executor));
  return jobs.isArray() ? Json::Int64{jobs.size()} : 0;
}

Json::Value StoreView::unreportedDeployments() {
  Json::Value list(Json::arrayValue);
  for (int slot = 0; slot < kMaxSlots; ++slot) {
    const std::string text = read(jobm::key::kDeploymentPrefix + std::to_string(slot));
    if (text.empty()) break;  // slots are counted up to the first that was never used
    const Json::Value entry = parsed(text);
    if (!entry.isObject()) continue;
    Json::Value shown;
    shown["deployId"] = entry["deployId"];
    shown["state"] = entry.isMember("messages") ? "reported" : "accepted";
    list.append(shown);
  }
  return list;
}

}  // namespace gateway
