/// What is written to standard error while this lives, the log's records above all.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "lib/file_text.h"

namespace test {

/// How often `part` is in `all`.
inline std::size_t countOf(const std::string& all, std::string_view part) {
  std::size_t found = 0;
  for (auto at = all.find(part); at != std::string::npos; at = all.find(part, at + part.size())) {
    ++found;
  }
  return found;
}

/// One at a time; other threads may go on writing.
class CapturedLog {
 public:
  CapturedLog() : file(memfd_create("log", MFD_CLOEXEC)), standardError(dup(STDERR_FILENO)) {
    fcntl(file, F_SETFL, O_APPEND);  // records of several threads never overwrite each other
    dup2(file, STDERR_FILENO);
  }
  /// Puts the records where they belong after all, for whoever reads why a test failed.
  ~CapturedLog() {
    dup2(standardError, STDERR_FILENO);
    const std::string all = text();
    static_cast<void>(!write(STDERR_FILENO, all.data(), all.size()));
    close(standardError);
    close(file);
  }
  CapturedLog(const CapturedLog&) = delete;
  CapturedLog& operator=(const CapturedLog&) = delete;

  std::string text() const {
    std::string all;
    jobm::readFile("/proc/self/fd/" + std::to_string(file), all);
    return all;
  }

  /// How often `part` has been written so far. Its lines are those that the program gave, without
  /// the mark that the log puts before each further line of a message.
  std::size_t count(std::string part) const {
    for (auto end = part.find('\n'); end < part.size() - 1; end = part.find('\n', end + 1)) {
      part.insert(end + 1, "  | ");
    }
    return countOf(text(), part);
  }
  bool has(const std::string& part) const { return count(part) > 0; }

 private:
  const int file;
  const int standardError;
};

}  // namespace test
