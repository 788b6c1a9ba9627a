/// One deployment request, from its text to its report.
#pragma once

#include <string>

namespace jobm {

/// Carries out the deployment request `payload` (JSON). A request that arrives while another one is
/// with the parsers or executors waits for its turn; the order stays. Every outcome is reported
/// through resourcesReply; a text that isn't a request is only logged. Blocks for the downloads.
/// Listening thread.
void handle1Job(const std::string& payload);

}  // namespace jobm
