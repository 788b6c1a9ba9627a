/// What the configuration store says of the service. Nothing is written.
#pragma once

#include <dbus/dbus.h>
#include <json/value.h>

#include <string>

namespace gateway {

class StoreView {
 public:
  /// `bus` is the connection that a gateway's own library talks over, or null.
  explicit StoreView(DBusConnection* bus) : connection(bus) {}

  /// The value of `key`, "" without one.
  std::string read(const std::string& key);

  /// False once something could not be read.
  bool isReadable() const { return readable; }

  /// The registrations under `key`, in the form of status.json but without what only the service
  /// knows; empty when they can't be read.
  Json::Value registrations(const std::string& key);

  /// How many jobs an executor holds.
  Json::Int64 jobsOf(const std::string& executor);

  /// The accepted deployments that the cloud has no report of: a list of objects, with "deployId"
  /// as long as no report is written, and with "state", "accepted" or "reported".
  Json::Value unreportedDeployments();

 private:
  DBusConnection* const connection;
  bool readable = true;
};

}  // namespace gateway
