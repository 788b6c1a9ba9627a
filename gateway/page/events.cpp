#include "events.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "lib/json_helper.h"

namespace gateway {
namespace {

constexpr int kQuiet = 10;  // seconds
// A burst is told in few events.
constexpr std::chrono::milliseconds kBetween{50};
constexpr std::size_t kMostRows = 500;

std::string eventOf(const char* name, const std::string& json) {
  const std::string data = json.substr(0, json.find_last_not_of('\n') + 1);
  return std::string("event: ") + name + "\ndata: " + data + "\n\n";
}

}  // namespace

Events::Events(Feed& given, Selection wanted, std::string name)
    : feed(given), viewer(given), selection(std::move(wanted)), page(std::move(name)) {}

std::string Events::next() {
  if (!std::exchange(hasBegun, true)) return begin();
  const Feed::Extent extent = feed.waitBeyond(told, kQuiet);
  if (extent == told) return ":\n\n";
  std::string text;
  for (; told.orders < extent.orders; ++told.orders)
    text += eventOf("order", feed.order(told.orders));
  if (told.states != extent.states) text += eventOf("state", feed.state());
  told.states = extent.states;
  text += newRows(std::min(extent.records, told.records + kMostRows));
  std::this_thread::sleep_for(kBetween);
  return text.empty() ? ":\n\n" : text;
}

// How many records there are, or the numbers of those that are asked for.
std::string Events::begin() {
  Json::Value start(Json::objectValue);
  start["page"] = page;
  const std::size_t count = feed.records().size();
  if (selection.isOpen()) {
    start["count"] = Json::Value::UInt64{count};
  } else {
    start["numbers"] = Json::Value(Json::arrayValue);
    for (std::size_t number = 0; number < count; ++number) {
      Json::Value record;
      if (jobm::json::parse(feed.records().at(number), record) && selection.passes(record)) {
        start["numbers"].append(Json::Value::UInt64{number});
      }
    }
  }
  told.records = count;
  return "retry: 1000\n" + eventOf("start", jobm::json::compact(start));
}

std::string Events::newRows(std::size_t end) {
  Json::Value rows(Json::arrayValue);
  const KnownNames names = feed.executorNames();
  for (; told.records < end; ++told.records) {
    Json::Value record;
    if (jobm::json::parse(feed.records().at(told.records), record) && selection.passes(record)) {
      rows.append(rowOf(told.records, record, names));
    }
  }
  return rows.empty() ? "" : eventOf("rows", jobm::json::compact(rows));
}

}  // namespace gateway
