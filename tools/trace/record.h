/// One message of the service, or the absence of one, as gateway-trace tells it.
#pragma once

#include <json/value.h>

#include <chrono>
#include <optional>
#include <string>

namespace gateway {

/// One end of a message.
struct End {
  std::string address;   // as it stands in the message; empty: everybody
  std::string name;      // the bus name, "iot.job.manager" for every connection of the service
  std::string executor;  // of a service that has registered, or is always there; or empty
};

struct Record {
  enum class Kind { kCall, kAnswer, kError, kSignal, kUnanswered };

  Kind kind = Kind::kCall;
  std::chrono::sys_time<std::chrono::nanoseconds> time;
  End from;  // of an unanswered call: whoever was silent
  End to;
  std::string path;       // of the call, for what follows it
  std::string interface;  // likewise
  std::string member;     // likewise
  std::string call;       // an id that a call shares with what follows it; empty for broadcasts
  std::string error;      // its name
  Json::Value arguments{Json::arrayValue};
  std::optional<double> took;  // seconds since the call
};

/// The code that an answer's text carries, {"code": 0}.
std::optional<int> codeOf(const Record& record);

/// UTC, with microseconds and a "Z".
std::string universalTime(decltype(Record::time) time);

/// What people call one end: the service, an executor or a bus name; "*" for everybody.
std::string nameOf(const End& end);

/// What was said, in short: the member with its arguments, or with its result.
std::string whatOf(const Record& record);

/// For people: a line with its end.
std::string textOf(const Record& record);

/// For programs: one JSON object on a line, as docs/gateway-trace.md describes it.
std::string jsonOf(const Record& record);

}  // namespace gateway
