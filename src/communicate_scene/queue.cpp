#include "queue.h"

#include <gateway/log_macros.h>

#include <deque>
#include <utility>

#include "dbus_wrap/LoopTasks.h"

namespace jobm {
namespace {

bool held = false;
std::deque<Turn> waiting;

void takeTurns() {
  held = false;
  while (!held && !waiting.empty()) {
    const Turn turn = std::move(waiting.front());
    waiting.pop_front();
    turn();
  }
}

}  // namespace

void runInTurn(Turn turn) {
  if (!held) {
    turn();
    return;
  }
  waiting.push_back(std::move(turn));
  LOGI("another deployment is under way, %zu waiting.", waiting.size());
}

void holdQueue() { held = true; }

void resumeQueue() { quillon::postToLoop(takeTurns); }

}  // namespace jobm
