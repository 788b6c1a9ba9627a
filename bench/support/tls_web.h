#pragma once

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class SSLServer;
}

namespace bench {

/// Serves https://127.0.0.1:PORT/SIZE/SEED with a certificate of its own, and keeps connections.
class TlsWeb {
 public:
  TlsWeb();
  ~TlsWeb();
  TlsWeb(const TlsWeb&) = delete;
  TlsWeb& operator=(const TlsWeb&) = delete;

  int port() const { return portNumber; }

  /// The command that runs the one behind it where this server's certificate is the only trusted
  /// one.
  static std::vector<std::string> trusting();

 private:
  std::unique_ptr<httplib::SSLServer> server;
  int portNumber = 0;
  std::thread thread;
};

}  // namespace bench
