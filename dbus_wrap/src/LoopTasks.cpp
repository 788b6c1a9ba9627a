// Who wakes whom: postToLoop (any thread) files a task and calls uv_async_send; the async handle's
// callback runs on the loop's thread, takes the whole queue out and runs it. While no thread runs
// the loop, whoever holds the lock may touch its handles; runDefaultLoop takes the same lock to
// change that state.

#include "dbus_wrap/LoopTasks.h"

#include <gateway/log_macros.h>
#include <uv.h>

#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace quillon {
namespace {

struct LoopState {
  std::mutex lock;
  std::vector<LoopTask> queue;
  uv_async_t wakeUp{};
  bool wakeUpReady = false;
  bool running = false;
  std::thread::id loopThread;
};

// Never destroyed: workers and timers outlive static destruction.
LoopState& loopState() {
  static auto& state = *std::make_unique<LoopState>().release();
  return state;
}

void runQueue(uv_async_t*) {
  LoopState& state = loopState();
  std::vector<LoopTask> tasks;
  {
    const std::lock_guard guard(state.lock);
    tasks.swap(state.queue);
  }
  for (const LoopTask& task : tasks) runTask(task);
}

// With the lock held and the loop at rest.
void prepareWakeUp(LoopState& state) {
  if (state.wakeUpReady) return;
  uv_async_init(uv_default_loop(), &state.wakeUp, runQueue);
  state.wakeUpReady = true;
}

}  // namespace

void runTask(const LoopTask& task) {
  try {
    task();
  } catch (const std::exception& e) {
    LOGE("runTask Exception e = %s\n", e.what());
  }
}

void runOnLoop(LoopTask task) {
  LoopState& state = loopState();
  std::unique_lock guard(state.lock);
  if (!state.running) {
    runTask(task);
    return;
  }
  if (state.loopThread == std::this_thread::get_id()) {
    guard.unlock();
    runTask(task);
    return;
  }
  state.queue.push_back(std::move(task));
  uv_async_send(&state.wakeUp);
}

void postToLoop(LoopTask task) {
  LoopState& state = loopState();
  const std::lock_guard guard(state.lock);
  if (!state.running) prepareWakeUp(state);
  state.queue.push_back(std::move(task));
  uv_async_send(&state.wakeUp);
}

int runDefaultLoop() {
  LoopState& state = loopState();
  {
    const std::lock_guard guard(state.lock);
    prepareWakeUp(state);
    state.running = true;
    state.loopThread = std::this_thread::get_id();
  }
  const int result = uv_run(uv_default_loop(), UV_RUN_DEFAULT);
  const std::lock_guard guard(state.lock);
  state.running = false;
  return result;
}

}  // namespace quillon
