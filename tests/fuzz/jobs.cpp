// Job orders, each "ACKCODE JOBID ACKID EXECUTOR" as a line, then the content.
#include "runner_api/jobs.h"

#include <comm_path.h>

#include <cstdlib>

#include "neighbours.h"
#include "support.h"

namespace {

std::int64_t takeNumber(std::string& text) {
  char* end = nullptr;
  const std::int64_t number = std::strtoll(text.c_str(), &end, 10);
  text.erase(0, static_cast<std::size_t>(end - text.c_str()));
  return number;
}

void order(const std::string& text) {
  const std::size_t end = text.find('\n');
  std::string line = text.substr(0, end);
  const auto ackCode = static_cast<int>(takeNumber(line));
  const std::int64_t jobId = takeNumber(line);
  const std::int64_t ackId = takeNumber(line);
  const std::string executor = line.empty() ? line : line.substr(1);
  const std::string content = end != std::string::npos ? text.substr(end + 1) : "";
  jobm::handleJob(ackId, ackCode, jobId, executor, fuzz::withSums(content));
  fuzz::require(
      jobm::isPathComponent(executor) || jobm::jobPath(executor, std::to_string(jobId)).empty(),
      "a refused executor has no directory");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  fuzz::addNeighbours();
  order(input.head);
  for (const std::string& text : input.more) order(text);
  fuzz::settle();
  return 0;
}
