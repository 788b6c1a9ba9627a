/// The shape that waits by the clock.
#pragma once

#include <atomic>
#include <thread>

#include "bare.h"

namespace bench {

/// An idle handle that reads and writes for up to 10 ms.
class PollingServer final : public BareServer {
 public:
  PollingServer(const std::string& name, std::size_t answerBytes);

 private:
  uv_idle_t idle{};
};

/// A worker that reads and writes for up to 10 ms, and two timers.
class PollingProxy final : public BareProxy {
 public:
  PollingProxy();
  ~PollingProxy() override;

 private:
  void read();

  uv_timer_t replyTimer{};
  uv_timer_t ageTimer{};
  std::atomic<bool> stopping = false;
  std::thread worker;
};

}  // namespace bench
