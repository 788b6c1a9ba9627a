#include "feed.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "common/options.h"
#include "job/outcome.h"
#include "lib/json_helper.h"
#include "neighbour/child.h"

namespace gateway {
namespace {

using Clock = std::chrono::steady_clock;
using jobm::json::textOf;

// A page that is loaded again, or has lost its connection, is back by then and has missed nothing.
constexpr std::chrono::seconds kLinger{15};
// What comes together is read together, and put in the order in which it happened.
constexpr std::chrono::milliseconds kTogether{100};
constexpr std::chrono::seconds kPause{1};
constexpr std::size_t kMostRecords = 100'000;
constexpr std::string_view kPlayed = "played: ";  // a part and its fault; by scripts/stay.sh
constexpr const char* kOrderTopic = "local/scheduler/result/";

// A program that prints into a file; started again when it has ended, but not at once.
class Printer {
 public:
  Printer(std::vector<std::string> words, std::string path)
      : command(std::move(words)), file(std::move(path)) {
    partLines();
  }

  // Returns when to call this again at the latest.
  Clock::time_point keep() {
    if (child && child->end(0)) {
      child.reset();
      startAt = Clock::now() + kPause;
      partLines();
    }
    if (!child && Clock::now() >= startAt) child = std::make_unique<Child>(command, file);
    return child ? Clock::time_point::max() : startAt;
  }

 private:
  // An empty line between the lines of two processes, one of which may have ended in a line.
  void partLines() const { std::ofstream(file, std::ios::app) << "\n\n"; }

  const std::vector<std::string> command;
  const std::string file;
  std::unique_ptr<Child> child;
  Clock::time_point startAt;
};

// Until one of the descriptors has something to tell, which is then forgotten.
void awaitAny(const std::array<int, 2>& descriptors, Clock::time_point until) {
  std::array<pollfd, 2> ready{{{descriptors[0], POLLIN, 0}, {descriptors[1], POLLIN, 0}}};
  const auto left = std::max(until - Clock::now(), Clock::duration{0});
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  poll(ready.data(), ready.size(), until == Clock::time_point::max() ? -1 : static_cast<int>(wait));
  std::this_thread::sleep_for(kTogether);
  std::array<char, 4096> seen;
  for (const int descriptor : descriptors) {
    while (read(descriptor, seen.data(), seen.size()) > 0) {
    }
  }
}

// Adds what gateway-job would say of an order that is over, and of each of its resources.
void judge(Json::Value& event) {
  if (!isLastWord(event)) return;
  for (Json::Value& row : event["resources"]) {
    if (!row.isObject()) return;
    row["succeeded"] = isSuccess(row);
  }
  event["succeeded"] = succeeded(event);
}

}  // namespace

Tail::Tail(std::string given) : path(std::move(given)) {}

std::vector<std::string> Tail::lines() {
  if (!in.is_open()) in.open(path);
  std::vector<std::string> whole;
  in.clear();
  for (std::string part; std::getline(in, part); begun.clear()) {
    begun += part;
    if (in.eof()) break;
    whole.push_back(std::move(begun));
  }
  return whole;
}

Feed::Viewer::Viewer(Feed& given) : feed(given) {
  const std::lock_guard guard(feed.lock);
  ++feed.viewers;
  feed.changed.notify_all();
}

Feed::Viewer::~Viewer() {
  const std::lock_guard guard(feed.lock);
  --feed.viewers;
  feed.leftAt = Clock::now();
  eventfd_write(feed.bell.number, 1);
}

Feed::Feed(std::string where)
    : home(std::move(where)),
      traceStart(std::strtod(environment("GATEWAY_TRACE_START").c_str(), nullptr)),
      bell(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      bus(home + "/page.trace"),
      notes(home + "/trace"),
      messages(home + "/messages"),
      noteTime(traceStart),
      thread([this] { run(); }) {
  thread.detach();
}

Feed::Extent Feed::waitBeyond(const Extent& known, int seconds) const {
  std::unique_lock guard(lock);
  changed.wait_for(guard, std::chrono::seconds(seconds), [&] { return extent != known; });
  return extent;
}

std::string Feed::record(std::size_t number) const {
  const std::lock_guard guard(lock);
  const std::size_t oldest = extent.records - records.size();
  return number >= oldest && number < extent.records ? records[number - oldest] : "";
}

std::size_t Feed::oldestRecord() const {
  const std::lock_guard guard(lock);
  return extent.records - records.size();
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
      names[textOf(one, "busName")] = textOf(one, "name");
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
    watch();
  }
}

void Feed::watch() {
  const Descriptor folder(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  // A program that ends closes its file.
  inotify_add_watch(folder.number, home.c_str(), IN_MODIFY | IN_CLOSE_WRITE);
  const std::string stateFile = home + "/page.status";
  std::ofstream(stateFile, std::ios::trunc).close();
  Tail states(stateFile);
  Printer trace({"gateway-trace", "--json"}, home + "/page.trace");
  Printer status({"gateway-status", "--json", "--watch"}, stateFile);
  for (auto until = wantedUntil(); until > Clock::now(); until = wantedUntil()) {
    until = std::min({until, trace.keep(), status.keep()});
    // Before the records, so that those of the same messages are there, too.
    const std::vector<std::string> noted = notes.lines();
    takeRecords();
    takeNotes(noted);
    addGathered();
    takeOrders();
    for (const std::string& line : states.lines()) takeState(line);
    awaitAny({folder.number, bell.number}, gathered.empty() ? until : Clock::now());
  }
}

Feed::Clock::time_point Feed::wantedUntil() const {
  const std::lock_guard guard(lock);
  return viewers > 0 ? Clock::time_point::max() : leftAt + kLinger;
}

void Feed::takeRecords() {
  for (const std::string& line : bus.lines()) {
    Json::Value record;
    if (line.empty() && !watched.back().first.empty()) watched.emplace_back();
    // Its errors stand there, too.
    if (!parsedObject(line, record) || !record["arguments"].isArray()) continue;
    const std::string time = textOf(record, "time");
    auto& [from, to] = watched.back();
    if (from.empty()) from = time;
    to = time;
    gathered.emplace_back(time, line);
  }
}

// Whether gateway-trace has told of every message of that time.
bool Feed::isWatched(const std::string& time) const {
  return std::ranges::any_of(watched, [&](const auto& span) {
    const auto& [from, to] = span;
    return !from.empty() && from <= time && (&span == &watched.back() || time <= to);
  });
}

void Feed::takeNotes(const std::vector<std::string>& lines) {
  for (const std::string& line : lines) {
    if (line.starts_with(kPlayed)) takePlayed(line.substr(kPlayed.size()));
    const auto note = noteOf(line, traceStart, &noteTime);
    if (!note) continue;
    const std::string time = textOf(*note, "time");
    if (isOnTheBus(*note) && isWatched(time)) continue;
    gathered.emplace_back(time, jobm::json::compact(*note));
  }
}

// In the order in which it happened: of two messages that come one after the other, the second may
// be read in an earlier turn.
void Feed::addGathered() {
  const auto timeOf = [](const auto& record) -> const std::string& { return record.first; };
  std::ranges::stable_sort(gathered, {}, timeOf);
  const auto end = std::ranges::upper_bound(gathered, settled, {}, timeOf);
  const std::lock_guard guard(lock);
  for (auto at = gathered.begin(); at != end; ++at, ++extent.records) {
    records.push_back(std::move(at->second));
    if (records.size() > kMostRecords) records.pop_front();
  }
  gathered.erase(gathered.begin(), end);
  settled = gathered.empty() ? "" : gathered.back().first;
  changed.notify_all();
}

void Feed::takeOrders() {
  for (const std::string& line : messages.lines()) {
    Json::Value message;
    Json::Value event;
    if (line.find(kOrderTopic) == std::string::npos || !parsedObject(line, message) ||
        !textOf(message, "topic").starts_with(kOrderTopic) ||
        !parsedObject(textOf(message, "payload"), event)) {
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
  const std::size_t gap = std::min(words.find(' '), words.size());
  const std::string part = words.substr(0, gap);
  const std::string fault = words.substr(std::min(gap + 1, words.size()));
  const std::lock_guard guard(lock);
  if (part == "all") played.clear();
  played.removeMember("all");
  // What was killed comes back.
  if (fault != "kill") played[part] = fault;
  ++extent.states;
  changed.notify_all();
}

void Feed::takeState(const std::string& line) {
  Json::Value state;
  if (!parsedObject(line, state)) return;
  const std::lock_guard guard(lock);
  newestState = std::move(state);
  ++extent.states;
  changed.notify_all();
}

}  // namespace gateway
