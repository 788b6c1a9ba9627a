/// A proxy, the service that it stands for, and short ways to call.
#pragma once

#include <future>
#include <variant>

#include "dbus_wrap/DProxy.h"
#include "support/LoopThread.h"
#include "support/test.h"

namespace test {

using quillon::DMessage;
using quillon::DProxy;
using Message = std::shared_ptr<DMessage>;

constexpr const char* kService = "iot.test.service";
constexpr const char* kPath = "/iot/test/service";

inline std::ptrdiff_t entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

inline Message callOf(const DProxy& proxy, const char* member, const std::string& text = "") {
  Message call = proxy.makeMethodCall(member);
  call->writeString(text);
  return call;
}

inline std::string textOf(const Message& reply) {
  return reply ? reply->getErrorName() + reply->readString() : "none";
}

inline void send(DProxy& proxy, const char* member, const std::string& text,
                 const std::function<void(const Message&)>& callback) {
  EXPECT_TRUE(proxy.sendMessageWithReply(
      callOf(proxy, member, text), [=](const Message& reply, void*) { callback(reply); }, nullptr));
}

inline std::string call(DProxy& proxy, const char* member, const std::string& text = "") {
  return textOf(proxy.sendMessageWithReplyBlocking(callOf(proxy, member, text)));
}

class Proxy : public testing::Test {
 protected:
  Proxy() {
    service.on("echo", [](const Received& call) { return call.text(); });
    service.answer("refuse", Error{"iot.test.Refused", ": not today"});
    service.answer("silent", std::monostate{});
    service.on("wait", [this](const Received&) {
      going.wait();
      return "too late";
    });
  }

  std::promise<void> goOn;  // ends the wait of the service, which does nothing else meanwhile
  const std::shared_future<void> going = goOn.get_future().share();
  FakePeer service{kService, {"type='signal',path='/iot/test/service'"}};
  LoopThread loop;
  DProxy proxy{kService, kPath, kService};  // on another thread than the loop's, which runs
};

}  // namespace test
