/// One deployment request, from its text to its report. Listening thread.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

#include "sync_job_status/journal.h"

namespace jobm {

struct JobRequest {
  std::string payload;
  Json::Value parsed{};  // null until the payload is parsed, and if it can't be
  bool isAccepted = false;
  Ticket ticket = kNoTicket;
  std::int64_t jobId = 0;  // of the order that brought it, 0 without one
};

/// Reads a request and, when it is one that gets a report, writes down that it was accepted. Call
/// it before the scheduler is told so.
[[nodiscard]] JobRequest acceptJob(std::string payload);

/// Reports an accepted request that could not be carried out: every resource failed, with the text
/// `why`. Nothing if it is reported already, or was not accepted.
void reportFailure(const JobRequest& job, const std::string& why);

/// Carries out a deployment request. One that arrives while another one is with the parsers or
/// executors waits for its turn; the order stays. Every outcome is reported to the deploy channel;
/// a text that isn't a request is only logged. Blocks for the downloads.
void handle1Job(JobRequest&& request);

/// The same for a request that was not accepted: its report does not outlive the process. Only
/// tests and fuzz targets call this.
void handle1Job(const std::string& payload);

}  // namespace jobm
