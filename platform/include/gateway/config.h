/// The gateway's configuration store. On a gateway its own library stands behind this header;
/// elsewhere the embedded one does.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef struct DBusConnection DBusConnection;

/// What get_config returns when it could not find out whether the key is there. No number that a
/// library is likely to return for anything else.
#define GATEWAY_CONFIG_UNREADABLE (-10600)

/// Reads `key`. On success returns 0 and sets *value to a zero-terminated text that the caller
/// frees with free(); otherwise returns another number and leaves *value alone:
///
/// - GATEWAY_CONFIG_UNREADABLE: the store could not be read (locked, damaged, out of reach, out of
///   memory), and the key may well have a value. The caller then writes nothing over it.
/// - any other number: the key has no value. The caller may give it its first one. A library that
///   can't tell a missing key from a store that it could not read returns such a number for both;
///   an unreadable store then counts as one without the key.
///
/// `timeout_ms` is how long a locked store is waited for. The connection is the one that a
/// gateway's own library talks over, or null when the bus could not be reached; calls on one
/// connection are serialised by the caller.
int get_config(DBusConnection* connection, const char* key, char** value, int timeout_ms);

/// Writes `key`. Returns 0 when the value is stored and survives a power cut, otherwise another
/// number.
int set_config(DBusConnection* connection, const char* key, const char* value, int timeout_ms);

#ifdef __cplusplus
}
#endif
