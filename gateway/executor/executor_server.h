/// One executor or parser of the local gateway. What comes in is handled on its neighbour's thread;
/// the default loop carries what it calls itself.
#pragma once

#include <map>
#include <string>

#include "misbehaviour.h"
#include "neighbour/neighbour.h"
#include "registration.h"

namespace gateway {

struct ExecutorBehaviour {
  std::string folder;          // where what came in is written; empty: nowhere
  bool perResource = false;    // deployJob's answer carries one code per resource
  bool reportsStatus = false;  // tells the job manager the status of every deployed resource
  std::map<std::string, Misbehaviour> misbehaviours;  // by method
};

class ExecutorServer {
 public:
  /// Takes the bus name, or ends the program with status 1.
  ExecutorServer(ExecutorSettings settings, ExecutorBehaviour behaviour);

  /// Registers and serves for ever. Main thread.
  void serve();

 private:
  Answer handle(const Received& message);
  Answer called(const Received& call);
  std::string addressFault(const Received& call) const;
  void record(const std::string& method, const std::string& payload);
  Answer behave(const std::string& method, const std::string& text) const;
  void reportResources(const std::string& payload);
  void invoked(const std::string& payload);

  const ExecutorSettings settings;
  const ExecutorBehaviour behaviour;
  Registration registration;
  int order;            // of the last call written to the folder; of the neighbour's thread
  Neighbour neighbour;  // last: its thread uses the others
};

}  // namespace gateway
