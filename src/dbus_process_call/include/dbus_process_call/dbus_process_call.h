/// Calls to the neighbouring services. Each builds one bus message, sends it over a process-wide
/// proxy and turns the answer into a plain result. After the watchdog's terminate order there are
/// no proxies: every call then does nothing and returns its failure value. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "dbus_wrap/DMessage.h"

namespace jobm {

/// The longest payload, in bytes, that is sure to fit into a call beside its topic.
inline constexpr std::size_t kMaxPayload = quillon::DMessage::kMaxBytes - 4096;

/// Publishes through the MQTT bridge and waits for its answer. Returns the bridge's code, 0 for
/// success, or -1 without a readable answer. Nothing calls this yet.
int publish(const std::string& topic, const std::string& payload, int qos);

/// Publishes through the MQTT bridge without waiting; the outcome is only logged.
void publishAsync(const std::string& topic, const std::string& payload, int qos);

/// Takes the bridge's code, or -1 when its answer is missing or unreadable. Listening thread.
using PublishOutcome = std::function<void(int code)>;

/// The same for a caller that needs the outcome: it is called once, never from inside this call.
void publishAsync(const std::string& topic, const std::string& payload, int qos,
                  const PublishOutcome& outcome);

/// Has the bridge deliver the messages of `topic` to the bus name `subscriber`. Blocks; result as
/// publish.
int subscribe(const std::string& topic, const std::string& subscriber, int qos);

/// Ends a subscription. Blocks; result as publish. Nothing calls this yet.
int unSubscribe(const std::string& topic, const std::string& subscriber);

/// The code in a bridge's answer, -1 for an empty or unreadable one. `name` is the caller's, for a
/// debugger; the log lines say "publish" for all of them, see "Log lines in another's name" in
/// docs/architecture.md.
int parseProxyRetCode(const std::shared_ptr<quillon::DMessage>& reply, const char* name);

/// What a read of the configuration store came to.
enum class ConfigState {
  kFound,
  kAbsent,  // also where the gateway's library can't tell an absent key from an unreadable store
  kUnreadable,
};

/// `value` is empty unless the key was found.
struct ConfigRead {
  ConfigState state = ConfigState::kUnreadable;
  std::string value;
};

/// Reads `key` from the configuration store. Waits up to 10 s for a locked one. A key that could
/// not be read may have a value, and must not be written over.
[[nodiscard]] ConfigRead readConfig(const std::string& key);

/// The value of `key`, "" when it is absent or can't be read; for readers that treat both alike.
std::string getConfig(const std::string& key);

/// Writes `key`. Returns 0, or the store's error. Waits up to 10 s for a locked store.
int setConfig(const std::string& key, const std::string& value);

/// True for the keys of this service's own identity and registry, which nothing that came from the
/// cloud or a registration may overwrite.
bool isReservedKey(std::string_view key);

/// setConfig for a key that came from outside: fails with -1 for a reserved one.
[[nodiscard]] int setForeignConfig(const std::string& key, const std::string& value);

/// Tells the watchdog that `name` lives and will feed it again within `seconds`.
void feedDog(const std::string& name, int seconds);

/// Emits the signal prefix + "_Event_Invoke" with the payload for the interface word given.
void deliveryInfoToNodeEngineBySignal(const std::string& interface, const std::string& payload,
                                      const std::string& prefix);

/// Emits the signal executor + "_Event". `parentGroupIds`, if not empty, is the text of a JSON
/// object whose member of that name is sent in its place. Nothing calls this yet.
void sendSignalToDBus(std::int64_t ackId, int ackCode, std::int64_t jobId,
                      const std::string& executor, const std::string& path, const std::string& type,
                      std::int64_t groupId, const std::string& parentGroupIds,
                      const std::string& sceneId);

/// Emits the signal "NodeEngine_Config_Event". Nothing calls this yet.
void sendGroupConfigToDBus(std::int64_t ackId, int ackCode, std::int64_t jobId,
                           const std::string& executor, const std::string& groupPath);

/// Sends one record to the gateway's log service, over a proxy made for this one call.
/// Nothing calls this yet.
void sendSignalToLog(int level, const std::string& tag, const std::string& file,
                     const std::string& func, const std::string& line, const std::string& message);

}  // namespace jobm
