/// Who this gateway is to the cloud scheduler: one process-wide record. Any thread.
#pragma once

#include <cstdint>
#include <string>

namespace jobm {

/// Publishes the two names, once, before anything is sent to the scheduler. Main thread.
void setDeviceInfo(const std::string& productKey, const std::string& deviceName);

/// True once both names are known and not empty.
bool hasDeviceInfo();

/// product key + "_" + device name: this runner's address.
std::string runnerAddress();

/// The topic with `suffix` (beginning with a slash) under this gateway's prefix.
std::string gatewayTopic(const std::string& suffix);

/// The id that the scheduler granted, 0 until it has.
std::int64_t getRunId();
void setRunId(std::int64_t id);

/// The id of the last job handled, 0 when there was none. Nothing reads it yet.
std::int64_t getLastJobId();
void setLastJobId(std::int64_t id);

}  // namespace jobm
