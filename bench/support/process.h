/// Child processes, what they use, and the time that things take.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "neighbour/child.h"

namespace bench {

/// Seconds of the monotonic clock.
double now();

/// Waits, up to `seconds`, until `condition` holds; ends the program when it never does.
void await(const char* what, const std::function<bool()>& condition, double seconds = 120);

/// What a process uses; sizes in KiB, CPU time in seconds since its start.
struct Usage {
  double resident = 0;
  double anonymous = 0;
  double peak = 0;  // of the resident memory
  double cpu = 0;
  double switches = 0;
  double threads = 0;
  double descriptors = 0;
};
Usage usageOf(pid_t process);

/// CPU seconds of all children that have ended.
double cpuOfChildren();

/// Sets the peak of the resident memory back to what it is now.
void resetPeak(pid_t process);

using gateway::Child;

/// Runs a command and returns the wall-clock seconds it took; ends the program unless its status
/// is 0.
double timeCommand(const std::vector<std::string>& command);

/// The programs that were built beside this one.
std::string beside(const std::string& program);

/// Prints one figure for the report.
void sample(const std::string& row, const std::string& metric, const std::string& side,
            double value);

/// The `percent`-th percentile; sorts.
double percentile(std::vector<double>& values, double percent);

}  // namespace bench
