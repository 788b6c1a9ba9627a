/// Keeps an executor registered with the job manager, whoever of the two starts first or again.
#pragma once

#include <string>
#include <vector>

#include "dbus_wrap/DProxy.h"

namespace gateway {

struct ExecutorSettings {
  std::string executorName;
  std::string busName;  // also the interface
  std::string path;
  std::vector<std::string> storeType;
  std::vector<std::string> watchType;
  std::vector<std::string> registerAs;  // methods: "registerExecutor", "registerParser"
};

class Registration {
 public:
  /// Connects to the bus; main thread, before the loop runs.
  explicit Registration(const ExecutorSettings& settings);

  /// Sends the registrations. Without a job manager nothing comes of it; call it again when there
  /// is one. Loop thread, or before the loop runs.
  void announce();

  /// Reports `resourceId`'s job number `jobId` to the job manager as deployed.
  void reportStatus(int jobId, const std::string& resourceId);

 private:
  void call(const std::string& method, const std::string& payload);

  const ExecutorSettings& settings;
  quillon::DProxy jobManager;
};

}  // namespace gateway
