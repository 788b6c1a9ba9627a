#include "sight.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <sstream>
#include <utility>

#include "lib/json_helper.h"
#include "trace/record.h"

namespace gateway {
namespace {

using jobm::json::textOf;

constexpr const char* kNote = "note";
constexpr const char* kService = "task-dispatcher";
constexpr std::array kParts = {"gateway-scheduler", "gateway-web"};
constexpr std::size_t kLongestText = 300;

bool isNote(const Json::Value& record) { return record["kind"] == kNote; }

std::string universalOf(double seconds) {
  const std::chrono::nanoseconds since(static_cast<std::int64_t>(seconds * 1e9));
  return universalTime(decltype(Record::time)(since));
}

End endOf(const Json::Value& record, const std::string& side, const KnownNames& names) {
  const std::string name = textOf(record, side.c_str());
  if (isNote(record)) return {name, name, name};
  std::string executor = textOf(record, (side + "Executor").c_str());
  const auto known = names.find(name);
  if (executor.empty() && known != names.end()) executor = known->second;
  return {textOf(record, (side + "Address").c_str()), name, executor};
}

// A note names ids in the middle of its text and in paths. Which of its numbers are ids it does not
// say.
Json::Value wordsOf(const std::string& text) {
  Json::Value words(Json::arrayValue);
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find_first_of(" ,:/", begin), text.size());
    const std::string word = text.substr(begin, end - begin);
    const bool isNumber = word.find_first_not_of("0123456789") == std::string::npos;
    Json::Value id(Json::objectValue);
    id["id"] = word;
    if (!word.empty()) words.append(isNumber ? id : Json::Value(word));
    begin = end + 1;
  }
  return words;
}

// The record that gateway-trace made the JSON of, as far as people are shown it.
Record recordOf(const Json::Value& json, const KnownNames& names) {
  Record record;
  const std::string kind = textOf(json, "kind");
  if (kind == "answer") record.kind = Record::Kind::kAnswer;
  if (kind == "error") record.kind = Record::Kind::kError;
  if (kind == "signal") record.kind = Record::Kind::kSignal;
  if (kind == "unanswered") record.kind = Record::Kind::kUnanswered;
  record.from = endOf(json, "from", names);
  record.to = endOf(json, "to", names);
  record.member = textOf(json, "member");
  record.error = textOf(json, "error");
  record.call = textOf(json, "call");
  record.arguments = isNote(json) ? wordsOf(textOf(json, "text")) : json["arguments"];
  if (json["took"].isDouble()) record.took = json["took"].asDouble();
  return record;
}

// What is cut is cut between two characters.
std::string clipped(std::string text) {
  if (text.size() <= kLongestText) return text;
  std::size_t end = kLongestText;
  while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
  return text.substr(0, end) + " ...";
}

bool isBadNote(const std::string& text) {
  constexpr std::array kBad = {"FAULT", "has ended", "has left", "can not be"};
  const std::size_t status = text.starts_with("GET ") ? text.rfind(": ") : std::string::npos;
  return text == "disconnected" ||
         (status != std::string::npos && text.compare(status + 2, 1, "4") >= 0) ||
         std::ranges::any_of(
             kBad, [&](const char* word) { return text.find(word) != std::string::npos; });
}

bool isFailure(const Json::Value& record) {
  const std::string kind = textOf(record, "kind");
  if (kind == kNote) return isBadNote(textOf(record, "text"));
  return kind == "error" || kind == "unanswered" || record.get("code", 0) != 0;
}

bool isReply(const Json::Value& record) {
  const std::string kind = textOf(record, "kind");
  return kind == "answer" || kind == "error" || kind == "unanswered";
}

}  // namespace

bool parsedObject(std::string_view text, Json::Value& value) {
  return jobm::json::parse(text, value) && value.isObject();
}

std::optional<Json::Value> noteOf(const std::string& line, double start, double* time) {
  std::istringstream words(line);
  double seconds = 0;
  std::string from;
  std::string arrow;
  std::string to;
  Json::Value note(Json::objectValue);
  note["kind"] = kNote;
  if (words >> seconds >> from >> arrow >> to && arrow == "->") {
    *time = start + seconds;
    note["from"] = from;
    note["to"] = to;
    std::string text;
    std::getline(words >> std::ws, text);
    note["text"] = text;
  } else {
    if (line.find_first_not_of(' ') == std::string::npos) return {};
    note["text"] = line;
  }
  note["time"] = universalOf(*time);
  return note;
}

bool isOnTheBus(const Json::Value& note) {
  const std::string from = textOf(note, "from");
  const std::string to = textOf(note, "to");
  const auto isPart = [&](const char* part) { return from == part || to == part; };
  return (isPart(kService) || isPart("iot.job.manager")) && !isPart(kParts[0]) &&
         !isPart(kParts[1]);
}

Json::Value rowOf(std::size_t number, const Json::Value& json, const KnownNames& names) {
  const Record record = recordOf(json, names);
  Json::Value row(Json::objectValue);
  row["n"] = Json::Value::UInt64{number};
  row["time"] = json["time"];
  row["kind"] = json["kind"];
  row["member"] = record.member;
  row["from"] = nameOf(record.from);
  row["to"] = nameOf(record.to);
  row["text"] = clipped(isNote(json) ? textOf(json, "text") : whatOf(record));
  row["failed"] = isFailure(json);
  return row;
}

std::string phaseOf(const Json::Value& record) {
  const std::string what = textOf(record, isNote(record) ? "text" : "member");
  if (what.starts_with("GET ")) return "downloads";
  if (what.starts_with("deployConfig")) return "parsers";
  const bool isCall = what.starts_with("deployJob") || what.starts_with("deleteJob") ||
                      what.starts_with("resetJobs");
  return isCall ? "executors" : "";
}

Selection::Selection(const Wanted& wanted, bool failures)
    : filter(wanted), onlyFailures(failures) {}

bool Selection::isOpen() const { return filter.isOpen() && !onlyFailures; }

void Selection::learn(Json::Value order) {
  // An order is acknowledged by this.
  order["ackCode"] = Json::Value();
  order["id"] = order["ackId"];
  Record record;
  record.arguments[0] = std::move(order);
  filter.passes(record);
}

bool Selection::isAbout(const Json::Value& record) {
  if (filter.isOpen()) return true;
  const std::string call = textOf(record, "call");
  if (isReply(record)) return calls.contains(call);
  if (!filter.passes(recordOf(record, names))) return false;
  if (!call.empty()) calls.insert(call);
  return true;
}

bool Selection::passes(const Json::Value& record) {
  return isAbout(record) && (!onlyFailures || isFailure(record));
}

}  // namespace gateway
