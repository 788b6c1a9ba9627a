#include "feed.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
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
constexpr std::size_t kMostRecords = 100'000;
constexpr std::string_view kPlayed = "played: ";  // a part and its fault; by scripts/stay.sh
constexpr const char* kTrace = "/page.trace";
constexpr const char* kStates = "/page.status";
constexpr const char* kOrderTopic = "local/scheduler/result/";

// Runs a program, and again a second after it has ended. An empty line parts what they print: one
// may have ended in a line.
std::vector<std::string> runAgain(const std::string& program) {
  return {"bash", "-c",
          "while setpriv --pdeathsig KILL " + program + "; echo; echo; do sleep 1; done"};
}

// Tells when a file in a folder has been written to.
class FolderWatch {
 public:
  explicit FolderWatch(const std::string& path) : events(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
    inotify_add_watch(events, path.c_str(), IN_MODIFY);
  }
  ~FolderWatch() { close(events); }
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  void await(Clock::time_point until) const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - Clock::now());
    const int forever = events < 0 ? 1000 : -1;  // the system has none for us: look now and then
    const bool isForever = until == Clock::time_point::max();
    pollfd ready{events, POLLIN, 0};
    poll(&ready, 1, isForever ? forever : std::max(static_cast<int>(left.count()), 0));
    std::this_thread::sleep_for(kTogether);
    std::array<char, 4096> seen;
    while (read(events, seen.data(), seen.size()) > 0) {
    }
  }

 private:
  const int events;
};

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
  // Wakes the feed's thread.
  std::ofstream(feed.home + kStates, std::ios::app) << '\n';
}

Feed::Feed(std::string where)
    : home(std::move(where)),
      traceStart(std::strtod(environment("GATEWAY_TRACE_START").c_str(), nullptr)),
      bus(home + kTrace),
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
  for (;; watch()) {
    std::unique_lock guard(lock);
    changed.wait(guard, [&] { return viewers > 0; });
  }
}

void Feed::watch() {
  const FolderWatch folder(home);
  std::ofstream(home + kStates, std::ios::trunc).close();
  Tail states(home + kStates);
  std::ofstream(home + kTrace, std::ios::app) << "\n\n";
  const Child trace(runAgain("gateway-trace --json"), home + kTrace);
  const Child status(runAgain("gateway-status --json --watch"), home + kStates);
  for (auto until = wantedUntil(); until > Clock::now(); until = wantedUntil()) {
    takeTurn(states);
    folder.await(gathered.empty() && heard.empty() ? until : Clock::now());
  }
}

Feed::Clock::time_point Feed::wantedUntil() const {
  const std::lock_guard guard(lock);
  return viewers > 0 ? Clock::time_point::max() : leftAt + kLinger;
}

void Feed::takeTurn(Tail& states) {
  // Before the records, so that those of the same messages are there, too.
  const std::vector<std::string> noted = notes.lines();
  const std::lock_guard guard(lock);
  takeRecords();
  takeNotes(noted);
  addGathered();
  takeOrders();
  for (const std::string& line : states.lines()) takeState(line);
  changed.notify_all();
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
  for (auto at = gathered.begin(); at != end; ++at, ++extent.records) {
    records.push_back(std::move(at->second));
    if (records.size() > kMostRecords) records.pop_front();
  }
  gathered.erase(gathered.begin(), end);
  settled = gathered.empty() ? "" : gathered.back().first;
}

void Feed::takeOrders() {
  // With the messages that came before them, which stay for a turn, too.
  for (std::string& event : std::exchange(heard, {})) orders.push_back(std::move(event));
  extent.orders = orders.size();
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
    heard.push_back(jobm::json::compact(event));
  }
}

void Feed::takePlayed(const std::string& words) {
  const std::size_t gap = std::min(words.find(' '), words.size());
  const std::string part = words.substr(0, gap);
  const std::string fault = words.substr(std::min(gap + 1, words.size()));
  if (part == "all") played.clear();
  played.removeMember("all");
  // What was killed comes back.
  if (fault != "kill") played[part] = fault;
  ++extent.states;
}

void Feed::takeState(const std::string& line) {
  Json::Value state;
  if (!parsedObject(line, state)) return;
  newestState = std::move(state);
  ++extent.states;
}

}  // namespace gateway
