#pragma once

namespace jobm {

/// Calls `attempt` until it returns 0, at most three times in a row, and `onFailure(result)` after
/// each attempt that did not. Returns the last result.
template <typename Attempt, typename OnFailure>
int tryThreeTimes(const Attempt& attempt, const OnFailure& onFailure) {
  int result = -1;
  for (int tries = 0; tries < 3; ++tries) {
    result = attempt();
    if (result == 0) return 0;
    onFailure(result);
  }
  return result;
}

}  // namespace jobm
