#include "feed.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <string_view>
#include <utility>

#include "common/options.h"
#include "job/outcome.h"
#include "lib/json_helper.h"

namespace gateway {
namespace {

using Clock = std::chrono::steady_clock;

// A page that is loaded again, or has lost its connection, is back by then and has missed nothing.
constexpr std::chrono::seconds kLinger{15};
constexpr std::chrono::milliseconds kTurn{100};
constexpr const char* kPlayed = "played: ";  // a part and its fault; by scripts/stay.sh
constexpr const char* kOrderTopic = "local/scheduler/result/";

// Adds what gateway-job would say of an order and of each of its resources.
void judge(Json::Value& event) {
  event["succeeded"] = succeeded(event);
  Json::Value one;
  for (Json::Value& row : event["resources"]) {
    one["resources"][0] = row;
    row["succeeded"] = succeeded(one);
  }
}

// The time of a record's line; in a text inside the marks would have backslashes.
std::string timeOf(const std::string& line) {
  constexpr std::string_view kMark = "\"time\":\"";
  const std::size_t begin = line.rfind(kMark);
  return begin == std::string::npos ? "" : line.substr(begin + kMark.size(), 27);
}

}  // namespace

Feed::Viewer::Viewer(Feed& given) : feed(given) {
  const std::lock_guard guard(feed.lock);
  ++feed.viewers;
  feed.changed.notify_all();
}

Feed::Viewer::~Viewer() {
  const std::lock_guard guard(feed.lock);
  --feed.viewers;
}

Feed::Feed(const std::string& home)
    : seen(home + "/page.records"),
      takenUntil(seen.size() == 0 ? "" : timeOf(seen.at(seen.size() - 1))),
      traceStart(std::strtod(environment("GATEWAY_TRACE_START").c_str(), nullptr)),
      notes(environment("GATEWAY_TRACE", home + "/trace")),
      messages(home + "/messages"),
      noteTime(traceStart),
      extent{.records = seen.size()},
      thread([this] { run(); }) {
  thread.detach();
}

Feed::Extent Feed::waitBeyond(const Extent& known, int seconds) const {
  std::unique_lock guard(lock);
  changed.wait_for(guard, std::chrono::seconds(seconds), [&] { return extent != known; });
  return extent;
}

std::string Feed::order(std::size_t number) const {
  const std::lock_guard guard(lock);
  return number < orders.size() ? orders[number] : "";
}

std::string Feed::state() const {
  const std::lock_guard guard(lock);
  Json::Value whole(Json::objectValue);
  whole["status"] = newestState;
  whole["faults"] = played;
  return jobm::json::compact(whole);
}

KnownNames Feed::executorNames() const {
  const std::lock_guard guard(lock);
  KnownNames names;
  for (const char* list : {"executors", "parsers"}) {
    for (const Json::Value& one : newestState[list]) {
      names[jobm::json::textOf(one, "busName")] = jobm::json::textOf(one, "name");
    }
  }
  return names;
}

void Feed::run() {
  for (;;) {
    {
      std::unique_lock guard(lock);
      changed.wait(guard, [&] { return viewers > 0; });
    }
    takeNotes(false);
    addGathered();
    watch();
  }
}

void Feed::watch() {
  LineSource trace({"gateway-trace", "--json"});
  LineSource status({"gateway-status", "--json", "--watch"});
  auto seenAt = Clock::now();
  while (Clock::now() - seenAt < kLinger) {
    if (isWanted()) seenAt = Clock::now();
    gather(trace, status);
    takeNotes(trace.descriptor() >= 0);
    addGathered();
    takeOrders();
  }
}

// What comes in one turn.
void Feed::gather(LineSource& trace, LineSource& status) {
  const auto end = Clock::now() + kTurn;
  for (auto left = kTurn; left.count() > 0;
       left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now())) {
    std::array<pollfd, 2> ready{
        {{trace.descriptor(), POLLIN, 0}, {status.descriptor(), POLLIN, 0}}};
    poll(ready.data(), ready.size(), static_cast<int>(left.count()));
    if (ready[0].fd < 0 || ready[0].revents != 0) {
      for (std::string& line : trace.lines()) gathered.emplace_back(timeOf(line), std::move(line));
    }
    if (ready[1].fd < 0 || ready[1].revents != 0) {
      for (const std::string& line : status.lines()) takeState(line);
    }
  }
}

// In the order in which it happened: the parts' own trace is read after the bus.
void Feed::addGathered() {
  if (gathered.empty()) return;
  std::ranges::stable_sort(gathered, {}, [](const auto& record) { return record.first; });
  for (const auto& [time, record] : gathered) seen.add(record);
  gathered.clear();
  const std::lock_guard guard(lock);
  extent.records = seen.size();
  changed.notify_all();
}

bool Feed::isWanted() {
  const std::lock_guard guard(lock);
  return viewers > 0;
}

void Feed::takeNotes(bool busIsWatched) {
  for (const std::string& line : notes.lines()) {
    const auto note = noteOf(line, traceStart, &noteTime);
    if (line.starts_with(kPlayed)) takePlayed(line.substr(std::string_view(kPlayed).size()));
    if (!note || (busIsWatched && isOnTheBus(*note))) continue;
    std::string text = jobm::json::compact(*note);
    while (text.ends_with('\n')) text.pop_back();
    const std::string time = timeOf(text);
    if (time > takenUntil) gathered.emplace_back(time, text);
  }
}

void Feed::takeOrders() {
  for (const std::string& line : messages.lines()) {
    Json::Value message;
    Json::Value event;
    if (line.find(kOrderTopic) == std::string::npos || !jobm::json::parse(line, message) ||
        !jobm::json::textOf(message, "topic").starts_with(kOrderTopic) ||
        !jobm::json::parse(jobm::json::textOf(message, "payload"), event)) {
      continue;
    }
    event["time"] = message["time"];
    judge(event);
    const std::lock_guard guard(lock);
    orders.push_back(jobm::json::compact(event));
    extent.orders = orders.size();
    changed.notify_all();
  }
}

void Feed::takePlayed(const std::string& words) {
  const std::size_t gap = words.find(' ');
  const std::string fault = words.substr(std::min(gap, words.size() - 1) + 1);
  const std::lock_guard guard(lock);
  if (words.starts_with("all ")) played.clear();
  // What was killed comes back.
  if (fault != "kill") played[words.substr(0, gap)] = fault;
  ++extent.states;
  changed.notify_all();
}

void Feed::takeState(const std::string& line) {
  const std::lock_guard guard(lock);
  if (!jobm::json::parse(line, newestState)) return;
  ++extent.states;
  changed.notify_all();
}

}  // namespace gateway
