#include "subscriptions.h"

#include <gateway/log_macros.h>

#include <algorithm>
#include <cstdio>
#include <utility>

#include "common/mqtt_client.h"
#include "lib/file_text.h"
#include "lib/json_helper.h"

namespace gateway {

Subscriptions::Subscriptions(std::string file) : stateFile(std::move(file)) {
  std::string text;
  Json::Value state;
  if (stateFile.empty() || !jobm::readFile(stateFile, text)) return;
  if (!jobm::json::parse(text, state) || !state.isObject()) {
    LOGW("%s is damaged, no subscription is restored", stateFile.c_str());
    return;
  }
  for (const std::string& filter : state.getMemberNames()) {
    const Json::Value& wanted = state[filter];
    if (!wanted.isObject()) continue;
    for (const std::string& name : wanted.getMemberNames()) {
      if (wanted[name].isInt()) names[filter][name] = wanted[name].asInt();
    }
  }
}

void Subscriptions::add(const std::string& filter, const std::string& busName, int qos) {
  names[filter][busName] = qos;
  save();
}

bool Subscriptions::remove(const std::string& filter, const std::string& busName) {
  const auto found = names.find(filter);
  if (found == names.end() || found->second.erase(busName) == 0) return false;
  const bool last = found->second.empty();
  if (last) names.erase(found);
  save();
  return last;
}

int Subscriptions::qosOf(const std::string& filter) const {
  int best = 0;
  const auto found = names.find(filter);
  if (found == names.end()) return best;
  for (const auto& [name, qos] : found->second) best = std::max(best, qos);
  return best;
}

std::set<std::string> Subscriptions::subscribersOf(const std::string& topic) const {
  std::set<std::string> result;
  for (const auto& [filter, wanted] : names) {
    if (!topicMatches(filter, topic)) continue;
    for (const auto& [name, qos] : wanted) result.insert(name);
  }
  return result;
}

std::set<std::string> Subscriptions::filters() const {
  std::set<std::string> result;
  for (const auto& [filter, wanted] : names) result.insert(filter);
  return result;
}

void Subscriptions::save() const {
  if (stateFile.empty()) return;
  Json::Value state(Json::objectValue);
  for (const auto& [filter, wanted] : names) {
    for (const auto& [name, qos] : wanted) state[filter][name] = qos;
  }
  // Renamed into place, so that a bridge that is killed while writing leaves the old state.
  const std::string fresh = stateFile + ".new";
  if (!jobm::writeFile(fresh, jobm::json::styled(state)) ||
      std::rename(fresh.c_str(), stateFile.c_str()) != 0) {
    LOGE("%s can't be written", stateFile.c_str());
  }
}

}  // namespace gateway
