#include "outbox.h"

namespace gateway {
namespace {

constexpr const char* kSum = "SELECT ifnull(max(id), 0), ifnull(sum(size), 0) FROM outbox";
constexpr const char* kInsert =
    "INSERT INTO outbox(id, topic, payload, qos, size) VALUES(?1, ?2, ?3, ?4, ?5)";
constexpr const char* kSelect =
    "SELECT id, topic, payload, qos FROM outbox WHERE id > ?1 ORDER BY id LIMIT 1";
constexpr const char* kDelete = "DELETE FROM outbox WHERE id = ?1 RETURNING size";

}  // namespace

void Outbox::restore(const Store& store) {
  insertion = store.prepare(kInsert);
  selection = store.prepare(kSelect);
  deletion = store.prepare(kDelete);
  Statement sum = store.prepare(kSum);
  if (!sum.step()) return;
  lastId = sum.number(0);
  bytes = sum.number(1);
}

std::string Outbox::add(const std::string& topic, const std::string& payload, int qos) {
  const auto size = static_cast<std::int64_t>(topic.size() + payload.size());
  if (bytes + size > limit) return "too much waits for the broker";
  insertion.bind(1, lastId + 1).bind(2, topic).bind(3, payload).bind(4, qos).bind(5, size);
  if (!insertion.run()) return "the message can't be stored";
  ++lastId;
  bytes += size;
  return "";
}

std::optional<Outbox::Message> Outbox::next(std::int64_t id) {
  if (id >= lastId || !selection.bind(1, id).step()) return std::nullopt;
  Message message{selection.number(0), selection.text(1), selection.text(2),
                  static_cast<int>(selection.number(3))};
  selection.run();
  return message;
}

void Outbox::remove(std::int64_t id) {
  if (deletion.bind(1, id).step()) bytes -= deletion.number(0);
  deletion.run();
}

}  // namespace gateway
