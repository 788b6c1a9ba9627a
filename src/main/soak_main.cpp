// The same service with short periods, for endurance tests.
#include "main/startup.h"

int main() {
  using std::chrono::milliseconds;
  jobm::runService({milliseconds(500), milliseconds(250)});
}
