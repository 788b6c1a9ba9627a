/// Who on the bus wants which topics. Used on the bus thread only.
#pragma once

#include <map>
#include <set>
#include <string>

namespace gateway {

class Subscriptions {
 public:
  /// Subscriptions that are kept in `stateFile` and begin with what it holds; kept in memory only
  /// when it is empty. An unreadable file is an empty one.
  explicit Subscriptions(std::string stateFile);

  /// Notes that `busName` wants `filter` with the quality of service `qos`, replacing an earlier
  /// one.
  void add(const std::string& filter, const std::string& busName, int qos);

  /// Takes `busName` off `filter`. Returns true when nobody wants the filter any more; false also
  /// when it was not subscribed.
  bool remove(const std::string& filter, const std::string& busName);

  /// The quality to ask the broker for: the best that anyone wants.
  int qosOf(const std::string& filter) const;

  /// Every bus name with a filter that matches `topic`, each once.
  std::set<std::string> subscribersOf(const std::string& topic) const;

  std::set<std::string> filters() const;

 private:
  void save() const;

  const std::string stateFile;
  std::map<std::string, std::map<std::string, int>> names;  // filter -> bus name -> quality
};

}  // namespace gateway
