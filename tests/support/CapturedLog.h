/// What is written to standard error while this lives, the log's records above all.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace test {

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
    struct stat info {};
    fstat(file, &info);
    std::string all(static_cast<std::size_t>(info.st_size), '\0');
    all.resize(static_cast<std::size_t>(pread(file, all.data(), all.size(), 0)));
    return all;
  }

  /// How often `part` has been written so far.
  std::size_t count(std::string_view part) const {
    const std::string all = text();
    std::size_t found = 0;
    for (std::size_t at = all.find(part); at != std::string::npos;
         at = all.find(part, at + part.size())) {
      ++found;
    }
    return found;
  }
  bool has(std::string_view part) const { return count(part) > 0; }

 private:
  const int file;
  const int standardError;
};

}  // namespace test
