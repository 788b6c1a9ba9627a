#include "queue.h"

#include <gateway/log_macros.h>

#include <deque>
#include <utility>

#include "dbus_wrap/LoopTasks.h"

namespace jobm {
namespace {

struct Request {
  std::string payload;
  void (*start)(const std::string& payload);
};

bool underWay = false;
std::deque<Request> waiting;

void startNext() {
  underWay = false;
  while (!underWay && !waiting.empty()) {
    const Request request = std::move(waiting.front());
    waiting.pop_front();
    request.start(request.payload);
  }
}

void endDeployment(const std::string& deployId, bool reported) {
  if (!reported) LOGW("deployment %s is given up without a report.", deployId.c_str());
  // From the loop: the last share goes in the middle of a reply's handling.
  quillon::postToLoop(startNext);
}

}  // namespace

void runInTurn(const std::string& payload, void (*start)(const std::string& payload)) {
  if (!underWay) {
    start(payload);
    return;
  }
  waiting.push_back({payload, start});
  LOGI("another deployment is under way, %zu waiting.", waiting.size());
}

SharedResults beginDeployment(const std::string& deployId) {
  underWay = true;
  return std::make_shared<DeploymentResults>(
      [deployId](bool reported) { endDeployment(deployId, reported); });
}

}  // namespace jobm
