#include <gateway/log_macros.h>

#include <exception>
#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "dbus_process_call/proxies.h"
#include "dbus_wrap/LoopTasks.h"
#include "lib/json_helper.h"
#include "status_file/status_file.h"

namespace jobm {
namespace {

using Message = std::shared_ptr<quillon::DMessage>;

// The call `method` with its topic, ready for the further arguments; empty when it can't be made.
Message makeBridgeCall(quillon::DProxy* bridge, const char* method, const std::string& topic) {
  Message call = bridge != nullptr ? bridge->makeMethodCall(method) : Message{};
  if (call) call->writeString(topic);
  return call;
}

int callBridge(quillon::DProxy* bridge, const Message& call, const char* name) {
  if (!call) return -1;
  return parseProxyRetCode(bridge->sendMessageWithReplyBlocking(call), name);
}

int readAsyncReply(const Message& reply) {
  const int code = parseProxyRetCode(reply, "publishAsync");
  if (reply && code != 0) LOGI("publishAsync get reply : %d\n", code);
  setStatusWord("bridge", code == 0 ? "takes" : "refuses");
  return code;
}

void AsyncCallbackHandler(const Message& reply, void* /*bridge*/) {
  static_cast<void>(readAsyncReply(reply));
}

Message makePublishCall(quillon::DProxy* bridge, const std::string& topic,
                        const std::string& payload, int qos) {
  Message call = makeBridgeCall(bridge, "publish", topic);
  if (call) call->writeString(payload).writeInt32(qos);
  return call;
}

}  // namespace

int publish(const std::string& topic, const std::string& payload, int qos) {
  LOGI("publish begin topic = %s\n", topic.c_str());
  quillon::DProxy* bridge = mqttBridgeProxy;
  const Message call = makePublishCall(bridge, topic, payload, qos);
  return callBridge(bridge, call, "publish");
}

void publishAsync(const std::string& topic, const std::string& payload, int qos) {
  quillon::DProxy* bridge = mqttBridgeProxy;
  const Message call = makePublishCall(bridge, topic, payload, qos);
  if (call) bridge->sendMessageWithReply(call, AsyncCallbackHandler, bridge);
}

void publishAsync(const std::string& topic, const std::string& payload, int qos,
                  const PublishOutcome& outcome) {
  quillon::DProxy* bridge = mqttBridgeProxy;
  const Message call = makePublishCall(bridge, topic, payload, qos);
  const auto handler = [outcome](const Message& reply, void*) { outcome(readAsyncReply(reply)); };
  if (call && bridge->sendMessageWithReply(call, handler, bridge)) return;
  quillon::postToLoop([outcome] { outcome(-1); });
}

int subscribe(const std::string& topic, const std::string& subscriber, int qos) {
  LOGI("subscribe topic %s begin...\n", topic.c_str());
  quillon::DProxy* bridge = mqttBridgeProxy;
  const Message call = makeBridgeCall(bridge, "subscribe", topic);
  if (call) call->writeString(subscriber).writeInt32(qos);
  return callBridge(bridge, call, "subscribe");
}

int unSubscribe(const std::string& topic, const std::string& subscriber) {
  LOGI("unSubscribe topic = %s begin...\n", topic.c_str());
  quillon::DProxy* bridge = mqttBridgeProxy;
  // The bridge spells its method in lower case throughout.
  const Message call = makeBridgeCall(bridge, "unsubscribe", topic);
  if (call) call->writeString(subscriber);
  return callBridge(bridge, call, "unSubscribe");
}

int parseProxyRetCode(const Message& reply, const char* /*name*/) {
  if (!reply) return -1;
  const std::string text = reply->readString();
  try {
    Json::Value root;
    if (!json::parse(text, root)) {
      LOGE("publish parse failed res = %s\n", text.c_str());
      return -1;
    }
    return std::as_const(root)["code"].asInt();
  } catch (const std::exception& e) {
    LOGE("publish json error ! e = %s", e.what());
    return -1;
  }
}

}  // namespace jobm
