/// What takes the bus's place in a program that has none: the fuzz targets put neighbours of their
/// own here. The service never sets one.
#pragma once

#include <memory>

#include "dbus_wrap/DMessage.h"
#include "dbus_wrap/DProxy.h"

namespace quillon {

class ProxyHook {
 public:
  virtual ~ProxyHook() = default;

  /// As DProxy's functions of these names, for every proxy of the process.
  virtual bool sendMessageWithReply(const DProxy& proxy, const std::shared_ptr<DMessage>& message,
                                    ReplyCallback callback, void* userData) = 0;
  virtual std::shared_ptr<DMessage> sendMessageWithReplyBlocking(
      const std::shared_ptr<DMessage>& message) = 0;
  virtual int sendSignal(const std::shared_ptr<DMessage>& message) = 0;
};

/// Has every proxy use `hook`, which must outlive them all, instead of connections: those made from
/// now on have none, those made before keep theirs unused. Before there is a second thread.
void setProxyHook(ProxyHook& hook);

}  // namespace quillon
