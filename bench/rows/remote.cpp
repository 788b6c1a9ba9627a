// A deployment from a web server that is far away: over HTTPS, with a round trip of 50 ms.
#include "rows.h"
#include "support/deploy.h"
#include "support/far_away.h"
#include "support/process.h"
#include "support/tls_web.h"

namespace bench {

void remote(const Options& options) {
  constexpr double kRoundTrip = 0.05;
  const TlsWeb web;
  Gateway gateway;
  const std::size_t count = options.scaled(200);
  for (int run = 0; run < options.runs; ++run) {
    const FarAway farAway(web.port(), kRoundTrip);
    const Service service(gateway, "/dev/null", Service::kBenchExecutors, TlsWeb::trusting());
    const std::string root = "https://127.0.0.1:" + std::to_string(farAway.port());
    sample("remote", "s", "service", deploy(gateway, service, jobsOf(root, count, 0)));
    sample("remote", "s", "round trips", static_cast<double>(count) * kRoundTrip);
    sample("remote", "connections", "service", farAway.connections());
    gateway.dropHeartbeats();
  }
}

}  // namespace bench
