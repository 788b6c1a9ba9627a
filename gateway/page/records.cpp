#include "records.h"

#include <filesystem>

namespace gateway {

Records::Records(const std::string& path) : out(path, std::ios::app), in(path) {
  std::error_code ignored;
  std::filesystem::permissions(
      path, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write, ignored);
  for (std::string line; std::getline(in, line);) ends.push_back(in.tellg());
  // The last one has no end when the process was killed in it.
  if (!ends.empty() && ends.back() < 0) {
    out << '\n' << std::flush;
    ends.back() = static_cast<std::streamoff>(std::filesystem::file_size(path, ignored));
  }
}

void Records::add(const std::string& line) {
  const std::lock_guard guard(lock);
  // On a full disk there is no more to see.
  if (!(out << line << '\n' << std::flush)) return;
  const std::streamoff begin = ends.empty() ? 0 : ends.back();
  ends.push_back(begin + static_cast<std::streamoff>(line.size()) + 1);
}

std::size_t Records::size() const {
  const std::lock_guard guard(lock);
  return ends.size();
}

std::string Records::at(std::size_t number) const {
  const std::lock_guard guard(lock);
  std::string line;
  if (number >= ends.size()) return line;
  in.clear();
  in.seekg(number == 0 ? 0 : ends[number - 1]);
  std::getline(in, line);
  return line;
}

}  // namespace gateway
