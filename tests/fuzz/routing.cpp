// Messages that the bridge delivers, each "TOPIC line, then the payload", while a registration, a
// heartbeat and two status reports wait for their replies. "$0" to "$3" stand for the ids of these.
// Answers are read as the bridge's, and as the status reports of executors.
#include "scheduler_link/routing.h"

#include <exception>

#include "dbus_process_call/dbus_process_call.h"
#include "executor_api/job_status.h"
#include "runner_api/runner.h"
#include "support.h"
#include "sync_job_status/sync_job_status.h"

void fuzz::check(const std::string& input) {
  const std::vector<std::string> messages = start(input);
  jobm::registerRunner(1, 1024, "[]", "1.0");
  jobm::sendHeartbeat("");
  jobm::syncStatusPassive({.ackId = 2, .jobId = 1, .jobStatus = 3}, "{}");
  jobm::syncStatusActive({.jobId = 1, .jobStatus = 3, .executor = "ConfigManager"}, "{}");
  require(jobm::outstandingRequests() == 4, "every request waits for its reply");
  const auto requests = world.published;
  for (std::string payload : messages) {
    for (std::size_t i = 0; i < requests.size(); ++i) {
      substitute(payload, "$" + std::to_string(i), requests[i].second["id"].asString());
    }
    const std::string topic = take(payload, "\n");
    try {
      const int consumed = jobm::dispatchMasterResponse(topic, payload);
      require(consumed == 0 || consumed == 1, "a message is consumed or not");
    } catch (const std::exception&) {
      // The bus server's entry logs it; the entry stays and is answered later.
    }
  }
  for (const std::string& reply : world.replies) {
    static_cast<void>(jobm::parseProxyRetCode(makeReply(reply), "fuzz"));
    static_cast<void>(jobm::reportJobStatus(reply));
  }
  settle();
}
