// wait-for-bus SOCKET [SECONDS]: ends with status 0 as soon as a bus daemon answers at SOCKET, with
// 1 when none did within SECONDS (30), or its folder was removed. For the service's unit: a service
// that starts without its bus stays without one.

#include <dbus/dbus.h>
#include <poll.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kDefaultLimit{30};
// No event tells that a daemon has begun to listen, a moment after it made its socket, or that a
// folder has been made which could not be watched.
constexpr milliseconds kLongestWait{1000};
constexpr int kUsage = 2;

// The daemon's greeting is the proof: a socket may be left of one that is gone.
bool answers(const std::string& socket) {
  DBusConnection* connection =
      dbus_connection_open_private(("unix:path=" + socket).c_str(), nullptr);
  if (connection == nullptr) return false;
  const bool greeted = dbus_bus_register(connection, nullptr);
  dbus_connection_set_exit_on_disconnect(connection, FALSE);
  dbus_connection_close(connection);
  dbus_connection_unref(connection);
  return greeted;
}

// Watches the folder of a socket.
class Folder {
 public:
  explicit Folder(const std::filesystem::path& socket)
      : path(socket.parent_path()), events(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {}
  ~Folder() { close(events); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  // Comes back when something in the folder appeared or changed, or after `limit`. From the first
  // call on nothing is missed between two calls.
  void awaitChange(milliseconds limit) const {
    inotify_add_watch(events, path.c_str(), IN_CREATE | IN_MOVED_TO | IN_ATTRIB);
    pollfd waiting{events, POLLIN, 0};
    poll(&waiting, 1, static_cast<int>(limit.count()));
    std::array<char, 4096> seen;
    while (read(events, seen.data(), seen.size()) > 0) {
    }
  }

  // Whether what the path leads to is removed: it is bound into the unit's view of the file system,
  // which never gets to see a folder that is made anew.
  bool isRemoved() const {
    struct stat info {};
    return stat(path.c_str(), &info) == 0 && info.st_nlink == 0;
  }

 private:
  const std::filesystem::path path;
  const int events;
};

bool awaitDaemon(const std::string& socket, seconds limit) {
  const Clock::time_point end = Clock::now() + limit;
  const Folder folder(socket);
  folder.awaitChange(milliseconds(0));
  if (answers(socket)) return true;
  std::fprintf(stderr, "wait-for-bus: waiting for a daemon that answers at %s\n", socket.c_str());
  while (Clock::now() < end) {
    const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
    folder.awaitChange(std::min(left, kLongestWait));
    if (answers(socket)) return true;
    if (folder.isRemoved()) {
      std::fprintf(stderr, "wait-for-bus: the folder of %s is gone\n", socket.c_str());
      return false;
    }
  }
  std::fprintf(stderr, "wait-for-bus: none within %lld s\n", static_cast<long long>(limit.count()));
  return false;
}

int run(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: wait-for-bus SOCKET [SECONDS]\n");
    return kUsage;
  }
  const seconds limit = argc == 3 ? seconds(std::atoi(argv[2])) : kDefaultLimit;
  return awaitDaemon(argv[1], limit) ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "wait-for-bus: %s\n", e.what());
    return 1;
  }
}
