/// The MQTT topics below this gateway's prefix, each with its leading slash. All have quality of
/// service 1.
#pragma once

namespace jobm::topic {

// To the scheduler.
inline constexpr const char* kRegisterRunner = "/scheduler/publish/registerRunner";
inline constexpr const char* kHeartbeat = "/scheduler/publish/heartbeat";
inline constexpr const char* kStatusPassive = "/scheduler/publish/syncStatusPassive";
inline constexpr const char* kStatusActive = "/scheduler/publish/syncStatusActive";

// To the deploy channel and to the cloud's log.
inline constexpr const char* kDeployPost = "/edge/deploy/post";
inline constexpr const char* kPostLog = "/edge/rule/post_log";

// From the cloud.
inline constexpr const char* kSchedulerReply = "/scheduler/sysReply";
inline constexpr const char* kTrigger = "/edge/rule/trigger";

}  // namespace jobm::topic
