// Registering the same executor again and again leaves nothing behind.
#include <string>

#include "rows.h"
#include "support/gateway.h"
#include "support/process.h"

namespace bench {
namespace {

void measure(Service& service, const char* kind, std::size_t count, bool isChanging) {
  const auto registerAt = [&](std::size_t address) {
    service.call("registerExecutor",
                 registration("again", {"again"}, "/bench/a" + std::to_string(address)));
  };
  // What the first ones allocate for good is not what the many leave behind.
  for (std::size_t i = 0; i < 20; ++i) registerAt(isChanging ? i : 0);
  service.awaitHandled();
  const pid_t process = service.child().id();
  const Usage before = usageOf(process);
  const double begin = now();
  for (std::size_t i = 0; i < count; ++i) registerAt(isChanging ? i % 100 : 0);
  const double seconds = now() - begin;
  // A released proxy lets go of its worker and its connections a few turns of the loop later.
  await(
      "threads or descriptors are left",
      [&] {
        const Usage now = usageOf(process);
        return now.threads <= before.threads && now.descriptors <= before.descriptors;
      },
      10);
  const Usage after = usageOf(process);
  const std::string prefix = std::string(kind) + ": ";
  sample("registrations", prefix + "registrations/s", "service",
         static_cast<double>(count) / seconds);
  sample("registrations", prefix + "threads left", "service", after.threads - before.threads);
  sample("registrations", prefix + "descriptors left", "service",
         after.descriptors - before.descriptors);
  sample("registrations", prefix + "memory left KiB", "service", after.resident - before.resident);
}

}  // namespace

void registrations(const Options& options) {
  Gateway gateway;
  Service service(gateway);
  const std::size_t count = options.scaled(10000);
  for (int run = 0; run < options.runs; ++run) {
    measure(service, "same address", count, false);
    measure(service, "changing address", count, true);
  }
}

}  // namespace bench
