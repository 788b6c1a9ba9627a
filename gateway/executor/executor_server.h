/// One executor or parser of the local gateway. Everything runs on the thread of the default loop.
#pragma once

#include <DServer.h>

#include <map>
#include <string>

#include "misbehaviour.h"
#include "registration.h"

namespace gateway {

struct ExecutorBehaviour {
  std::string folder;          // where what came in is written; empty: nowhere
  bool perResource = false;    // deployJob's answer carries one code per resource
  bool reportsStatus = false;  // tells the job manager the status of every deployed resource
  std::map<std::string, Misbehaviour> misbehaviours;  // by method
};

class ExecutorServer : public quillon::DServer {
 public:
  ExecutorServer(ExecutorSettings settings, ExecutorBehaviour behaviour);

  /// Takes the bus name, registers and serves for ever. Returns only when the bus name can't be
  /// had: 1.
  int serve();

  bool onMethodCall(const char* member, const std::shared_ptr<quillon::DMessage>& request,
                    const std::shared_ptr<quillon::DMessage>& reply) override;
  bool onSignalReceived(const char* member,
                        const std::shared_ptr<quillon::DMessage>& signal) override;

 private:
  std::string addressFault(quillon::DMessage& request) const;
  void record(const std::string& method, const std::string& payload);
  void answer(const std::string& method, const std::string& text,
              const std::shared_ptr<quillon::DMessage>& reply);
  void sendLate(const std::shared_ptr<quillon::DMessage>& reply, int milliseconds);
  void reportResources(const std::string& payload);
  void invoked(quillon::DMessage& signal);

  const ExecutorSettings settings;
  const ExecutorBehaviour behaviour;
  Registration registration;
  int order;  // of the last call written to the folder
};

}  // namespace gateway
