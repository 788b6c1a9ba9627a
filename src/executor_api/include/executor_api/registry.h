/// The registry of executors and parsers: services that run deployed jobs or process resources.
/// Registrations are kept in the configuration store and restored at start-up: a parser's in full,
/// an executor's without its entries in the watch table, so that it isn't called for its types
/// until it has registered anew. The listening thread owns the tables; a lock covers start-up, when
/// the main thread restores while the first registrations come in. Lookups return copies, so that a
/// reply handler never reaches into a table.
#pragma once

#include <json/value.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "dbus_wrap/DProxy.h"

namespace jobm {

/// How a record came to be.
enum class Origin { kLive, kRestored, kBuiltIn };

/// A registered executor or parser.
struct Executor {
  std::string name;  // well-known bus name
  std::string interface;
  std::string path;
  // Shared by the record, its copies and the calls in flight; a replaced one goes with the last of
  // them.
  std::shared_ptr<quillon::DProxy> proxy;
  std::string executorName;
  std::vector<std::string> storeType;
  std::vector<std::string> watchType;
  Origin origin = Origin::kLive;
};

/// Registers an executor or a parser. Returns "" or the text that says what is wrong with it. A
/// payload is stored before its address and types are checked, so one that is refused replaces what
/// was stored under its name: an executor's comes back unchecked at the next start, a parser's is
/// refused again and its name gone. Listening thread.
[[nodiscard]] std::string registerExecutor(const std::string& payload);
[[nodiscard]] std::string registerParser(const std::string& payload);

/// Stores an executor's registration. Returns the store's result, or 1 when the payload is not
/// JSON. For the registry, which holds its lock meanwhile, and its tests: the key is read and then
/// written.
[[nodiscard]] int saveExecutor2ConfigManager(const std::string& executorName,
                                             const std::string& payload);

/// What saveToConfigManager returns when it could not read what is stored, and left it alone. No
/// store's own result: of the same family as GATEWAY_CONFIG_UNREADABLE.
inline constexpr int kStoreUnreadable = -10601;

/// Sets member `name` of the JSON object under `key` to `value`; what is there and is not an object
/// counts as empty. Returns the store's result, kStoreUnreadable, or 1 when `value` is nested too
/// deep to be read back. As above.
[[nodiscard]] int saveToConfigManager(const std::string& key, const std::string& name,
                                      const Json::Value& value);

/// Restores what is stored, then installs the built-in executors and the watch types that are
/// always served. A service that registered by itself in the meantime keeps its newer record.
/// Returns false when the store could not be read: until then the built-in ones serve and those
/// that register, and this is to be called again. Main thread, at start-up.
[[nodiscard]] bool initAllExecutors();

/// Copies of what the tables hold. Any thread; may wait while a registration is being stored.
std::optional<Executor> getExecutor(const std::string& name);
std::optional<Executor> getParser(const std::string& name);

/// The names that serve a watch type, empty for an unknown one.
std::set<std::string> getExecutorsByWatchType(const std::string& watchType);
std::set<std::string> getParsersByWatchType(const std::string& watchType);

/// Every executor's record, in ascending order of the names.
std::vector<Executor> allExecutors();

}  // namespace jobm
