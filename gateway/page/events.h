/// What one open page is told, as server-sent events:
///
///   start    first: {"page", the one that serves; "numbers" or "count" of the records so far}
///   rows     rows of new records, see rowOf()
///   order    an event of an order, as the scheduler tells it
///   state    the gateway's state, as gateway-status tells it
#pragma once

#include <cstddef>
#include <string>

#include "feed.h"
#include "sight.h"

namespace gateway {

class Events {
 public:
  /// `page` changes with the process. One thread.
  Events(Feed& feed, Selection selection, std::string page);

  /// Waits for the next events; a comment when nothing happens for long.
  std::string next();

 private:
  std::string begin();
  std::string newRows(std::size_t end);

  Feed& feed;
  const Feed::Viewer viewer;
  Selection selection;
  const std::string page;
  bool hasBegun = false;
  Feed::Extent told;
};

}  // namespace gateway
