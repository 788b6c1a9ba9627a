/// One deployment at a time, so that the counters of answers count for one deployment. Requests
/// that come meanwhile wait in order. Listening thread only.
#pragma once

#include <cstddef>
#include <functional>

namespace jobm {

/// What a request does when its turn has come. Runs on the listening thread.
using Turn = std::function<void()>;

/// Whether a request would have to wait.
bool isQueueHeld();

/// Whether a request of `bytes` can be taken: it need not wait, or there is still room among the
/// 256 requests and 64 MiB that may wait.
bool hasRoomFor(std::size_t bytes);

/// Takes `turn` now, or once everything before it is over. `bytes` is what it holds while it waits.
void runInTurn(std::size_t bytes, Turn turn);

/// Has later requests wait from now on: a deployment is with the parsers or executors.
void holdQueue();

/// Has the next request take its turn, from the loop: the caller is in the middle of handling a
/// reply.
void resumeQueue();

}  // namespace jobm
