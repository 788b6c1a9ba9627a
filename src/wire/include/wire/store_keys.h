/// The configuration store's keys of this service. Besides them there is one per executor name (its
/// job list) and one per resource type (the content that was deployed last).
#pragma once

namespace jobm::key {

/// What the names of this service's own keys begin with: nothing that came from outside may become
/// such a key.
inline constexpr const char* kSystemPrefix = "gw_system_";
inline constexpr const char* kServicePrefix = "gw_jobm_";

// Written by the gateway's set-up.
inline constexpr const char* kProductKey = "gw_system_productkey";
inline constexpr const char* kDeviceName = "gw_system_devicename";
inline constexpr const char* kDeviceSecret = "gw_system_devicesecret";

// Written here.
inline constexpr const char* kJobId = "gw_jobm_jobId";
inline constexpr const char* kJobContent = "gw_jobm_jobContent";
inline constexpr const char* kExecutors = "gw_jobm_executors";
inline constexpr const char* kParsers = "gw_jobm_parsers";
/// Followed by a number, see sync_job_status/journal.h.
inline constexpr const char* kDeploymentPrefix = "gw_jobm_deployment_";

}  // namespace jobm::key
