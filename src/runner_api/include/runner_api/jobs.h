/// The jobs that arrive in heartbeat replies. Everything here runs on the listening thread.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace jobm {

/// Handles a heartbeat's reply: acts on each job of its list, one after the other, downloads
/// included. Returns true when there was a list.
bool handleHeartbeatResp(const Json::Value& reply);

/// Acts on one job order. `ackId` names the acknowledgement to answer, `ackContent` is a JSON text:
/// for an addition an object that holds the package or says where it is.
void handleJob(std::int64_t ackId, int ackCode, std::int64_t jobId, const std::string& executor,
               const std::string& ackContent);

}  // namespace jobm
