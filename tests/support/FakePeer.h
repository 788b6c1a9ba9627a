/// A neighbour of the service whose answers the test decides.
#pragma once

#include "neighbour/neighbour.h"

namespace test {

using FakePeer = gateway::Neighbour;
using gateway::Answer;
using gateway::Argument;
using gateway::busCall;
using gateway::Error;
using gateway::eventually;
using gateway::Late;
using gateway::Received;
using gateway::Twice;

}  // namespace test
