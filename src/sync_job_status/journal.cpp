#include "sync_job_status/journal.h"

#include <gateway/log_macros.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <thread>
#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "lib/json_helper.h"
#include "scheduler_link/identity.h"
#include "sync_job_status/sync_job_status.h"
#include "wire/codes.h"
#include "wire/store_keys.h"
#include "wire/topics.h"

namespace jobm {
namespace {

constexpr const char* kInterrupted = "interrupted by a restart";

struct Message {
  std::string payload;
  bool isTaken = false;  // by the bridge
};

// What is known of an accepted deployment. It has messages once its report is written down; those
// that the bridge did not take stay for publishAgain.
struct Report {
  std::int64_t order = 0;  // of arrival
  std::vector<Message> messages;
  std::size_t underWay = 0;  // how many messages wait for the bridge's answer
};

// Listening thread only.
struct Journal {
  std::vector<bool> isUsed;  // by slot
  std::int64_t lastOrder = 0;
  std::map<Ticket, Report> reports;  // of every slot in use
  // What the store failed to take: until it does, a restart would find what was there before.
  std::map<Ticket, std::string> unwritten;
};
Journal journal;

std::string keyOf(Ticket ticket) { return key::kDeploymentPrefix + std::to_string(ticket); }

void write(Ticket ticket, const std::string& text) {
  if (setConfig(keyOf(ticket), text) == 0) {
    journal.unwritten.erase(ticket);
    return;
  }
  LOGE("%s could not be written, a restart would not know of it.\n", keyOf(ticket).c_str());
  journal.unwritten[ticket] = text;
}

void writeAgain() {
  const auto texts = journal.unwritten;
  for (const auto& [ticket, text] : texts) write(ticket, text);
}

Ticket takeFreeSlot() {
  const auto free = std::find(journal.isUsed.begin(), journal.isUsed.end(), false);
  const auto ticket = static_cast<Ticket>(free - journal.isUsed.begin());
  if (free == journal.isUsed.end()) {
    journal.isUsed.push_back(true);
  } else {
    *free = true;
  }
  return ticket;
}

void letGo(Ticket ticket) {
  journal.reports.erase(ticket);
  write(ticket, "null");  // every value of the store is JSON
  journal.isUsed[static_cast<std::size_t>(ticket)] = false;
}

bool isTaken(const Message& message) { return message.isTaken; }

// Such a message would be tried again for ever.
bool isTooLong(const Message& message) { return message.payload.size() > kMaxPayload; }

void handleOutcome(Ticket ticket, std::size_t index, int code) {
  Report& report = journal.reports.at(ticket);
  Message& message = report.messages[index];
  --report.underWay;
  if (code == 0) {
    message.isTaken = true;
  } else if (isTooLong(message)) {
    LOGE("the report in %s is longer than the bus takes, it is lost.\n", keyOf(ticket).c_str());
    message.isTaken = true;
  } else {
    LOGW("the bridge did not take the report in %s (%d), it is kept.\n", keyOf(ticket).c_str(),
         code);
  }
  if (std::all_of(report.messages.begin(), report.messages.end(), isTaken)) letGo(ticket);
}

// All at once and in their order: the bridge keeps it.
void publishMessages(Ticket ticket) {
  Report& report = journal.reports.at(ticket);
  for (std::size_t i = 0; i < report.messages.size(); ++i) {
    if (report.messages[i].isTaken) continue;
    ++report.underWay;
    publishAsync(gatewayTopic(topic::kDeployPost), report.messages[i].payload, 1,
                 [ticket, i](int code) { handleOutcome(ticket, i, code); });
  }
}

// The next number, for the order of arrival over restarts.
std::int64_t nextOrder() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  const std::int64_t clock = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
  journal.lastOrder = std::max(clock, journal.lastOrder + 1);
  return journal.lastOrder;
}

Json::Value interruptedDetails(const Json::Value& entry) {
  Json::Value details(Json::arrayValue);
  Json::Value failed;
  failed["code"] = static_cast<int>(kChecksumFail);
  failed["success"] = false;
  if (entry["deployType"] == Json::Value(kReset)) {
    failed["detail"] = kInterrupted;
    details.append(failed);
    return details;
  }
  failed["message"] = kInterrupted;
  for (const Json::Value& snapshotId : entry["snapshotIds"]) {
    failed["snapshotId"] = snapshotId;
    details.append(failed);
  }
  return details;
}

bool isText(const Json::Value& value) { return value.isString(); }

// What somebody else has changed is worth no report, and must not cost the others theirs.
bool isEntry(const Json::Value& entry) {
  if (!entry.isObject() || !entry["order"].isInt64()) return false;
  const Json::Value& messages = entry["messages"];
  if (messages.isArray()) return std::all_of(messages.begin(), messages.end(), isText);
  return messages.isNull() && entry["deployType"].isInt();
}

void reportEntry(Ticket ticket, const Json::Value& entry) {
  Report& report = journal.reports[ticket];
  report.order = entry["order"].asInt64();
  if (entry.isMember("messages")) {
    for (const Json::Value& payload : entry["messages"]) {
      report.messages.push_back({payload.asString()});
    }
    publishMessages(ticket);
    return;
  }
  const std::string deployId = json::textOf(entry, "deployId");
  LOGW("deployment %s was interrupted by a restart.\n", deployId.c_str());
  Json::Value details = interruptedDetails(entry);
  reportDeployment({ticket, deployId, json::textOf(entry, "taskId"), entry["deployType"].asInt()},
                   details);
}

}  // namespace

Ticket acceptDeployment(const AcceptedDeployment& deployment) {
  const Ticket ticket = takeFreeSlot();
  const std::int64_t order = nextOrder();
  journal.reports[ticket].order = order;
  Json::Value entry;
  entry["order"] = Json::Int64{order};
  entry["deployId"] = deployment.deployId;
  entry["taskId"] = deployment.taskId;
  entry["deployType"] = deployment.deployType;
  entry["snapshotIds"] = deployment.snapshotIds;
  write(ticket, json::compact(entry));
  return ticket;
}

void publishReport(Ticket ticket, const std::vector<std::string>& payloads) {
  if (ticket == kNoTicket) {
    for (const std::string& payload : payloads) {
      publishAsync(gatewayTopic(topic::kDeployPost), payload, 1);
    }
    return;
  }
  Report& report = journal.reports.at(ticket);
  Json::Value entry;
  entry["order"] = Json::Int64{report.order};
  for (const std::string& payload : payloads) {
    report.messages.push_back({payload});
    entry["messages"].append(payload);
  }
  write(ticket, json::compact(entry));
  publishMessages(ticket);
}

void publishAgain() {
  writeAgain();
  std::map<std::int64_t, Ticket> kept;  // by order of arrival
  for (const auto& [ticket, report] : journal.reports) {
    if (report.underWay == 0 && !report.messages.empty()) kept[report.order] = ticket;
  }
  for (const auto& [order, ticket] : kept) publishMessages(ticket);
}

Slots readJournal() {
  Slots slots;
  while (true) {
    const ConfigRead read = readConfig(keyOf(static_cast<Ticket>(slots.size())));
    if (read.state == ConfigState::kAbsent) return slots;
    if (read.state == ConfigState::kUnreadable) {
      LOGE("the accepted deployments could not be read, trying again.\n");
      std::this_thread::sleep_for(std::chrono::seconds(1));
      continue;
    }
    Json::Value entry;
    slots.push_back(json::parse(read.value, entry) && isEntry(entry) ? entry : Json::Value());
  }
}

void reportInterrupted(const Slots& slots) {
  std::vector<Ticket> left;
  for (std::size_t slot = 0; slot < slots.size(); ++slot) {
    const bool isLeft = !slots[slot].isNull();
    journal.isUsed.push_back(isLeft);
    if (isLeft) left.push_back(static_cast<Ticket>(slot));
  }
  const auto orderOf = [&](Ticket ticket) {
    return slots[static_cast<std::size_t>(ticket)]["order"].asInt64();
  };
  std::sort(left.begin(), left.end(), [&](Ticket a, Ticket b) { return orderOf(a) < orderOf(b); });
  for (const Ticket ticket : left) reportEntry(ticket, slots[static_cast<std::size_t>(ticket)]);
}

}  // namespace jobm
