/// What happens on the gateway, gathered while somebody looks: the records of gateway-trace and the
/// parts' common trace, the states of gateway-status, and what became of the orders.
#pragma once

#include <json/value.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sight.h"

namespace gateway {

/// Lines of a file as others append them.
class Tail {
 public:
  explicit Tail(std::string path);

  /// The whole lines that have come since the last call, without their ends.
  std::vector<std::string> lines();

 private:
  const std::string path;
  std::ifstream in;
  std::string begun;  // a line whose end is not there yet
};

class Feed {
 public:
  /// While one of these lives, the feed gathers. Any thread.
  class Viewer {
   public:
    explicit Viewer(Feed& feed);
    ~Viewer();
    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

   private:
    Feed& feed;
  };

  /// How much there has been of everything.
  struct Extent {
    std::size_t records = 0;
    std::size_t orders = 0;
    std::size_t states = 0;
    bool operator==(const Extent&) const = default;
  };

  /// Looks into the folder `home`, where the local gateway lives.
  explicit Feed(std::string home);

  /// Waits up to `seconds` until there is more than `known`. Returns what there is. Any thread.
  Extent waitBeyond(const Extent& known, int seconds) const;

  /// The record with this number, as JSON, and the number of the oldest that is kept; empty for one
  /// that is not kept any more, and for one to come. Any thread.
  std::string record(std::size_t number) const;
  std::size_t oldestRecord() const;

  /// The event of an order with this number, as JSON; and {"status", as gateway-status tells it;
  /// "faults", those that were played}. Any thread.
  std::string order(std::size_t number) const;
  std::string state() const;

  /// The names by which the newest state knows the executors and parsers. Any thread.
  KnownNames executorNames() const;

 private:
  using Clock = std::chrono::steady_clock;

  [[noreturn]] void run();
  void watch();
  void takeTurn(Tail& states);
  Clock::time_point wantedUntil() const;
  void takeRecords();
  void takeNotes(const std::vector<std::string>& lines);
  void addGathered();
  void takeOrders();
  void takePlayed(const std::string& words);
  void takeState(const std::string& line);
  bool isWatched(const std::string& time) const;

  const std::string home;
  const double traceStart;  // seconds since 1970

  // Of the feed's thread.
  Tail bus;
  Tail notes;
  Tail messages;
  double noteTime;
  std::vector<std::pair<std::string, std::string>> gathered;  // times and records
  // Until when a turn has been waited for what is older; everything at first.
  std::string settled = "~";
  std::vector<std::string> heard;  // events of orders, likewise
  // From when until when each gateway-trace has told everything; the last one does so still.
  std::vector<std::pair<std::string, std::string>> watched{1};

  mutable std::mutex lock;  // guards what follows
  mutable std::condition_variable changed;
  int viewers = 0;
  Clock::time_point leftAt;  // when the last of them did
  Extent extent;
  std::deque<std::string> records;  // the newest
  std::vector<std::string> orders;
  Json::Value newestState;
  Json::Value played{Json::objectValue};  // part -> its fault
  std::thread thread;
};

}  // namespace gateway
