/// What nearly every test needs: the framework, the usual parts of the library, files, the log, and
/// neighbours of the service whose answers the test decides.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <latch>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "CapturedLog.h"
#include "lib/file_text.h"
#include "neighbour/neighbour.h"
#include "parsed.h"

namespace test {

namespace fs = std::filesystem;

using FakePeer = gateway::Neighbour;
using gateway::Answer;
using gateway::Argument;
using gateway::busCall;
using gateway::Error;
using gateway::eventually;
using gateway::Late;
using gateway::Received;
using gateway::Twice;

/// The payload that registers `executorName` at the bus name `name`, from which interface and path
/// follow. The types are JSON texts.
inline std::string registration(const std::string& executorName, const std::string& name,
                                const std::string& watchType, const std::string& storeType = "[]") {
  return R"({"executorName":")" + executorName + R"(","linkType":1,"executorAddr":{"name":")" +
         name + R"(","interface":")" + name + R"(","path":")" + gateway::pathOf(name) +
         R"("},"storeType":)" + storeType + R"(,"watchType":)" + watchType + "}";
}

}  // namespace test
