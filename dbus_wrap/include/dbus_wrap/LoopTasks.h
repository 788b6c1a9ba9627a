/// Hands work to the thread that runs the default libuv loop. libuv handles may be touched on that
/// thread only (uv_async_send is the one exception), while proxies are made and dropped on any
/// thread.
#pragma once

#include <functional>

namespace quillon {

using LoopTask = std::function<void()>;

/// Runs `task` here and now, and logs what it throws: for code that a C library calls. Any thread.
void runTask(const LoopTask& task);

/// Runs `task` on the loop's thread: at once when called there, or when no thread runs the loop yet
/// (the loop then can't start before the task is done); otherwise later, in the order of the calls.
/// `task` may not call runOnLoop itself. Any thread.
void runOnLoop(LoopTask task);

/// Runs `task` on the loop's thread in a later turn of the loop, never from inside this call. Any
/// thread.
void postToLoop(LoopTask task);

/// Runs the default loop on the calling thread until uv_stop. Returns what uv_run returned.
int runDefaultLoop();

}  // namespace quillon
