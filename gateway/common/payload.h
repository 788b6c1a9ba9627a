/// The texts that pass between the service and its neighbours, in short.
#pragma once

#include <string>

namespace gateway {

/// What `payload` is about: the ids of a list of resources, the snapshotId of an object that has
/// one, any other JSON on one line, any other text as it is. Any thread.
std::string payloadSummary(const std::string& payload);

}  // namespace gateway
