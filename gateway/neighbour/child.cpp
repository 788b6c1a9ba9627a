#include "child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "bus.h"

namespace gateway {
namespace {

// Between fork and exec, of which a process with several threads may allocate nothing.
[[noreturn]] void become(char* const* arguments, const char* log, int out) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const int file = open(log, O_WRONLY | O_CREAT | O_APPEND, 0644);
  dup2(file, STDERR_FILENO);
  dup2(out >= 0 ? out : file, STDOUT_FILENO);
  // Libraries open some that would outlive this process in its children.
  close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
  std::signal(SIGPIPE, SIG_DFL);
  execvp(arguments[0], arguments);
  _exit(127);
}

std::vector<char*> argumentsOf(const std::vector<std::string>& command) {
  std::vector<char*> arguments;
  arguments.reserve(command.size() + 1);
  for (const std::string& word : command) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  return arguments;
}

void awaitEnd(pid_t process, int milliseconds) {
  // By its number: the C library's function is declared without C linkage here.
  pollfd ended{static_cast<int>(syscall(SYS_pidfd_open, process, 0)), POLLIN, 0};
  require(ended.fd >= 0, "no descriptor of a process");
  poll(&ended, 1, milliseconds);
  close(ended.fd);
}

}  // namespace

Child::Child(const std::vector<std::string>& command, const std::string& log, bool piped) {
  int ends[2] = {-1, -1};
  if (piped) require(pipe2(ends, O_CLOEXEC) == 0, "no pipe");
  const std::vector<char*> arguments = argumentsOf(command);
  process = fork();
  if (process == 0) become(arguments.data(), log.c_str(), ends[1]);
  require(process > 0, "no process");
  if (ends[1] >= 0) close(ends[1]);
  output = ends[0];
}

Child::~Child() {
  if (output >= 0) close(output);
  signal(SIGKILL);
  wait();
}

void Child::signal(int number) const {
  if (process > 0) kill(process, number);
}

bool Child::hasEnded(int options) {
  int raw = 0;
  if (process > 0 && waitpid(process, &raw, options) == process) {
    process = -1;
    status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -WTERMSIG(raw);
  }
  return process < 0;
}

int Child::wait() {
  hasEnded(0);
  return status;
}

std::optional<int> Child::end(double seconds) {
  if (process > 0) awaitEnd(process, static_cast<int>(seconds * 1000));
  return hasEnded(WNOHANG) ? std::optional(status) : std::nullopt;
}

std::string Child::readOutput() {
  std::string text;
  char buffer[4096];
  for (ssize_t got = 0; (got = read(output, buffer, sizeof buffer)) > 0;) {
    text.append(buffer, static_cast<std::size_t>(got));
  }
  require(wait() == 0, "a program failed");
  return text;
}

}  // namespace gateway
