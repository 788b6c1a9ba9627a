/// The rows of the table. Each prints the figures of its runs; in every run the service and its
/// floor take turns.
#pragma once

#include <cstddef>

namespace bench {

struct Options {
  int runs = 5;
  bool isShort = false;  // one tenth of the work or less: whether it runs, not how fast

  std::size_t scaled(std::size_t count, std::size_t divisor = 20) const {
    return isShort ? count / divisor : count;
  }
};

void calls(const Options& options);
void signals(const Options& options);
void latency(const Options& options);
void deployment(const Options& options);
void deletes(const Options& options);
void download(const Options& options);
void checksum(const Options& options);
void unzip(const Options& options);
void decryption(const Options& options);
void idle(const Options& options);
void start(const Options& options);
void registrations(const Options& options);

}  // namespace bench
