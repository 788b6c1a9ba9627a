#include <dirent.h>
#include <gateway/log_macros.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

#include "communicate_scene/download.h"

namespace jobm {
namespace {

constexpr std::size_t kMaxPath = 511;

bool isDots(const std::string& name) { return name == "." || name == ".."; }

std::string errorText(int number) { return std::generic_category().message(number); }

void moveEntry(const std::string& destination, const std::string& source, const char* name) {
  const std::string to = destination + "/" + name;
  const std::string from = source + "/" + name;
  // Cut, they would be other paths.
  if (std::max(to.size(), from.size()) > kMaxPath) {
    LOGW("path too long, not moved: %s => %s", from.c_str(), to.c_str());
    return;
  }
  if (std::remove(to.c_str()) != 0) {
    const int number = errno;
    LOGW("remove %s fail[%d], errstr => %s", to.c_str(), number, errorText(number).c_str());
  }
  if (std::rename(from.c_str(), to.c_str()) != 0) {
    const int number = errno;
    LOGW("rename %s => %s  fail[%d], errstr => %s", from.c_str(), to.c_str(), number,
         errorText(number).c_str());
  }
}

}  // namespace

int jobm_move_dir(const std::string& destination, const std::string& source) {
  DIR* directory = opendir(source.c_str());
  if (directory == nullptr) return -1;
  while (const dirent* entry = readdir(directory)) {
    if (!isDots(entry->d_name)) moveEntry(destination, source, entry->d_name);
  }
  return closedir(directory);
}

}  // namespace jobm
