/// One deployment at a time: the counters of parsers' and executors' answers always count for one.
/// What comes meanwhile waits in order. Listening thread only.
#pragma once

#include <cstddef>
#include <functional>

namespace jobm {

/// What a request does when its turn has come. Runs on the listening thread.
using Turn = std::function<void()>;

/// Whether a request would have to wait.
bool isQueueHeld();

/// Whether a request of `bytes` would not have to wait, or may: at most 256 requests and 64 MiB do.
bool hasRoomFor(std::size_t bytes);

/// Takes `turn` now, or once everything before it is over. `bytes` is what it holds while it waits.
void runInTurn(std::size_t bytes, Turn turn);

/// Has later requests wait from now on: a deployment is with the parsers or executors.
void holdQueue();

/// Has the next request take its turn, from the loop: whoever calls this is in the middle of a
/// reply's handling.
void resumeQueue();

}  // namespace jobm
