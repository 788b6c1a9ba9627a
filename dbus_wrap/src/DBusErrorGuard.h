#pragma once

#include <dbus/dbus.h>

namespace quillon {

/// A libdbus error that frees itself. One thread.
class DBusErrorGuard {
 public:
  DBusErrorGuard() { dbus_error_init(&error); }
  ~DBusErrorGuard() { dbus_error_free(&error); }
  DBusErrorGuard(const DBusErrorGuard&) = delete;
  DBusErrorGuard& operator=(const DBusErrorGuard&) = delete;

  DBusError* get() { return &error; }
  bool isSet() const { return dbus_error_is_set(&error); }
  const char* message() const { return error.message; }

 private:
  DBusError error{};
};

}  // namespace quillon
