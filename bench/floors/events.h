/// The shape that waits by events: nothing of it runs while nothing happens.
#pragma once

#include <atomic>
#include <thread>

#include "bare.h"

namespace bench {

/// Sleeps on the connection's descriptor in the loop.
class EventServer final : public BareServer {
 public:
  EventServer(const std::string& name, std::size_t answerBytes);

 private:
  void watch(int events);

  uv_poll_t poll{};
};

/// The worker sleeps on the connection's descriptor and on an event descriptor. It wakes the loop
/// for the first reply in an empty queue. The ageing timer runs while something is pending.
class EventProxy final : public BareProxy {
 public:
  EventProxy();
  ~EventProxy() override;

 private:
  void sent() override;
  void filed() override;
  void read();
  void wait() const;
  void onWake();
  void age();

  const int wakeWorker;
  uv_async_t wakeLoop{};
  uv_timer_t ageTimer{};
  bool isAgeing = false;  // under pendingLock
  std::atomic<bool> stopping = false;
  std::thread worker;
};

}  // namespace bench
