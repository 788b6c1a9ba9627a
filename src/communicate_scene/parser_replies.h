/// The answers of the parsers of one deployment. Listening thread.
#pragma once

#include <string>

#include "deployment.h"

namespace jobm {

/// One call that was sent to a parser.
struct ParserCall {
  SharedDeployment deployment;
  std::string parserName;
  std::string request;  // as it was sent
  std::string snapshotId;
};

/// Takes a parser's answer into the summary. The last one expected hands the deployment on to the
/// executors, or reports what failed.
void handleParserReply(const ParserCall& call, int code, const std::string& message);

}  // namespace jobm
