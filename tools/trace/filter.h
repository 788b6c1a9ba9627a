/// Which calls and signals are asked for.
#pragma once

#include <set>
#include <string>

#include "record.h"

namespace gateway {

struct Wanted {
  std::string job;       // empty: any
  std::string resource;  // likewise
  std::string executor;  // likewise
};

/// One thread.
class Filter {
 public:
  explicit Filter(Wanted wanted);

  /// Whether there is nothing that a record could be left out for.
  bool isOpen() const;

  /// Whether a call or signal is about all that is wanted. A job is known by each of its ids; a
  /// message that names it tells the ids of its resources, too.
  bool passes(const Record& record);

 private:
  bool isAboutJob(const Json::Value& arguments);

  const Wanted wanted;
  std::set<std::string> jobIds;
};

}  // namespace gateway
