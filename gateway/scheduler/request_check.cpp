#include "request_check.h"

#include <functional>
#include <map>

#include "lib/json_helper.h"

namespace gateway {
namespace {

// Microseconds since the epoch have 16 digits from 2001 to 2286.
constexpr std::uint64_t kFirstMicrosecond = 1'000'000'000'000'000;
constexpr std::uint64_t kLastMicrosecond = 9'999'999'999'999'999;

std::string envelopeFault(const Json::Value& request) {
  if (!request.isObject() || request.size() != 3) return "not an envelope of three members";
  const Json::Value& id = request["id"];
  if (!id.isUInt64() || id.asUInt64() < kFirstMicrosecond || id.asUInt64() > kLastMicrosecond) {
    return "id is not a time in microseconds";
  }
  if (!request["attrs"].isArray()) return "attrs is not a list";
  if (!request["reply"].isBool() || request["reply"].asBool()) return "reply is not false";
  return "";
}

Json::Value runnerWithoutTags(const std::string& address) {
  Json::Value runner(Json::objectValue);
  runner["type"] = 0;
  runner["cpu"] = 4;
  runner["memory"] = 1000000000;
  runner["tenant"] = "TV_RN";
  runner["runnerGroup"] = "tarnvale.runner.group";
  runner["address"] = address;
  runner["addressType"] = 1;
  runner["heartRate"] = 10000;
  runner["linkType"] = 0;
  runner["executor"] = "[ConfigManager]";
  runner["sdkVersion"] = "1.1";
  return runner;
}

std::string runnerFault(const Json::Value& attrs, const std::string& address) {
  if (attrs.size() != 1 || !attrs[0].isObject()) return "attrs is not one runner";
  const Json::Value& runner = attrs[0];
  const Json::Value expected = runnerWithoutTags(address);
  for (const std::string& name : expected.getMemberNames()) {
    // Compared as texts, because a number of another JSON type is equal in every other respect.
    if (jobm::json::compact(runner[name]) != jobm::json::compact(expected[name])) {
      return "unexpected " + name + " " + jobm::json::compact(runner[name]);
    }
  }
  if (runner.size() != expected.size() + 1) return "members too many or too few";
  const Json::Value& tags = runner["tags"];
  Json::Value version;
  if (!tags.isArray() || tags.size() != 1 || !tags[0].isString() ||
      !jobm::json::parse(tags[0].asString(), version)) {
    return "tags do not carry a version";
  }
  const std::string number = jobm::json::textOf(version, "version");
  const bool isBare = !number.empty() && number.find_first_of(" \r\n") == std::string::npos;
  return isBare ? "" : "the version is empty or has blanks or a line end";
}

std::string heartbeatFault(const Json::Value& attrs, std::int64_t runId) {
  if (attrs.size() != 2 || !attrs[0].isInt64() || attrs[0].asInt64() != runId) {
    return "not the runner id that was granted";
  }
  for (const char* name : {"cpuUsage", "memUsage", "diskUsage"}) {
    if (!attrs[1].isObject() || attrs[1].size() != 3 || attrs[1][name].type() != Json::realValue ||
        attrs[1][name].asDouble() != 1.0) {
      return std::string("unexpected ") + name;
    }
  }
  return "";
}

// The outcome inside a status report: the text of {"code", "detail"}.
std::string outcomeFault(const Json::Value& text) {
  Json::Value outcome;
  if (!text.isString() || !jobm::json::parse(text.asString(), outcome) || !outcome.isObject()) {
    return "the result is not a JSON text";
  }
  const bool good =
      outcome.size() == 2 && outcome["code"].isUInt64() && outcome["detail"].isString();
  return good ? "" : "the result is not a code and a detail";
}

std::string passiveFault(const Json::Value& attrs) {
  if (attrs.size() != 3 || !attrs[0].isUInt64() || !attrs[1].isInt())
    return "not ackId, status, result";
  return outcomeFault(attrs[2]);
}

std::string activeFault(const Json::Value& attrs, std::int64_t runId) {
  if (attrs.size() != 3 || !attrs[0].isInt64() || attrs[0].asInt64() != runId) {
    return "not the runner id that was granted";
  }
  if (!attrs[1].isString() || !attrs[2].isArray() || attrs[2].size() != 1)
    return "not one executor's job";
  const Json::Value& job = attrs[2][0];
  if (!job.isObject() || job.size() != 3 || !job["jobId"].isUInt64() || !job["jobStatus"].isInt()) {
    return "not a job with its status";
  }
  return outcomeFault(job["result"]);
}

}  // namespace

std::string requestFault(const std::string& suffix, const Json::Value& request,
                         const std::string& address, std::int64_t runId) {
  std::string envelope = envelopeFault(request);
  if (!envelope.empty()) return envelope;
  const Json::Value& attrs = request["attrs"];
  if (suffix == "/scheduler/publish/registerRunner") return runnerFault(attrs, address);
  if (suffix == "/scheduler/publish/heartbeat") return heartbeatFault(attrs, runId);
  if (suffix == "/scheduler/publish/syncStatusPassive") return passiveFault(attrs);
  if (suffix == "/scheduler/publish/syncStatusActive") return activeFault(attrs, runId);
  return "unknown topic";
}

}  // namespace gateway
