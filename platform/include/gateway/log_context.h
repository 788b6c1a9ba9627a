/// What a thread is working on, so that whoever reads the log finds every record of a job, a
/// deployment or a resource by its id, whatever the record itself says. The logger asks for it; for
/// any platform library.
///
/// A thread's context is three pointers of its own, so it can also be read inside a signal handler:
/// no lock, no allocation.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace gateway {

enum class LogSubject : std::size_t { kJob, kDeployment, kResource };
inline constexpr std::size_t kLogSubjects = 3;

/// How the log names them: in a line, and as a field of the journal. In the order of LogSubject.
inline constexpr std::array<const char*, kLogSubjects> kLogSubjectWords = {"jobId", "deployId",
                                                                           "snapshotId"};
inline constexpr std::array<const char*, kLogSubjects> kLogSubjectFields = {
    "GATEWAY_JOB_ID", "GATEWAY_DEPLOY_ID", "GATEWAY_SNAPSHOT_ID"};

/// The ids of the calling thread's work, null where there is none.
inline constinit thread_local std::array<const char* volatile, kLogSubjects> logSubjects{};

/// Names one subject while it lives, or none with null. An empty id leaves what is named already.
class LogScope {
 public:
  /// `id` outlives this and does not change.
  LogScope(LogSubject subject, const std::string& id) : LogScope(subject) {
    if (!id.empty()) logSubjects[index] = id.c_str();
  }
  LogScope(LogSubject subject, std::nullptr_t) : LogScope(subject) { logSubjects[index] = nullptr; }
  LogScope(LogSubject subject, const std::string&& id) = delete;
  ~LogScope() { logSubjects[index] = before; }
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;

 private:
  explicit LogScope(LogSubject subject)
      : index(static_cast<std::size_t>(subject)), before(logSubjects[index]) {}

  const std::size_t index;
  const char* const before;
};

/// A copy of the calling thread's context, for what goes on later: the answer to a call.
class LogContext {
 public:
  LogContext() {
    for (std::size_t i = 0; i < kLogSubjects; ++i) {
      const char* id = logSubjects[i];
      if (id != nullptr) ids[i] = id;
    }
  }
  const std::string& id(LogSubject subject) const { return ids[static_cast<std::size_t>(subject)]; }

 private:
  std::array<std::string, kLogSubjects> ids;
};

/// Takes a context up again while it lives.
class LogContextScope {
 public:
  explicit LogContextScope(const LogContext& context)
      : job(LogSubject::kJob, context.id(LogSubject::kJob)),
        deployment(LogSubject::kDeployment, context.id(LogSubject::kDeployment)),
        resource(LogSubject::kResource, context.id(LogSubject::kResource)) {}

 private:
  const LogScope job;
  const LogScope deployment;
  const LogScope resource;
};

}  // namespace gateway
