/// The rows of the table. Each prints the figures of its runs; in every run the service and its
/// floors take turns.
#pragma once

#include <cstddef>

namespace bench {

/// What floors wait by, as bench-floor and bench-latency call it; their sides in the samples begin
/// with it.
inline constexpr const char* kShapes[] = {"polling", "events"};

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
void idle3(const Options& options);
void idle20(const Options& options);
void idle100(const Options& options);
void unconfigured(const Options& options);
void remote(const Options& options);
void start(const Options& options);
void registrations(const Options& options);

}  // namespace bench
