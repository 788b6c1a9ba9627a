/// The page over HTTP, for browsers of this machine.
#pragma once

#include "commands.h"
#include "feed.h"

namespace gateway {

/// Prints the page's address, with the port of the loopback interface, 0: a free one, and serves it
/// for ever. Returns only when that can't be, and says why.
void servePage(Feed& feed, const Places& places, int port);

}  // namespace gateway
