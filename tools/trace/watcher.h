/// Turns what passes on the bus into records of the service. One thread.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "filter.h"
#include "names.h"
#include "record.h"

namespace gateway {

class Watcher {
 public:
  using Clock = std::chrono::steady_clock;
  using Sink = std::function<void(const Record&)>;

  /// `sink` gets each record that passes `filter`; what follows a call goes with it.
  Watcher(Names names, Filter filter, Sink sink);

  /// Takes a message that passes.
  void take(DBusMessage* message);

  /// Tells of each call that the service waits for no more, once. Returns how many milliseconds
  /// there are until the next one may be due; nothing while no answer is awaited.
  std::optional<int> tellUnanswered();

 private:
  // A call, or a signal to somebody, for what may follow it.
  struct Call {
    Record record;  // without its arguments
    Clock::time_point time;
    Clock::time_point due;  // when it is told of or forgotten
    bool isTold = false;    // that no answer came, or none is to be missed
  };
  using Calls = std::map<std::string, Call>;  // by their ids

  bool concerns(DBusMessage* message);
  void takeSent(DBusMessage* message, Record record);
  void takeReply(DBusMessage* message, Record record);
  void keep(const std::string& id, Record record);
  void await(Calls::iterator call, Clock::time_point time);
  void forget(Calls::iterator call);
  void takeDue(Calls::iterator call, Clock::time_point now);

  Names names;
  Filter filter;
  const Sink sink;
  Calls calls;                                              // that passed and are unanswered
  std::set<std::pair<Clock::time_point, std::string>> due;  // each of them, by its `due`
};

}  // namespace gateway
