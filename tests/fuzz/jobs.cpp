// Job orders, each "ACKCODE JOBID ACKID EXECUTOR" as a line, then the content.
#include "runner_api/jobs.h"

#include <cstdlib>

#include "support.h"

void fuzz::check(const std::string& input) {
  for (std::string& content : start(input)) {
    std::string line = take(content, "\n");
    const auto takeNumber = [&line] { return std::atoll(take(line, " ").c_str()); };
    const auto ackCode = static_cast<int>(takeNumber());
    const std::int64_t jobId = takeNumber();
    const std::int64_t ackId = takeNumber();
    jobm::handleJob(ackId, ackCode, jobId, line, content);
  }
  settle();
}
