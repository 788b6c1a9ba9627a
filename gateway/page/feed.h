/// What happens on the gateway, gathered while somebody looks: the records of gateway-trace and of
/// the parts' own trace, the states of gateway-status, and what became of the orders.
#pragma once

#include <json/value.h>

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "records.h"
#include "sight.h"
#include "tail.h"

namespace gateway {

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

  /// How much there is of everything.
  struct Extent {
    std::size_t records = 0;
    std::size_t orders = 0;
    std::size_t states = 0;
    bool operator==(const Extent&) const = default;
  };

  /// Keeps its records in the folder `home`, where the local gateway lives.
  explicit Feed(const std::string& home);

  const Records& records() const { return seen; }

  /// Waits up to `seconds` until there is more than `known`. Returns what there is. Any thread.
  Extent waitBeyond(const Extent& known, int seconds) const;

  /// The event of an order with this number, as JSON; and {"status", as gateway-status tells it;
  /// "faults", those that were played}. Any thread.
  std::string order(std::size_t number) const;
  std::string state() const;

  /// The names by which the newest state knows the executors and parsers. Any thread.
  KnownNames executorNames() const;

 private:
  [[noreturn]] void run();
  void watch();
  bool isWanted();
  void takeNotes(bool busIsWatched);
  void takeOrders();
  void takePlayed(const std::string& words);
  void takeState(const std::string& line);
  void gather(LineSource& trace, LineSource& status);
  void addGathered();

  Records seen;
  const std::string takenUntil;  // by an earlier process
  const double traceStart;       // seconds since 1970

  // Of the feed's thread.
  Tail notes;
  Tail messages;
  double noteTime;
  std::vector<std::pair<std::string, std::string>> gathered;  // times and records

  mutable std::mutex lock;  // guards what follows
  mutable std::condition_variable changed;
  int viewers = 0;
  Extent extent;
  std::vector<std::string> orders;
  Json::Value newestState;
  Json::Value played{Json::objectValue};  // part -> its fault
  std::thread thread;
};

}  // namespace gateway
