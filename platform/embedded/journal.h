/// The system's journal, where standard error is connected to it: one entry a record instead of
/// one a line, with priority and origin. Any thread, but not inside a signal handler.
#pragma once

#include <cstddef>

namespace journal {

/// Where a record comes from, as log_print was told.
struct Origin {
  int level;
  const char* path;
  const char* function;
  int line;
};

/// What the text of an entry begins with.
inline constexpr const char* kMessageField = "MESSAGE=";

/// True when standard error leads to the journal: the environment's JOURNAL_STREAM names it, and
/// the journal can be reached. Found out once, at the first call or at the first after open().
bool isUsed();

/// Names the entries' program from now on; `identifier` lives as long as the program. Until then
/// they have the name of the executable.
void open(const char* identifier);

/// Sends one entry. `message` begins with kMessageField. False when the journal did not take it.
bool send(const Origin& origin, const char* message, std::size_t length);

}  // namespace journal
