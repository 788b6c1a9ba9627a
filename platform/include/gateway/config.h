/// The gateway's configuration store. On a gateway its own library stands behind this header;
/// elsewhere the embedded one does.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef struct DBusConnection DBusConnection;

/// Reads `key`. On success returns 0 and sets *value to a zero-terminated text that the caller
/// frees with free(); otherwise (absent key, unreadable or locked store) returns another number and
/// leaves *value alone. `timeout_ms` is how long a locked store is waited for. The connection is
/// the one that a gateway's own library talks over, or null when the bus could not be reached;
/// calls on one connection are serialised by the caller.
int get_config(DBusConnection* connection, const char* key, char** value, int timeout_ms);

/// Writes `key`. Returns 0 when the value is stored and survives a power cut, otherwise another
/// number.
int set_config(DBusConnection* connection, const char* key, const char* value, int timeout_ms);

#ifdef __cplusplus
}
#endif
