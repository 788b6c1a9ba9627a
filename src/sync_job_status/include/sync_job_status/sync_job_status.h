/// Everything that is reported to the cloud about jobs. A report is sent once; its publishing is
/// not examined. Every function may be called from any thread.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace jobm {

/// What the scheduler wants done with a job.
enum AckCode : int { kAddJob = 10201, kDeleteJob = 10204, kRemoveJob = 10211, kResetJobs = 10219 };

/// True for both codes that delete a job.
inline bool isDeletion(int ackCode) { return ackCode == kDeleteJob || ackCode == kRemoveJob; }

/// Job status numbers as the scheduler knows them.
enum JobStatus : int { kJobDone = 0, kJobDeployed = 3, kJobFailed = 4 };

/// The acknowledgement id of a report that answers no acknowledgement.
inline constexpr std::int64_t kNoAckId = -1;

/// The deployment types of resourcesReply.
enum DeployType : int { kDeploy = 0, kReset = 1 };

/// Reports the status of a job with a result code and text. `ackId` is the acknowledgement that is
/// answered, or kNoAckId; `executor` the label whose job directory is removed when the job is
/// deleted or failed; `name` only appears in the log; `flag` is passed on.
void syncJobStatus(std::int64_t ackId, int ackCode, std::int64_t jobId, int jobStatus,
                   const std::string& executor, std::int64_t resultCode, const std::string& detail,
                   int flag, const std::string& name);

/// The single entry for all job status reports; `result` is the ready result text, `flag` is
/// ignored. Without an identity nothing is sent after the directory work.
void syncEngineStringJobStatusToMaster(std::int64_t ackId, int ackCode, std::int64_t jobId,
                                       int jobStatus, const std::string& executor,
                                       const std::string& result, int flag,
                                       const std::string& name);

/// Answers the acknowledgement `ackId`. The job id is only logged.
void syncStatusPassive(std::int64_t jobId, std::int64_t ackId, int jobStatus,
                       const std::string& result);

/// Reports on this gateway's own account; nothing is sent before the runner is registered.
void syncStatusActive(std::int64_t jobId, int jobStatus, const std::string& executor,
                      const std::string& result);

/// Handle the scheduler's replies to the two. Return whether it accepted; a rejected report isn't
/// repeated.
bool syncStatusPassiveResp(const Json::Value& reply);
bool syncStatusActiveResp(const Json::Value& reply);

/// Sends a deployment's result: one message, or two for more than 200 details, the first with 200
/// of them. In that case, and when one message would be too long to be sent, the details lose their
/// "data". Ids that are empty are left out.
void resourcesReply(const std::string& deployId, const std::string& taskId, Json::Value& details,
                    int deployType);

/// Reports that a request could not even be read.
void reportDeployParseError();

}  // namespace jobm
