#include "polling.h"

namespace bench {
namespace {

constexpr int kWaitMs = 10;
constexpr std::uint64_t kDrainMs = 10;
constexpr std::uint64_t kAgeMs = 2000;

}  // namespace

PollingServer::PollingServer(const std::string& name, std::size_t answerBytes)
    : BareServer(name, answerBytes) {
  uv_idle_init(uv_default_loop(), &idle);
  idle.data = this;
  uv_idle_start(
      &idle, [](uv_idle_t* handle) { static_cast<PollingServer*>(handle->data)->turn(kWaitMs); });
}

PollingProxy::PollingProxy() {
  uv_timer_init(uv_default_loop(), &ageTimer);
  ageTimer.data = this;
  uv_timer_start(
      &ageTimer,
      [](uv_timer_t* timer) {
        const std::lock_guard guard(static_cast<PollingProxy*>(timer->data)->pendingLock);
      },
      0, kAgeMs);
  uv_timer_init(uv_default_loop(), &replyTimer);
  replyTimer.data = this;
  uv_timer_start(
      &replyTimer, [](uv_timer_t* timer) { static_cast<PollingProxy*>(timer->data)->drain(); }, 0,
      kDrainMs);
  worker = std::thread([this] { read(); });
}

PollingProxy::~PollingProxy() {
  stopping = true;
  worker.join();
}

void PollingProxy::read() {
  while (!stopping && dbus_connection_read_write(async.get(), kWaitMs)) queueReplies();
}

}  // namespace bench
