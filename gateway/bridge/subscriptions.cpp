#include "subscriptions.h"

#include <algorithm>

#include "common/mqtt_client.h"

namespace gateway {
namespace {

constexpr const char* kSelect = "SELECT filter, name, qos FROM subscription";
constexpr const char* kInsert =
    "INSERT OR REPLACE INTO subscription(filter, name, qos) VALUES(?1, ?2, ?3)";
constexpr const char* kDelete = "DELETE FROM subscription WHERE filter = ?1 AND name = ?2";

}  // namespace

void Subscriptions::restore(const Store& store) {
  insertion = store.prepare(kInsert);
  deletion = store.prepare(kDelete);
  Statement all = store.prepare(kSelect);
  while (all.step()) names[all.text(0)][all.text(1)] = static_cast<int>(all.number(2));
}

bool Subscriptions::add(const std::string& filter, const std::string& busName, int qos) {
  if (!insertion.bind(1, filter).bind(2, busName).bind(3, qos).run()) return false;
  names[filter][busName] = qos;
  return true;
}

bool Subscriptions::remove(const std::string& filter, const std::string& busName) {
  const auto found = names.find(filter);
  if (found == names.end() || found->second.erase(busName) == 0) return false;
  deletion.bind(1, filter).bind(2, busName).run();
  const bool last = found->second.empty();
  if (last) names.erase(found);
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

}  // namespace gateway
