/// The messages that the bridge has promised to deliver and the broker has not acknowledged yet, in
/// the order of their arrival. Used on the bus thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "store.h"

namespace gateway {

class Outbox {
 public:
  /// What may wait: topics and payloads together, in bytes.
  static constexpr std::int64_t kLimit = std::int64_t{64} * 1024 * 1024;

  struct Message {
    std::int64_t id;  // grows from message to message, from 1 on
    std::string topic;
    std::string payload;
    int qos;
  };

  explicit Outbox(std::int64_t givenLimit = kLimit) : limit(givenLimit) {}

  /// Begins with what an earlier bridge left in `store`, which must be open and outlive this. To be
  /// called first.
  void restore(const Store& store);

  /// Keeps a message until remove(), over the bridge's end too. Returns "", or why it can't: what
  /// waits already is never given up for what comes later.
  std::string add(const std::string& topic, const std::string& payload, int qos);

  /// The first message behind the one with this id; the very first behind 0.
  std::optional<Message> next(std::int64_t id);

  void remove(std::int64_t id);

 private:
  const std::int64_t limit;
  std::int64_t lastId = 0;
  std::int64_t bytes = 0;  // of all topics and payloads
  Statement insertion;
  Statement selection;
  Statement deletion;
};

}  // namespace gateway
