#include "executor_api/stored_jobs.h"

#include <algorithm>
#include <deque>
#include <unordered_map>
#include <vector>

#include "dbus_process_call/dbus_process_call.h"
#include "executor_api/registry.h"
#include "lib/json_helper.h"
#include "sync_job_status/sync_job_status.h"
#include "wire/codes.h"

namespace jobm {
namespace {

std::string idOf(const Json::Value& item) { return json::textOf(item, "resourceId"); }

// For each new item in order: the first element of the same resource goes, the item is appended.
// The index holds, by resource, where its elements are, first one first.
Json::Value withAdded(const Json::Value& list, const Json::Value& items) {
  std::vector<const Json::Value*> kept;
  std::unordered_map<std::string, std::deque<std::size_t>> positions;
  const auto append = [&](const Json::Value& item, const std::string& id) {
    positions[id].push_back(kept.size());
    kept.push_back(&item);
  };
  for (const Json::Value& item : list) append(item, idOf(item));
  for (const Json::Value& item : items) {
    const std::string id = idOf(item);
    auto& same = positions[id];
    if (!same.empty()) {
      kept[same.front()] = nullptr;
      same.pop_front();
    }
    append(item, id);
  }
  Json::Value result(Json::arrayValue);
  for (const Json::Value* item : kept) {
    if (item != nullptr) result.append(*item);
  }
  return result;
}

// Each match erases position i once, so a second match also erases the element that moved into i.
// Positions are visited from the last to the first; `behind` holds what is left behind the present
// one, nearest last.
Json::Value withDeleted(const Json::Value& list, const Json::Value& items) {
  if (list.isNull()) return list;
  std::unordered_map<std::string, std::size_t> given;
  for (const Json::Value& item : items) ++given[idOf(item)];
  std::vector<const Json::Value*> behind;
  for (Json::ArrayIndex i = list.size(); i-- > 0;) {
    const auto match = given.find(idOf(list[i]));
    behind.push_back(&list[i]);
    const std::size_t removals = match != given.end() ? match->second : 0;
    for (std::size_t n = 0; n < removals && !behind.empty(); ++n) behind.pop_back();
  }
  Json::Value result(Json::arrayValue);
  std::reverse(behind.begin(), behind.end());
  for (const Json::Value* item : behind) result.append(*item);
  return result;
}

}  // namespace

int updateStoredJobs(const std::string& executorName, const Json::Value& items, int ackCode) {
  const ConfigRead read = readConfig(executorName);
  // An emptied list needs nothing of the old one; any other edit would lose what it could not read.
  if (read.state == ConfigState::kUnreadable && ackCode != kResetJobs) return kStoreUnreadable;
  Json::Value list;
  const bool isList = json::parse(read.value, list) && list.isArray();
  if (!isList) list = Json::Value();
  if (ackCode == kAddJob) {
    list = withAdded(list, items);
  } else if (isDeletion(ackCode)) {
    list = withDeleted(list, items);
  } else if (ackCode == kResetJobs) {
    list = Json::Value(Json::arrayValue);
  }
  return setForeignConfig(executorName, json::styled(list));
}

}  // namespace jobm
