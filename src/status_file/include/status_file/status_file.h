/// The state of this process for whoever looks on, as docs/gateway-status.md describes it: the file
/// status.json in the folder that the environment's RUNTIME_DIRECTORY names (systemd's
/// RuntimeDirectory= sets it). Without that there is no file, and every function does nothing.
///
/// Whoever owns a piece of state puts it here when it changes. A thread writes the file, so that it
/// is current while the listening thread is busy with a download; it sleeps until something has
/// changed and writes at most once a second. A file that can't be written costs a log line and is
/// tried again every second.
///
/// Any thread may call these, with any lock held: they only note the change.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace jobm {

/// Reads RUNTIME_DIRECTORY and starts the thread. Once, on the main thread, before any other.
void startStatusFile();

/// Whether there is a file: for callers to whom a value costs something.
bool hasStatusFile();

/// Sets `member`.
void setStatus(const char* member, const Json::Value& value);

/// Sets `member` to an object of `word` as "state" and the time at which it became so as "since".
/// The same word again changes nothing.
void setStatusWord(const char* member, const std::string& word);

/// Sets the entry `name` of the object `member`.
void setStatusEntry(const char* member, const std::string& name, const Json::Value& value);

/// Adds `outcome`, with the time as "finished", to the last deployments, of which ten are kept.
void addStatusOutcome(Json::Value&& outcome);

/// The time now in UTC, "2026-01-31T23:59:59Z".
std::string statusTime();

}  // namespace jobm
