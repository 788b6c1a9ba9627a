#include "record.h"

#include <json/writer.h>

#include <array>
#include <cstdio>
#include <ctime>

#include "common/payload.h"
#include "common/trace_line.h"
#include "lib/json_helper.h"
#include "wire/bus_names.h"

namespace gateway {
namespace {

using Time = decltype(Record::time);

// In the order of Kind.
constexpr std::array kKinds = {"call", "answer", "error", "signal", "unanswered"};

std::string fraction(Time time, int digits) {
  const auto since = std::chrono::floor<std::chrono::microseconds>(time.time_since_epoch());
  char text[16];
  std::snprintf(text, sizeof text, ".%06d", static_cast<int>(since.count() % 1'000'000));
  return std::string(text, static_cast<std::size_t>(digits) + 1);
}

std::time_t secondsOf(Time time) {
  return std::chrono::floor<std::chrono::seconds>(time.time_since_epoch()).count();
}

std::string formatted(const std::tm& parts, const char* format) {
  char text[32];
  return std::string(text, std::strftime(text, sizeof text, format, &parts));
}

std::string localTime(Time time) {
  const std::time_t seconds = secondsOf(time);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  return formatted(parts, "%H:%M:%S") + fraction(time, 3);
}

std::string took(const Record& record) {
  if (!record.took) return "";
  char text[48];
  const double milliseconds = *record.took * 1000;
  std::snprintf(text, sizeof text, milliseconds < 10 ? ", %.1f ms" : ", %.0f ms", milliseconds);
  return text;
}

std::string argumentsText(const Record& record) {
  std::string text;
  for (const Json::Value& argument : record.arguments) {
    text += ' ' + payloadSummary(argument.isString() ? argument.asString()
                                                     : jobm::json::compact(argument));
  }
  return text;
}

// The result in words: the code that an answer carries, with its message, or what came instead.
std::string resultText(const Record& record) {
  const std::optional<int> code = codeOf(record);
  if (!code) return argumentsText(record);
  Json::Value answer;
  jobm::json::parse(record.arguments[0].asString(), answer);
  const std::string message = jobm::json::textOf(answer, "message");
  return " code " + std::to_string(*code) + (message.empty() ? "" : ", " + message);
}

void setEnd(Json::Value& json, const char* side, const End& end) {
  const std::string prefix(side);
  if (end.address.empty()) return;
  json[prefix] = end.name;
  json[prefix + "Address"] = end.address;
  if (!end.executor.empty()) json[prefix + "Executor"] = end.executor;
}

// With decimals as far as microseconds; others would print all 17 digits of a number.
std::string line(const Json::Value& json) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  writer["precision"] = 6;
  writer["precisionType"] = "decimal";
  return Json::writeString(writer, json) + '\n';
}

}  // namespace

std::string universalTime(Time time) {
  const std::time_t seconds = secondsOf(time);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  return formatted(parts, "%Y-%m-%dT%H:%M:%S") + fraction(time, 6) + "Z";
}

std::string nameOf(const End& end) {
  if (end.address.empty()) return "*";
  if (end.name == jobm::bus::kJobManager.name) return "task-dispatcher";
  return end.executor.empty() ? end.name : end.executor;
}

std::string whatOf(const Record& record) {
  switch (record.kind) {
    case Record::Kind::kAnswer:
      return record.member + ":" + resultText(record) + took(record);
    case Record::Kind::kError:
      return record.member + ": error " + record.error + argumentsText(record) + took(record);
    case Record::Kind::kUnanswered:
      return record.member + ": no answer" + took(record);
    default:
      return record.member + argumentsText(record);
  }
}

std::optional<int> codeOf(const Record& record) {
  Json::Value answer;
  if (record.kind != Record::Kind::kAnswer || record.arguments.empty() ||
      !record.arguments[0].isString() ||
      !jobm::json::parse(record.arguments[0].asString(), answer) || !answer.isObject() ||
      !answer["code"].isInt()) {
    return {};
  }
  return answer["code"].asInt();
}

std::string textOf(const Record& record) {
  return traceLine(localTime(record.time), nameOf(record.from), nameOf(record.to), whatOf(record));
}

std::string jsonOf(const Record& record) {
  Json::Value json(Json::objectValue);
  json["time"] = universalTime(record.time);
  json["kind"] = kKinds.at(static_cast<std::size_t>(record.kind));
  setEnd(json, "from", record.from);
  setEnd(json, "to", record.to);
  json["path"] = record.path;
  json["interface"] = record.interface;
  json["member"] = record.member;
  json["arguments"] = record.arguments;
  if (!record.call.empty()) json["call"] = record.call;
  if (!record.error.empty()) json["error"] = record.error;
  if (const auto code = codeOf(record)) json["code"] = *code;
  if (record.took) json["took"] = *record.took;
  return line(json);
}

}  // namespace gateway
