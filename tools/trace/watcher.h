/// Turns what passes on the bus into records of the service. One thread.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>

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
  struct Call {
    Record record;
    Clock::time_point time;
    bool isTold = false;  // that no answer came, or none is to be missed
  };

  bool concerns(DBusMessage* message);
  void takeSent(DBusMessage* message, Record record);
  void takeReply(DBusMessage* message, Record record);

  Names names;
  Filter filter;
  const Sink sink;
  std::map<std::string, Call> calls;  // that passed and are unanswered, by their ids
};

}  // namespace gateway
