/// This gateway as a runner of the cloud scheduler: registration and heartbeats.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace jobm {

/// Makes one attempt to register. `memorySize` in bytes. Success shows only later, as a run id that
/// is not 0. Blocks for the bridge's answer to the subscription of the reply topic. Main thread.
void registerRunner(int cpu, std::int64_t memorySize, const std::string& executorNames,
                    const std::string& sdkVersion);

/// Handles the scheduler's answer to a registration: takes the run id. Returns whether it was
/// granted. Listening thread.
bool registerRunnerResp(const Json::Value& reply);

/// One heartbeat; only an error line while the runner isn't registered. Heartbeat thread.
void handleHeartbeat();

/// Builds and publishes one heartbeat; the text is ignored. Heartbeat thread.
void sendHeartbeat(const std::string& ignored);

}  // namespace jobm
