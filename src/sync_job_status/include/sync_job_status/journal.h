/// The accepted deployments that the cloud has no report of yet. Each is kept in the configuration
/// store from before its acceptance until the bridge has taken its report, so that whatever ends
/// the process in between costs none: the next start sends a written report again, and reports as
/// failed what had none.
///
/// A deployment has a slot of its own, the lowest free number behind the key's prefix. Slots are
/// never deleted, only emptied, so that those in use at a kill are found by counting up to the
/// first that was never used. Listening thread, unless a function says otherwise.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace jobm {

/// The number of a deployment's slot.
using Ticket = int;
/// The ticket of a deployment that is not in the journal: its report is sent once and not kept.
inline constexpr Ticket kNoTicket = -1;

/// What a report of an interrupted deployment needs.
struct AcceptedDeployment {
  std::string deployId;
  std::string taskId;
  int deployType = 0;
  Json::Value snapshotIds{Json::arrayValue};
};

/// Writes the deployment down; one durable write. If that fails it is logged, and the deployment
/// still gets a ticket, because the write of its report may succeed; except in a slot that was
/// never used, which would hide those behind it from the next start.
[[nodiscard]] Ticket acceptDeployment(const AcceptedDeployment& deployment);

/// Publishes the messages of a deployment's report, in order, after writing them down: one durable
/// write, and another one when the bridge has taken the last of them. A report that the store does
/// not take, though it knows of the deployment, is held back until it does, ten minutes at most.
void publishReport(Ticket ticket, const std::vector<std::string>& payloads);

/// False when the deployment is in the journal and its report is still to come.
[[nodiscard]] bool isReported(Ticket ticket);

/// Publishes again what the bridge did not take, and writes again what the store did not. Call it
/// when something shows that the cloud can be reached. Throws nothing.
void publishAgain();

/// Whether as many reports as may (256, or 64 MiB) have to wait for a bridge that has refused them,
/// or for the store: nothing further should be accepted.
[[nodiscard]] bool isJournalFull();

/// What a former process left: one entry a slot.
using Slots = std::vector<Json::Value>;

/// Reads what a former process left. Tries once a second until the store can be read. Main thread,
/// at start-up.
[[nodiscard]] Slots readJournal();

/// Takes over what readJournal read, and reports all of it in the order of arrival. Once, before
/// anything is accepted.
void reportInterrupted(const Slots& slots);

}  // namespace jobm
