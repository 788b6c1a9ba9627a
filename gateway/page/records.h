/// Everything that was seen of the gateway, in the order in which it came. It grows without an end,
/// so it lies in a file, and where each of its lines begins in memory.
#pragma once

#include <cstddef>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

namespace gateway {

class Records {
 public:
  /// Goes on with what an earlier process has left in the file `path`.
  explicit Records(const std::string& path);

  /// Appends `line`, which has no line end in it. Any thread.
  void add(const std::string& line);

  /// How many there are. Any thread.
  std::size_t size() const;

  /// The line with this number, counted from 0; empty when there is none. Any thread.
  std::string at(std::size_t number) const;

 private:
  mutable std::mutex lock;  // guards what follows
  std::ofstream out;
  mutable std::ifstream in;
  std::vector<std::streamoff> ends;  // of each line, behind its line end
};

}  // namespace gateway
