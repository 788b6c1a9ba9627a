/// One MQTT connection. Either a thread of the caller lives in run(), which keeps the connection up
/// for ever, or the caller connects once and pumps.
#pragma once

#include <mosquitto.h>

#include <functional>
#include <memory>
#include <string>

namespace gateway {

struct MqttHandlers {
  std::function<void()> connected = {};
  std::function<void()> disconnected = {};
  /// The broker gets its acknowledgement of a message of quality 1 when this has returned.
  std::function<void(const std::string& topic, const std::string& payload)> message = {};
  /// The broker has taken note of the subscriptions of one subscribe(); false: refused at least
  /// one.
  std::function<void(bool granted)> subscribed = {};
  /// The broker has the message that publish() gave this packet number: acknowledged at quality 1
  /// and 2, sent at 0.
  std::function<void(int packet)> published = {};
};

/// What the library did with a message: it has taken it, may take it on the next connection, or
/// never will.
enum class Handed { kTaken, kLater, kNever };

class MqttClient {
 public:
  /// A client with the id `id`, or one of the library's making when empty. A persistent session
  /// (which needs an id) gets the messages that the broker kept while the client was away. The
  /// handlers run on the thread that is in run() or pump().
  MqttClient(const std::string& id, bool persistent, MqttHandlers handlers);

  /// Connects, serves, and connects again whenever the connection is lost, with growing pauses of
  /// 0.25 s to 8 s between attempts. Never returns.
  [[noreturn]] void run(const std::string& host, int port);

  /// Connects once. Returns false when the broker can't be reached.
  bool connect(const std::string& host, int port);

  /// Serves the connection for up to `milliseconds`. Returns false when it is lost.
  bool pump(int milliseconds);

  /// Hand a packet to the library. Any thread while another one is in run(). A message of quality 1
  /// or 2 that it has taken is sent, and sent again after a reconnect, until it is acknowledged: in
  /// order, but behind what is published before MqttHandlers::connected has returned. Sets *packet,
  /// where given, to the number it got.
  Handed publish(const std::string& topic, const std::string& payload, int qos,
                 int* packet = nullptr);

  /// The same; true when the library took it.
  bool subscribe(const std::string& filter, int qos);
  bool unsubscribe(const std::string& filter);

 private:
  struct Freer {
    void operator()(mosquitto* unused) const { mosquitto_destroy(unused); }
  };
  MqttHandlers handlers;
  std::unique_ptr<mosquitto, Freer> client;
};

/// True when `topic` matches the subscription `filter`.
bool topicMatches(const std::string& filter, const std::string& topic);

/// True when `filter` may be subscribed to, or `topic` published on: in every way that makes a
/// broker hang up otherwise.
bool isTopicFilter(const std::string& filter);
bool isTopic(const std::string& topic);

}  // namespace gateway
