#include "filter.h"

#include <algorithm>
#include <array>
#include <functional>
#include <utility>

#include "lib/json_helper.h"

namespace gateway {
namespace {

using Ids = std::set<std::string>;
// `member` is what an object calls the value, "" elsewhere.
using Visitor = std::function<bool(const std::string& member, const Json::Value& value)>;

// Payloads lie in payloads as texts: order, content, package.
constexpr int kDeepest = 16;

std::string scalarText(const Json::Value& value) {
  if (value.isString() || value.isIntegral()) return value.asString();
  return "";
}

// Whether `value` is a text that is JSON, which `inner` then is.
bool isPayload(const Json::Value& value, Json::Value& inner) {
  const char* begin = nullptr;
  const char* end = nullptr;
  if (!value.isString() || !value.getString(&begin, &end) || begin == end) return false;
  return (*begin == '{' || *begin == '[') && jobm::json::parse({begin, end}, inner);
}

bool anyOf(const Json::Value& value, const Visitor& holds, const std::string& member = "",
           int depth = 0) {
  Json::Value inner;
  if (isPayload(value, inner)) return depth <= kDeepest && anyOf(inner, holds, member, depth + 1);
  if (holds(member, value)) return true;
  if (depth > kDeepest || !(value.isArray() || value.isObject())) return false;
  for (auto it = value.begin(); it != value.end(); ++it) {
    if (anyOf(*it, holds, it.name(), depth + 1)) return true;
  }
  return false;
}

// A snapshot's id is that of its resource, an "@" and a version.
bool isId(const Json::Value& value, const std::string& id) {
  const std::string text = scalarText(value);
  return text == id || (text.starts_with(id) && text[id.size()] == '@');
}

bool names(const Json::Value& value, const std::string& id) {
  return anyOf(value,
               [&](const std::string&, const Json::Value& inner) { return isId(inner, id); });
}

// A number is an id only where its member says so: codes, states and counts are numbers, too.
bool isOneOf(const Ids& ids, const std::string& member, const Json::Value& value) {
  constexpr std::array kMembers = {"jobId", "id", "deployId", "taskId", "snapshotId"};
  const std::string text = scalarText(value);
  const bool isNumber = text.find_first_not_of("0123456789") == text.npos;
  return ids.contains(text) && (!isNumber || std::ranges::find(kMembers, member) != kMembers.end());
}

// An object that speaks of the job by one of its own members, not further in: a list of orders
// speaks of many jobs.
bool isTheJobs(const Json::Value& value, const Ids& ids) {
  if (!value.isObject()) return false;
  for (auto it = value.begin(); it != value.end(); ++it) {
    if (isOneOf(ids, it.name(), *it)) return true;
  }
  return false;
}

void collectIds(const Json::Value& value, Ids& ids) {
  anyOf(value, [&](const std::string&, const Json::Value& inner) {
    if (!inner.isObject()) return false;
    for (const char* member : {"deployId", "taskId", "snapshotId", "jobId"}) {
      ids.insert(scalarText(inner[member]));
    }
    // An order is acknowledged by its own id.
    if (inner.isMember("ackCode")) ids.insert(scalarText(inner["id"]));
    ids.erase("");
    return false;
  });
}

}  // namespace

Filter::Filter(Wanted given) : wanted(std::move(given)) {
  if (!wanted.job.empty()) jobIds.insert(wanted.job);
}

bool Filter::isAboutJob(const Json::Value& arguments) {
  const auto isOfJob = [&](const std::string& member, const Json::Value& inner) {
    return isOneOf(jobIds, member, inner);
  };
  if (!anyOf(arguments, isOfJob)) return false;
  anyOf(arguments, [&](const std::string&, const Json::Value& inner) {
    if (isTheJobs(inner, jobIds)) collectIds(inner, jobIds);
    return false;
  });
  return true;
}

bool Filter::isOpen() const {
  return wanted.job.empty() && wanted.resource.empty() && wanted.executor.empty();
}

bool Filter::passes(const Record& record) {
  const auto isExecutor = [&](const End& end) {
    return end.executor == wanted.executor || end.name == wanted.executor;
  };
  return (wanted.job.empty() || isAboutJob(record.arguments)) &&
         (wanted.resource.empty() || names(record.arguments, wanted.resource)) &&
         (wanted.executor.empty() || isExecutor(record.from) || isExecutor(record.to) ||
          names(record.arguments, wanted.executor));
}

}  // namespace gateway
