/// What the phases of one deployment share, and the counter of its executors' replies. Listening
/// thread only.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace jobm {

/// Replies of executors for the deployment in flight: one process-wide pair, because deployments
/// run one at a time.
struct ExecutorResultCounter {
  std::uint32_t done = 0;
  std::uint32_t total = 0;
};
extern ExecutorResultCounter G_ExecutorResultCounter;

/// The summary of one deployment by snapshotId. Whoever may still add to it, or report it, holds a
/// share; the deployment is over when the last share goes.
class DeploymentResults {
 public:
  /// `onOver(reported)` runs when the last share goes, on the thread that drops it.
  explicit DeploymentResults(std::function<void(bool reported)> onOver);
  ~DeploymentResults();
  DeploymentResults(const DeploymentResults&) = delete;
  DeploymentResults& operator=(const DeploymentResults&) = delete;

  Json::Value entries{Json::objectValue};
  bool reported = false;

 private:
  std::function<void(bool)> onOver;
};
using SharedResults = std::shared_ptr<DeploymentResults>;

/// Sends the final report of a deployment, one detail for each entry in the order of the
/// snapshotIds, and tells the executors that the batch is finished. An entry without a code or
/// message reports null there.
void reportFinalResult(const std::string& deployId, const std::string& taskId,
                       const SharedResults& results);

}  // namespace jobm
