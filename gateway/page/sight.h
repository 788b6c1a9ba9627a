/// What a page shows of a record: of one that gateway-trace printed, or of a line that a part of
/// the local gateway wrote into the trace of all.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "trace/filter.h"

namespace gateway {

/// What executors and parsers are called that gateway-trace did not see registering: by their bus
/// names.
using KnownNames = std::map<std::string, std::string>;

/// A line of the trace of all as a record. `start` is when the trace began, in seconds since 1970;
/// a line that has no time gets `*time`, any other sets it. Nothing for an empty line.
std::optional<Json::Value> noteOf(const std::string& line, double start, double* time);

/// Whether gateway-trace shows what this note says, too.
bool isOnTheBus(const Json::Value& note);

/// The row of a record: "n", its number; "time", "kind", "member"; "from" and "to", as people call
/// them; "text", and "failed".
Json::Value rowOf(std::size_t number, const Json::Value& record, const KnownNames& names);

/// Widens `spans`, from a deployment's phases to when each began and ended, by what a record says
/// of one.
void addToPhases(const Json::Value& record, Json::Value& spans);

/// The records that somebody asks for. One thread; they must come in their order, without a gap.
class Selection {
 public:
  struct Kinds {
    bool onlyFailures = false;  // errors, silence, codes that are not 0, files that are not there
    bool routine = false;       // also heartbeats and the feeding of the watchdog
  };

  Selection(const Wanted& wanted, Kinds kinds, KnownNames names);

  /// Takes note of an order's ids and of its resources, from an event of the scheduler's.
  void learn(Json::Value order);

  /// Whether everything passes.
  bool isOpen() const;

  bool passes(const Json::Value& record);

 private:
  bool isRoutine(const Json::Value& record);
  bool isAbout(const Json::Value& record);

  Filter filter;
  const Kinds kinds;
  const KnownNames names;
  std::set<std::string> calls;    // that passed; what follows them does, too
  std::set<std::string> routine;  // calls that did not, because they come all the time
};

}  // namespace gateway
