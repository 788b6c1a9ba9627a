/// One deployment at a time: the counters of parsers' and executors' answers always count for one.
/// Listening thread only.
#pragma once

#include <functional>

namespace jobm {

/// What a request does when its turn has come. Runs on the listening thread.
using Turn = std::function<void()>;

/// Takes `turn` now, or once everything before it is over.
void runInTurn(Turn turn);

/// Has later requests wait from now on: a deployment is with the parsers or executors.
void holdQueue();

/// Has the next request take its turn, from the loop: whoever calls this is in the middle of a
/// reply's handling.
void resumeQueue();

}  // namespace jobm
