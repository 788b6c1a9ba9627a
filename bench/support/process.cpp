#include "process.h"

#include <sys/resource.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "bus.h"

namespace bench {
namespace {

namespace fs = std::filesystem;

std::string procOf(pid_t process) { return "/proc/" + std::to_string(process); }

// The sum of the lines "Key: number" of a status file whose key is in `keys`.
double statusSum(const fs::path& file, const std::vector<std::string>& keys) {
  std::ifstream status(file);
  double sum = 0;
  for (std::string line; std::getline(status, line);) {
    const std::string key = line.substr(0, line.find(':'));
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) continue;
    sum += std::strtod(line.c_str() + key.size() + 1, nullptr);
  }
  return sum;
}

}  // namespace

double now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void await(const char* what, const std::function<bool()>& condition, double seconds) {
  const double end = now() + seconds;
  while (!condition()) {
    require(now() < end, what);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

Usage usageOf(pid_t process) {
  const fs::path proc = procOf(process);
  Usage usage;
  usage.resident = statusSum(proc / "status", {"VmRSS"});
  usage.anonymous = statusSum(proc / "status", {"RssAnon"});
  usage.peak = statusSum(proc / "status", {"VmHWM"});
  for (const auto& task : fs::directory_iterator(proc / "task")) {
    ++usage.threads;
    usage.switches += statusSum(task.path() / "status",
                                {"voluntary_ctxt_switches", "nonvoluntary_ctxt_switches"});
    double nanoseconds = 0;
    std::ifstream(task.path() / "schedstat") >> nanoseconds;
    usage.cpu += nanoseconds * 1e-9;
  }
  for ([[maybe_unused]] const auto& file : fs::directory_iterator(proc / "fd")) {
    ++usage.descriptors;
  }
  return usage;
}

double cpuOfChildren() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void resetPeak(pid_t process) { std::ofstream(procOf(process) + "/clear_refs") << "5"; }

double timeCommand(const std::vector<std::string>& command) {
  const double begin = now();
  Child child(command);
  require(child.wait() == 0, command[0].c_str());
  return now() - begin;
}

std::string beside(const std::string& program) {
  static const fs::path folder = fs::read_symlink("/proc/self/exe").parent_path();
  return folder / program;
}

void sample(const std::string& row, const std::string& metric, const std::string& side,
            double value) {
  std::printf("%s\t%s\t%s\t%.9g\n", row.c_str(), metric.c_str(), side.c_str(), value);
  std::fflush(stdout);
}

double percentile(std::vector<double>& values, double percent) {
  require(!values.empty(), "nothing was measured");
  std::sort(values.begin(), values.end());
  const double rank = std::ceil(percent / 100 * static_cast<double>(values.size()));
  return values[static_cast<std::size_t>(std::max(rank, 1.0)) - 1];
}

}  // namespace bench
