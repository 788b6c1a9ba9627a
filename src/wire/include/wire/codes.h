/// The numbers of the protocols: the scheduler's, and those in what is reported and answered here.
#pragma once

namespace jobm {

/// The code of a scheduler's reply that accepts, and of one that brings a list of jobs.
inline constexpr int kAccepted = 200;
inline constexpr int kJobList = 10200;

/// What the scheduler wants done with a job.
enum AckCode : int { kAddJob = 10201, kDeleteJob = 10204, kRemoveJob = 10211, kResetJobs = 10219 };

/// True for both codes that delete a job.
constexpr bool isDeletion(int ackCode) { return ackCode == kDeleteJob || ackCode == kRemoveJob; }

/// Job status numbers as the scheduler knows them.
enum JobStatus : int { kJobDone = 0, kJobDeployed = 3, kJobFailed = 4 };

/// What a deployment request is for.
enum DeployType : int { kDeploy = 0, kReset = 1 };

/// What is to be done with a resource.
enum Operate : int { kOnAdd = 0, kOnDelete = 1 };

/// What became of a bus call, a resource or a reset, where it is no success (0) and not an
/// executor's own code.
enum ResultCode : int {
  kParamsError = 100000,  // also the code of every refusal by this service's bus methods
  kUnknownExecutor = 101200,
  kKeysMissing = 101201,
  kNoDirectory = 101202,
  kStoreFailed = 101203,
  kResetIncomplete = 101204,
  kNoReply = 101205,
  kReplyFormat = 101206,
  kNoService = 101207,
  kDownloadFail = 101208,
  kChecksumFail = 101209,  // also any unexpected failure, and an interrupted deployment
};

}  // namespace jobm
