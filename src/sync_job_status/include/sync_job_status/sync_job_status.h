/// Everything that is reported to the cloud about jobs. A status is sent once, whether the bridge
/// takes it or not. Every function may be called from any thread, unless it says otherwise.
#pragma once

#include <gateway/log_context.h>
#include <json/value.h>

#include <cstdint>
#include <string>

#include "sync_job_status/journal.h"
#include "wire/codes.h"

namespace jobm {

/// The acknowledgement id of a report that answers no acknowledgement.
inline constexpr std::int64_t kNoAckId = -1;

/// What is reported of a job.
struct JobStatusReport {
  std::int64_t ackId = kNoAckId;  // the acknowledgement that is answered, or kNoAckId
  int ackCode = kAddJob;
  std::int64_t jobId = 0;
  int jobStatus = kJobDone;
  std::string executor;  // the label whose job directory goes when the job is deleted or failed
  std::string name;      // for the log only
};

/// Reports the status of a job with a result code and text.
void syncJobStatus(const JobStatusReport& report, std::int64_t resultCode,
                   const std::string& detail);

/// The single entry for all job status reports; `result` is the ready result text. Without an
/// identity nothing is sent after the directory work.
void syncEngineStringJobStatusToMaster(const JobStatusReport& report, const std::string& result);

/// Answers the acknowledgement. The job id is only logged.
void syncStatusPassive(const JobStatusReport& report, const std::string& result);

/// Reports without having been asked; nothing is sent before the runner is registered.
void syncStatusActive(const JobStatusReport& report, const std::string& result);

/// Handle the scheduler's replies to the two. Return whether it accepted; a rejected report isn't
/// repeated.
bool syncStatusPassiveResp(const Json::Value& reply);
bool syncStatusActiveResp(const Json::Value& reply);

/// Whose result it is.
struct DeploymentReport {
  Ticket ticket = kNoTicket;
  std::string deployId;
  std::string taskId;
  int deployType = kDeploy;
  std::int64_t jobId = 0;  // 0 when it is not known; in no report
};

/// Names a deployment, and its job if that is known, in the log while it lives. `report` outlives
/// it.
class DeploymentLogScope {
 public:
  explicit DeploymentLogScope(const DeploymentReport& report)
      : jobId(report.jobId != 0 ? std::to_string(report.jobId) : ""),
        job(gateway::LogSubject::kJob, jobId),
        deployment(gateway::LogSubject::kDeployment, report.deployId) {}

 private:
  const std::string jobId;
  const gateway::LogScope job;
  const gateway::LogScope deployment;
};

/// Sends a deployment's result: one message, or two for more than 200 details, the first with 200
/// of them. In that case, and when one message would be too long to be sent, the details lose their
/// "data". Ids that are empty are left out. With a ticket the report outlives the process (see
/// journal.h) and this is for the listening thread.
void reportDeployment(const DeploymentReport& report, Json::Value& details);

/// The same for a deployment that is not in the journal.
void resourcesReply(const std::string& deployId, const std::string& taskId, Json::Value& details,
                    int deployType);

/// The details of a deployment that failed as a whole: one for a reset, otherwise one for each of
/// `snapshotIds`. `why` is their text.
Json::Value failedDetails(int deployType, const Json::Value& snapshotIds, const std::string& why);

/// Reports that a request could not even be read.
void reportDeployParseError();

}  // namespace jobm
