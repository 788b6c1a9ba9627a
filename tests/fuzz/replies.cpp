// What executors answer. Each event is a deployment request, or a call as a line "METHOD EXECUTOR"
// and its argument; "reset" is one to everybody. The answers follow, and are read as the bridge's
// answer and as a status report, too.
#include "communicate_scene/request.h"
#include "dbus_process_call/dbus_process_call.h"
#include "executor_api/job_calls.h"
#include "executor_api/job_status.h"
#include "executor_api/reset.h"
#include "support.h"

void fuzz::check(const std::string& input) {
  const std::vector<std::string> events = start(input);
  for (const std::string& reply : world.replies) {
    static_cast<void>(jobm::parseProxyRetCode(makeReply(reply), "fuzz"));
    static_cast<void>(jobm::reportJobStatus(reply));
  }
  for (std::string argument : events) {
    if (argument.starts_with('{')) jobm::handle1Job(argument);
    std::string executor = take(argument, "\n");
    const std::string method = take(executor, " ");
    if (method == "reset") jobm::resetEJobs();
    if (const auto record = jobm::getExecutor(executor)) {
      const auto ignore = [](int, const std::string&, const std::string&) {};
      jobm::callMethod(method.c_str(), *record, "1", ignore);
      jobm::deployParserJob(method, argument, *record, ignore);
      jobm::getJobStatus(1, argument, *record);
      jobm::initExecutor(*record);
    }
  }
  settle();
}
