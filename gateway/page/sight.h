/// What a page shows of a record: of one that gateway-trace printed, or of a line that a part of
/// the local gateway wrote into the parts' common trace.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "trace/filter.h"

namespace gateway {

/// What executors and parsers are called that gateway-trace did not see registering: by their bus
/// names.
using KnownNames = std::map<std::string, std::string>;

/// Parses `text`, and returns whether it is a JSON object: others have written it.
bool parsedObject(std::string_view text, Json::Value& value);

/// A line of the parts' common trace as a record. `start` is when the trace began, in seconds since
/// 1970; a line that has no time gets `*time`, any other sets it. Nothing for an empty line.
std::optional<Json::Value> noteOf(const std::string& line, double start, double* time);

/// Whether gateway-trace shows what this note says, too.
bool isOnTheBus(const Json::Value& note);

/// The row of a record: "n", its number; "time", "kind", "member"; "from" and "to", as people call
/// them; "text", and "failed".
Json::Value rowOf(std::size_t number, const Json::Value& record, const KnownNames& names);

/// The phase of a deployment that a record is of: "downloads", "parsers" or "executors"; or empty.
std::string phaseOf(const Json::Value& record);

/// The records that somebody asks for. One thread; they must come in their order, without a gap.
class Selection {
 public:
  /// `onlyFailures`: errors, silence, codes that are not 0, files that are not there.
  Selection(const Wanted& wanted, bool onlyFailures);

  /// Tells it what is called how from now on.
  void know(KnownNames known) { names = std::move(known); }

  /// Takes note of an order's ids and of its resources, from an event of the scheduler's.
  void learn(Json::Value order);

  /// Whether everything passes.
  bool isOpen() const;

  bool passes(const Json::Value& record);

 private:
  bool isAbout(const Json::Value& record);

  Filter filter;
  const bool onlyFailures;
  KnownNames names;
  std::set<std::string> calls;  // that passed; what follows them does, too
};

}  // namespace gateway
