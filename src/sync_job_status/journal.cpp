#include "sync_job_status/journal.h"

#include <gateway/log_context.h>
#include <gateway/log_macros.h>
#include <gateway/wall_clock.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
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

constexpr auto kPauseBetweenWrites = std::chrono::minutes(1);
constexpr auto kLongestHold = std::chrono::minutes(10);
constexpr std::size_t kMaxKept = 256;
constexpr std::size_t kMaxKeptBytes = std::size_t{64} * 1024 * 1024;
constexpr const char* kInterrupted = "interrupted by a restart";

struct Message {
  std::string payload;
  bool isTaken = false;  // by the bridge
};

// What is known of an accepted deployment. It has messages once its report is written down; those
// that the bridge did not take stay for publishAgain.
struct Report {
  std::int64_t order = 0;  // of arrival
  std::string deployId;
  bool isAcceptedInStore = false;
  bool hasToWait = false;                           // the bridge has refused it, or the store
  std::chrono::steady_clock::time_point heldUntil;  // unless it is written before
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
  std::chrono::steady_clock::time_point nextWriteAgain;
};
Journal journal;

std::string keyOf(Ticket ticket) { return key::kDeploymentPrefix + std::to_string(ticket); }

// For the log. "" for those whose reports a former process wrote.
std::string deployIdOf(Ticket ticket) {
  const auto report = journal.reports.find(ticket);
  return report != journal.reports.end() ? report->second.deployId : "";
}

bool write(Ticket ticket, const std::string& text) {
  const std::string deployId = deployIdOf(ticket);
  const gateway::LogScope scope(gateway::LogSubject::kDeployment, deployId);
  if (setConfig(keyOf(ticket), text) == 0) {
    journal.unwritten.erase(ticket);
    const auto report = journal.reports.find(ticket);
    const bool isAcceptance = report != journal.reports.end() && report->second.messages.empty();
    if (isAcceptance) report->second.isAcceptedInStore = true;
    return true;
  }
  LOGE("%s could not be written, a restart would not know of it.\n", keyOf(ticket).c_str());
  journal.unwritten[ticket] = text;
  return false;
}

// Rarely, and no further than to the first failure: a store that is locked makes each of them wait.
void writeAgain() {
  const auto now = std::chrono::steady_clock::now();
  if (journal.unwritten.empty() || now < journal.nextWriteAgain) return;
  journal.nextWriteAgain = now + kPauseBetweenWrites;
  const auto texts = journal.unwritten;
  for (const auto& [ticket, text] : texts) {
    if (!write(ticket, text)) return;
  }
  journal.nextWriteAgain = {};
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
  static_cast<void>(write(ticket, "null"));  // every value of the store is JSON
  journal.reports.erase(ticket);
  journal.isUsed[static_cast<std::size_t>(ticket)] = false;
}

bool isTaken(const Message& message) { return message.isTaken; }

// Such a message would be tried again for ever.
bool isTooLong(const Message& message) { return message.payload.size() > kMaxPayload; }

void handleOutcome(Ticket ticket, std::size_t index, int code) {
  Report& report = journal.reports.at(ticket);
  const std::string deployId = report.deployId;  // the report may go
  const gateway::LogScope scope(gateway::LogSubject::kDeployment, deployId);
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
    report.hasToWait = true;
  }
  if (report.underWay > 0) return;
  const auto refused = std::find_if_not(report.messages.begin(), report.messages.end(), isTaken);
  if (refused == report.messages.end()) return letGo(ticket);
  // They are joined in their order, so all behind it come again, too.
  for (auto later = refused; later != report.messages.end(); ++later) later->isTaken = false;
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

// While the store has not taken a report, but says that its deployment was accepted, a restart
// would contradict it. A store that stays broken must not keep it for ever.
bool isHeld(Ticket ticket, const Report& report) {
  return report.isAcceptedInStore && journal.unwritten.contains(ticket) &&
         std::chrono::steady_clock::now() < report.heldUntil;
}

bool isReady(Ticket ticket, const Report& report) {
  return report.underWay == 0 && !report.messages.empty() && !isHeld(ticket, report);
}

// What the bridge did not take, or the store not before.
void publishKept() {
  std::map<std::int64_t, Ticket> kept;  // by order of arrival
  for (const auto& [ticket, report] : journal.reports) {
    if (isReady(ticket, report)) kept[report.order] = ticket;
  }
  for (const auto& [order, ticket] : kept) publishMessages(ticket);
}

// The next number, for the order of arrival over restarts.
std::int64_t nextOrder() {
  const auto now = gateway::wallClock().time_since_epoch();
  const std::int64_t clock = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
  journal.lastOrder = std::max(clock, journal.lastOrder + 1);
  return journal.lastOrder;
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
  journal.lastOrder = std::max(journal.lastOrder, report.order);
  if (entry.isMember("messages")) {
    for (const Json::Value& payload : entry["messages"]) {
      report.messages.push_back({payload.asString()});
    }
    publishMessages(ticket);
    return;
  }
  const std::string deployId = json::textOf(entry, "deployId");
  report.deployId = deployId;
  const gateway::LogScope scope(gateway::LogSubject::kDeployment, deployId);
  LOGW("deployment %s was interrupted by a restart.\n", deployId.c_str());
  Json::Value details =
      failedDetails(entry["deployType"].asInt(), entry["snapshotIds"], kInterrupted);
  reportDeployment({ticket, deployId, json::textOf(entry, "taskId"), entry["deployType"].asInt()},
                   details);
}

}  // namespace

Ticket acceptDeployment(const AcceptedDeployment& deployment) {
  const std::size_t before = journal.isUsed.size();
  const Ticket ticket = takeFreeSlot();
  const bool isNew = journal.isUsed.size() > before;
  const std::int64_t order = nextOrder();
  journal.reports[ticket].order = order;
  journal.reports[ticket].deployId = deployment.deployId;
  Json::Value entry;
  entry["order"] = Json::Int64{order};
  entry["deployId"] = deployment.deployId;
  entry["taskId"] = deployment.taskId;
  entry["deployType"] = deployment.deployType;
  entry["snapshotIds"] = deployment.snapshotIds;
  if (write(ticket, json::compact(entry)) || !isNew) return ticket;
  journal.unwritten.erase(ticket);
  journal.reports.erase(ticket);
  journal.isUsed.pop_back();
  return kNoTicket;
}

bool isReported(Ticket ticket) {
  const auto report = journal.reports.find(ticket);
  return report == journal.reports.end() || !report->second.messages.empty();
}

void publishReport(Ticket ticket, const std::vector<std::string>& payloads) {
  if (ticket == kNoTicket) {
    for (const std::string& payload : payloads) {
      publishAsync(gatewayTopic(topic::kDeployPost), payload, 1);
    }
    return;
  }
  publishKept();
  Report& report = journal.reports.at(ticket);
  Json::Value entry;
  entry["order"] = Json::Int64{report.order};
  for (const std::string& payload : payloads) {
    report.messages.push_back({payload});
    entry["messages"].append(payload);
  }
  report.heldUntil = std::chrono::steady_clock::now() + kLongestHold;
  static_cast<void>(write(ticket, json::compact(entry)));
  report.hasToWait = isHeld(ticket, report);
  if (!report.hasToWait) publishMessages(ticket);
}

void publishAgain() {
  try {
    writeAgain();
    publishKept();
  } catch (const std::exception& e) {
    LOGE("publishAgain Exception e = %s\n", e.what());
  }
}

bool isJournalFull() {
  std::size_t reports = 0;
  std::size_t bytes = 0;
  for (const auto& [ticket, report] : journal.reports) {
    if (!report.hasToWait) continue;
    ++reports;
    for (const Message& message : report.messages) bytes += message.payload.size();
  }
  return reports >= kMaxKept || bytes > kMaxKeptBytes;
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
