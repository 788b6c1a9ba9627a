/// What a network far away looks like, on the loopback.
#pragma once

#include <atomic>
#include <deque>
#include <list>
#include <string>
#include <thread>

namespace bench {

/// Passes TCP connections on to a port of this machine as if it were a round trip away: whatever is
/// sent arrives half of it later, and the first bytes of a connection another whole one later,
/// which is what connecting takes.
class FarAway {
 public:
  FarAway(int port, double roundTripSeconds);
  ~FarAway();
  FarAway(const FarAway&) = delete;
  FarAway& operator=(const FarAway&) = delete;

  int port() const { return portNumber; }

  /// How many connections there were.
  int connections() const { return count; }

 private:
  struct Chunk {
    double due;
    std::string bytes;  // none: the end
  };
  struct Lane {
    int from;
    int to;
    double opened;  // nothing is on its way before
    std::deque<Chunk> chunks;
    bool hasEnded = false;
  };
  // Both directions.
  struct Road {
    Lane there;
    Lane back;
  };

  void run();
  void accept();
  void waitForTraffic();
  void take(Lane& lane) const;
  static bool deliver(Lane& lane);

  const int target;
  const double halfTrip;
  const int listener;
  const int stop;  // an event descriptor
  int portNumber = 0;
  std::list<Road> roads;  // of the thread
  std::atomic<int> count = 0;
  std::thread thread;
};

}  // namespace bench
