/// A web server that makes its answers up, so that neither disk nor file cache takes part.
#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

namespace bench {

/// The text that is served as number `seed`, `size` bytes long: JSON, different for every number.
std::string webText(std::size_t size, std::size_t seed);

/// Serves http://127.0.0.1:PORT/SIZE/SEED on a thread of its own, one connection after another.
/// Sizes of a MiB and more are the same MiB again and again.
class Web {
 public:
  Web();
  ~Web();
  Web(const Web&) = delete;
  Web& operator=(const Web&) = delete;

  /// Where the numbered texts are: http://127.0.0.1:PORT.
  std::string root() const;
  std::string url(std::size_t size, std::size_t seed) const;
  int port() const { return portNumber; }

 private:
  void serve();
  int listener = -1;
  int portNumber = 0;
  std::atomic<bool> stopping = false;
  std::thread thread;
};

}  // namespace bench
