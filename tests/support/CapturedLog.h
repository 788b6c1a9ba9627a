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

  /// How often `part` has been written so far; the lines of a message follow each other in it as
  /// the program gave them, without the marks that the log puts before each further line.
  std::size_t count(std::string_view part) const {
    const std::string all = text();
    constexpr std::string_view kMark = "\n  | ";
    std::string given;
    std::size_t from = 0;
    for (auto at = all.find(kMark); at != all.npos; at = all.find(kMark, from)) {
      given.append(all, from, at + 1 - from);
      from = at + kMark.size();
    }
    return countOf(given.append(all, from), part);
  }
  bool has(std::string_view part) const { return count(part) > 0; }

 private:
  const int file;
  const int standardError;
};

}  // namespace test
