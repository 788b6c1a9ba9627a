#include "filter.h"

#include <algorithm>
#include <functional>
#include <utility>

#include "lib/json_helper.h"

namespace gateway {
namespace {

using Ids = std::set<std::string>;
using Visitor = std::function<void(const Json::Value& value)>;

// Payloads lie in payloads as texts: order, content, package.
constexpr int kDeepest = 16;

std::string scalarText(const Json::Value& value) {
  if (value.isString() || value.isIntegral()) return value.asString();
  return "";
}

// `value` itself, or what its text says where that is JSON.
Json::Value opened(const Json::Value& value) {
  Json::Value inner;
  const std::string text = value.isString() ? value.asString() : "";
  const bool isJson = text.starts_with('{') || text.starts_with('[');
  return isJson && jobm::json::parse(text, inner) ? inner : value;
}

bool anyOf(const Json::Value& closed, const std::function<bool(const Json::Value&)>& holds,
           int depth = 0) {
  const Json::Value value = opened(closed);
  if (holds(value)) return true;
  if (depth > kDeepest || !(value.isArray() || value.isObject())) return false;
  return std::any_of(value.begin(), value.end(),
                     [&](const Json::Value& inner) { return anyOf(inner, holds, depth + 1); });
}

// A snapshot's id is that of its resource, an "@" and a version.
bool isId(const Json::Value& value, const std::string& id) {
  const std::string text = scalarText(value);
  return text == id || (text.starts_with(id) && text[id.size()] == '@');
}

bool names(const Json::Value& value, const std::string& id) {
  return anyOf(value, [&](const Json::Value& inner) { return isId(inner, id); });
}

bool hasOneOf(const Json::Value& value, const Ids& ids) {
  return anyOf(value, [&](const Json::Value& inner) { return ids.contains(scalarText(inner)); });
}

// An object that speaks of the job by one of its own members, not further in: a list of orders
// speaks of many jobs.
bool isTheJobs(const Json::Value& value, const Ids& ids) {
  return value.isObject() && std::any_of(value.begin(), value.end(), [&](const Json::Value& inner) {
           return ids.contains(scalarText(inner));
         });
}

void collectIds(const Json::Value& value, Ids& ids) {
  anyOf(value, [&](const Json::Value& inner) {
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
  if (!hasOneOf(arguments, jobIds)) return false;
  anyOf(arguments, [&](const Json::Value& inner) {
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
