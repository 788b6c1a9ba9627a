// Reading a registration into a record, and the connections of its proxy.

#include <gateway/log_macros.h>
#include <sys/resource.h>

#include <filesystem>
#include <system_error>

#include "tables.h"

namespace jobm::registry {
namespace {

// What the downloads, the store and the connections of everybody else need at the least.
constexpr std::size_t kReservedDescriptors = 64;

std::vector<std::string> readTexts(const Json::Value& array) {
  std::vector<std::string> texts;
  if (!array.isArray()) return texts;
  for (const Json::Value& element : array) texts.push_back(element.asString());
  return texts;
}

bool isShortOfDescriptors() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return false;
  std::error_code error;
  std::filesystem::directory_iterator open("/proc/self/fd", error);
  std::size_t used = 0;
  for (; !error && open != std::filesystem::directory_iterator(); open.increment(error)) ++used;
  if (error) return error == std::errc::too_many_files_open;
  // The listing has one of its own.
  return used - 1 + kReservedDescriptors > limit.rlim_cur;
}

}  // namespace

Executor readRecord(const Json::Value& registration, const Executor* previous) {
  const Json::Value& address = registration["executorAddr"];
  Executor record;
  record.name = address["name"].asString();
  record.interface = address["interface"].asString();
  record.path = address["path"].asString();
  record.executorName = registration["executorName"].asString();
  record.storeType = readTexts(registration["storeType"]);
  record.watchType = readTexts(registration["watchType"]);
  const bool isSameAddress = previous != nullptr && previous->proxy &&
                             previous->proxy->isFor(record.name, record.path, record.interface);
  if (isSameAddress) record.proxy = previous->proxy;
  return record;
}

std::string connectRecord(Executor& record) {
  if (record.proxy) return {};
  if (isShortOfDescriptors()) return "too few file descriptors left for another service";
  auto proxy = std::make_shared<quillon::DProxy>(record.name.c_str(), record.path.c_str(),
                                                 record.interface.c_str());
  if (!proxy->isConnected()) return "the bus refuses the connections for another service";
  record.proxy = std::move(proxy);
  return {};
}

}  // namespace jobm::registry
