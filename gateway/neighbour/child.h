/// A program that runs beside this one.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace gateway {

/// A child process, ended with this object and with this process.
class Child {
 public:
  /// Starts `command` with its standard error in the file `log` (appended) and its standard output
  /// there, too, or in the pipe that readOutput reads.
  Child(const std::vector<std::string>& command, const std::string& log = "/dev/null",
        bool piped = false);
  ~Child();
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  pid_t id() const { return process; }
  void signal(int number) const;

  /// The pipe's end, to read from before its own end.
  int outputDescriptor() const { return output; }

  /// Everything that it writes, once it has ended; ends the program unless the status was 0.
  std::string readOutput();

  /// Waits for its end. Returns the exit status, or minus the signal that ended it.
  int wait();

  /// The same if it ends within `seconds`.
  std::optional<int> end(double seconds);

 private:
  bool hasEnded(int options);

  pid_t process = -1;
  int status = 0;
  int output = -1;
};

}  // namespace gateway
