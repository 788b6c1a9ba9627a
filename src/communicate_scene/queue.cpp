#include "communicate_scene/queue.h"

#include <gateway/log_macros.h>

#include <deque>
#include <exception>
#include <utility>

#include "dbus_wrap/LoopTasks.h"
#include "status_file/status_file.h"

namespace jobm {
namespace {

constexpr std::size_t kMaxWaiting = 256;
constexpr std::size_t kMaxWaitingBytes = std::size_t{64} * 1024 * 1024;

struct Waiting {
  std::size_t bytes;
  Turn turn;
};

// Listening thread only.
struct Queue {
  bool held = false;
  std::deque<Waiting> waiting;
  std::size_t bytes = 0;  // of all that wait
};
Queue queue;

void showWaiting() { setStatus("waiting", Json::UInt64{queue.waiting.size()}); }

// Whatever a turn throws must not keep those behind it waiting.
void takeTurn(const Turn& turn) {
  try {
    turn();
  } catch (const std::exception& e) {
    LOGE("takeTurn Exception e = %s\n", e.what());
  }
}

// One of them; what else the loop has to do comes before the next, which may download for long.
void takeTurns() {
  queue.held = false;
  if (queue.waiting.empty()) return;
  const Waiting next = std::move(queue.waiting.front());
  queue.waiting.pop_front();
  queue.bytes -= next.bytes;
  showWaiting();
  takeTurn(next.turn);
  if (queue.held || queue.waiting.empty()) return;
  holdQueue();
  resumeQueue();
}

}  // namespace

bool isQueueHeld() { return queue.held; }

bool hasRoomFor(std::size_t bytes) {
  if (!queue.held) return true;
  return queue.waiting.size() < kMaxWaiting && queue.bytes + bytes <= kMaxWaitingBytes;
}

void runInTurn(std::size_t bytes, Turn turn) {
  if (!queue.held) {
    turn();
    return;
  }
  queue.bytes += bytes;
  queue.waiting.push_back({bytes, std::move(turn)});
  showWaiting();
  LOGI("another deployment is under way, %zu waiting.", queue.waiting.size());
}

void holdQueue() { queue.held = true; }

void resumeQueue() { quillon::postToLoop(takeTurns); }

}  // namespace jobm
