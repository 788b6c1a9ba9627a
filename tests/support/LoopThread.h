/// The thread of the default loop, for tests of what runs on it.
#pragma once

#include <uv.h>

#include <future>
#include <memory>
#include <thread>
#include <type_traits>
#include <utility>

#include "dbus_wrap/LoopTasks.h"

namespace test {

/// Runs the default loop on a thread of its own, as the service does, until it goes.
class LoopThread {
 public:
  LoopThread() : thread([] { quillon::runDefaultLoop(); }) {
    run([] {});  // the loop runs once this has come back
  }
  ~LoopThread() {
    quillon::postToLoop([] { uv_stop(uv_default_loop()); });
    thread.join();
  }
  LoopThread(const LoopThread&) = delete;
  LoopThread& operator=(const LoopThread&) = delete;

  /// Runs `task` on the loop's thread and returns what it returns.
  template <typename Task>
  std::invoke_result_t<Task> run(Task task) {
    using Result = std::invoke_result_t<Task>;
    const auto packaged = std::make_shared<std::packaged_task<Result()>>(std::move(task));
    auto result = packaged->get_future();
    quillon::postToLoop([packaged] { (*packaged)(); });
    return result.get();
  }

  std::thread::id id() const { return thread.get_id(); }

 private:
  std::thread thread;
};

}  // namespace test
