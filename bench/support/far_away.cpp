#include "far_away.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "bus.h"
#include "process.h"

namespace bench {
namespace {

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

int makeSocket() {
  const int made = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  require(made >= 0, "no socket");
  return made;
}

void sendAtOnce(int descriptor) {
  const int yes = 1;
  setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
}

}  // namespace

FarAway::FarAway(int port, double roundTripSeconds)
    : target(port),
      halfTrip(roundTripSeconds / 2),
      listener(makeSocket()),
      stop(eventfd(0, EFD_CLOEXEC)) {
  sockaddr_in address = loopback(0);
  socklen_t length = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  require(bind(listener, generic, length) == 0 && listen(listener, 64) == 0, "no relay");
  getsockname(listener, generic, &length);
  portNumber = ntohs(address.sin_port);
  thread = std::thread([this] { run(); });
}

FarAway::~FarAway() {
  eventfd_write(stop, 1);
  thread.join();
  for (const Road& road : roads) {
    close(road.there.from);
    close(road.back.from);
  }
  close(listener);
  close(stop);
}

void FarAway::accept() {
  const int near = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
  const int far = makeSocket();
  sockaddr_in address = loopback(target);
  const bool isConnected = connect(far, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  require(near >= 0 && isConnected, "nobody there");
  sendAtOnce(near);
  sendAtOnce(far);
  const double opened = now() + 2 * halfTrip;
  roads.push_back({{near, far, opened, {}, false}, {far, near, 0, {}, false}});
  ++count;
}

void FarAway::take(Lane& lane) const {
  char buffer[65536];
  const ssize_t got = recv(lane.from, buffer, sizeof buffer, MSG_DONTWAIT);
  if (got < 0 && errno == EAGAIN) return;
  lane.hasEnded = got <= 0;
  const auto length = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
  lane.chunks.push_back({std::max(now(), lane.opened) + halfTrip, {buffer, length}});
}

// Returns whether this direction is over.
bool FarAway::deliver(Lane& lane) {
  while (!lane.chunks.empty() && lane.chunks.front().due <= now()) {
    const Chunk chunk = std::move(lane.chunks.front());
    lane.chunks.pop_front();
    if (chunk.bytes.empty()) {
      shutdown(lane.to, SHUT_WR);
    } else {
      // To a peer that has gone nothing is delivered.
      send(lane.to, chunk.bytes.data(), chunk.bytes.size(), MSG_NOSIGNAL);
    }
  }
  return lane.hasEnded && lane.chunks.empty();
}

// Until something comes or is due.
void FarAway::waitForTraffic() {
  std::vector<pollfd> watched{{stop, POLLIN, 0}, {listener, POLLIN, 0}};
  double due = INFINITY;
  for (const Road& road : roads) {
    for (const Lane* lane : {&road.there, &road.back}) {
      if (!lane->hasEnded) watched.push_back({lane->from, POLLIN, 0});
      if (!lane->chunks.empty()) due = std::min(due, lane->chunks.front().due);
    }
  }
  const double left = std::max(due - now(), 0.0);
  const timespec pause{static_cast<time_t>(std::min(left, 1e6)),
                       static_cast<long>(std::fmod(std::min(left, 1e6), 1.0) * 1e9)};
  ppoll(watched.data(), watched.size(), std::isinf(due) ? nullptr : &pause, nullptr);
}

void FarAway::run() {
  const auto isPending = [](int descriptor) {
    pollfd watched{descriptor, POLLIN, 0};
    return poll(&watched, 1, 0) > 0;
  };
  while (!isPending(stop)) {
    waitForTraffic();
    if (isPending(listener)) accept();
    roads.remove_if([this](Road& road) {
      for (Lane* lane : {&road.there, &road.back}) {
        if (!lane->hasEnded) take(*lane);
      }
      const bool thereIsOver = deliver(road.there);
      const bool backIsOver = deliver(road.back);
      if (!thereIsOver || !backIsOver) return false;
      close(road.there.from);
      close(road.back.from);
      return true;
    });
  }
}

}  // namespace bench
