// Messages that the bridge delivers, each "TOPIC line, then the payload", while a registration, a
// heartbeat and two status reports wait for their replies. "$R", "$H", "$P" and "$A" stand for the
// ids of these.
#include "runner_api/routing.h"

#include <exception>

#include "neighbours.h"
#include "runner_api/runner.h"
#include "support.h"
#include "sync_job_status.h"

namespace {

std::string idOf(const char* request) {
  for (const fuzz::Published& published : fuzz::world().published) {
    if (published.topic.ends_with(request)) return fuzz::parsed(published.payload)["id"].asString();
  }
  return {};
}

void deliver(std::string message) {
  for (const auto& [mark, request] : {std::pair{"$R", "/registerRunner"},
                                      {"$H", "/heartbeat"},
                                      {"$P", "/syncStatusPassive"},
                                      {"$A", "/syncStatusActive"}}) {
    message = fuzz::replaced(std::move(message), mark, idOf(request));
  }
  message = fuzz::withSums(std::move(message));
  const std::size_t end = message.find('\n');
  const std::string payload = end != std::string::npos ? message.substr(end + 1) : "";
  try {
    const int consumed = jobm::dispatchMasterResponse(message.substr(0, end), payload);
    fuzz::require(consumed == 0 || consumed == 1, "a message is consumed or not");
  } catch (const std::exception&) {
    // The bus server's entry logs it; the entry stays and is answered later.
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Input input(data, size);
  fuzz::addNeighbours();
  jobm::registerRunner(1, 1024, "[]", "1.0");
  jobm::sendHeartbeat("");
  jobm::syncStatusPassive(1, 2, 3, "{}");
  jobm::syncStatusActive(1, 3, "ConfigManager", "{}");
  fuzz::require(jobm::outstandingRequests() == 4, "every request waits for its reply");
  deliver(input.head);
  for (const std::string& message : input.more) deliver(message);
  fuzz::settle();
  return 0;
}
