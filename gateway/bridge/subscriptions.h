/// Who on the bus wants which topics. Used on the bus thread only.
#pragma once

#include <map>
#include <set>
#include <string>

#include "store.h"

namespace gateway {

class Subscriptions {
 public:
  /// Begins with what an earlier bridge left in `store`, which must be open and outlive this. To be
  /// called first.
  void restore(const Store& store);

  /// Notes that `busName` wants `filter` with the quality of service `qos`, replacing an earlier
  /// one. Returns false when that would not outlive the bridge; nothing has changed then.
  bool add(const std::string& filter, const std::string& busName, int qos);

  /// Takes `busName` off `filter`. Returns true when nobody wants the filter any more; false also
  /// when it was not subscribed.
  bool remove(const std::string& filter, const std::string& busName);

  /// The quality to ask the broker for: the best that anyone wants.
  int qosOf(const std::string& filter) const;

  /// Every bus name with a filter that matches `topic`, each once.
  std::set<std::string> subscribersOf(const std::string& topic) const;

  std::set<std::string> filters() const;

 private:
  Statement insertion;
  Statement deletion;
  std::map<std::string, std::map<std::string, int>> names;  // filter -> bus name -> quality
};

}  // namespace gateway
