// The glue: libmosquitto calls its C callbacks inside mosquitto_loop, on the thread that is in
// run() or pump(). Packets handed over by other threads are queued inside the library, which wakes
// that thread through a socket pair of its own (that is what mosquitto_threaded_set switches on).

#include "mqtt_client.h"

#include <gateway/log_macros.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <thread>

namespace gateway {
namespace {

using namespace std::chrono_literals;

constexpr int kKeepAliveSeconds = 20;
// The library's wait ends earlier for a packet of either side and when the keep-alive is due.
constexpr int kLoopMilliseconds = kKeepAliveSeconds * 1000;
constexpr auto kFirstPause = 250ms;
constexpr auto kLongestPause = 8000ms;

// The library's own set-up and clean-up, once a process.
void initialiseLibrary() {
  static const int result = mosquitto_lib_init();
  if (result != MOSQ_ERR_SUCCESS) LOGE("mosquitto_lib_init: %s", mosquitto_strerror(result));
}

// No exception may cross the library's frames.
template <typename Call>
void guarded(const Call& call) {
  try {
    call();
  } catch (const std::exception& e) {
    LOGE("mqtt handler Exception e = %s", e.what());
  }
}

void onConnect(mosquitto*, void* data, int result) {
  if (result != 0) {
    LOGW("broker refuses the connection: %s", mosquitto_connack_string(result));
    return;
  }
  const auto* handlers = static_cast<const MqttHandlers*>(data);
  if (handlers->connected) guarded(handlers->connected);
}

void onDisconnect(mosquitto*, void* data, int) {
  const auto* handlers = static_cast<const MqttHandlers*>(data);
  if (handlers->disconnected) guarded(handlers->disconnected);
}

void onMessage(mosquitto*, void* data, const mosquitto_message* message) {
  const auto* handlers = static_cast<const MqttHandlers*>(data);
  if (!handlers->message) return;
  guarded([&] {
    const auto length = static_cast<std::size_t>(message->payloadlen);
    handlers->message(message->topic,
                      std::string(static_cast<const char*>(message->payload), length));
  });
}

void onSubscribe(mosquitto*, void* data, int, int count, const int* granted) {
  constexpr int kRefused = 128;
  const bool ok = std::none_of(granted, granted + count, [](int qos) { return qos >= kRefused; });
  if (!ok) LOGW("broker refuses a subscription");
  const auto* handlers = static_cast<const MqttHandlers*>(data);
  if (handlers->subscribed) guarded([&] { handlers->subscribed(ok); });
}

void onPublish(mosquitto*, void* data, int packet) {
  const auto* handlers = static_cast<const MqttHandlers*>(data);
  if (handlers->published) guarded([&] { handlers->published(packet); });
}

bool succeeded(int result, const char* what, const std::string& topic) {
  if (result == MOSQ_ERR_SUCCESS) return true;
  LOGW("%s %s: %s", what, topic.c_str(), mosquitto_strerror(result));
  return false;
}

bool isMqttText(const std::string& text) {
  return mosquitto_validate_utf8(text.c_str(), static_cast<int>(text.size())) == MOSQ_ERR_SUCCESS;
}

}  // namespace

MqttClient::MqttClient(const std::string& id, bool persistent, MqttHandlers given)
    : handlers(std::move(given)) {
  initialiseLibrary();
  client.reset(mosquitto_new(id.empty() ? nullptr : id.c_str(), !persistent, &handlers));
  if (!client) return;
  mosquitto_threaded_set(client.get(), true);
  // Small packets follow each other; the delay that would collect them costs 40 ms each.
  mosquitto_int_option(client.get(), MOSQ_OPT_TCP_NODELAY, 1);
  mosquitto_connect_callback_set(client.get(), onConnect);
  mosquitto_disconnect_callback_set(client.get(), onDisconnect);
  mosquitto_message_callback_set(client.get(), onMessage);
  mosquitto_subscribe_callback_set(client.get(), onSubscribe);
  mosquitto_publish_callback_set(client.get(), onPublish);
}

void MqttClient::run(const std::string& host, int port) {
  auto pause = kFirstPause;
  while (true) {
    if (connect(host, port)) {
      pause = kFirstPause;
      while (pump(kLoopMilliseconds)) {
      }
    }
    std::this_thread::sleep_for(pause);
    pause = std::min<std::chrono::milliseconds>(pause * 2, kLongestPause);
  }
}

bool MqttClient::connect(const std::string& host, int port) {
  const int result = mosquitto_connect(client.get(), host.c_str(), port, kKeepAliveSeconds);
  return succeeded(result, "connect to", host + ":" + std::to_string(port));
}

bool MqttClient::pump(int milliseconds) {
  return mosquitto_loop(client.get(), milliseconds, 1) == MOSQ_ERR_SUCCESS;
}

Handed MqttClient::publish(const std::string& topic, const std::string& payload, int qos,
                           int* packet) {
  const int result =
      mosquitto_publish(client.get(), packet, topic.c_str(), static_cast<int>(payload.size()),
                        payload.data(), qos, false);
  // Without a connection it keeps what must arrive for the next one.
  if (result == MOSQ_ERR_NO_CONN && qos > 0) return Handed::kTaken;
  if (succeeded(result, "publish on", topic)) return Handed::kTaken;
  const bool isTransient = result == MOSQ_ERR_NO_CONN || result == MOSQ_ERR_NOMEM;
  return isTransient ? Handed::kLater : Handed::kNever;
}

bool MqttClient::subscribe(const std::string& filter, int qos) {
  return succeeded(mosquitto_subscribe(client.get(), nullptr, filter.c_str(), qos), "subscribe to",
                   filter);
}

bool MqttClient::unsubscribe(const std::string& filter) {
  return succeeded(mosquitto_unsubscribe(client.get(), nullptr, filter.c_str()), "unsubscribe from",
                   filter);
}

bool topicMatches(const std::string& filter, const std::string& topic) {
  bool matches = false;
  return mosquitto_topic_matches_sub(filter.c_str(), topic.c_str(), &matches) == MOSQ_ERR_SUCCESS &&
         matches;
}

bool isTopicFilter(const std::string& filter) {
  return !filter.empty() && isMqttText(filter) &&
         mosquitto_sub_topic_check(filter.c_str()) == MOSQ_ERR_SUCCESS;
}

bool isTopic(const std::string& topic) {
  return !topic.empty() && isMqttText(topic) &&
         mosquitto_pub_topic_check(topic.c_str()) == MOSQ_ERR_SUCCESS;
}

}  // namespace gateway
