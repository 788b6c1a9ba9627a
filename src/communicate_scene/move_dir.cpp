#include <dirent.h>
#include <gateway/log_macros.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

#include "communicate_scene/download.h"

namespace jobm {
namespace {

using PathBuffer = std::array<char, 512>;

bool isDots(const std::string& name) { return name == "." || name == ".."; }

std::string errorText(int number) { return std::generic_category().message(number); }

void moveEntry(const std::string& destination, const std::string& source, const char* name) {
  PathBuffer to{};
  PathBuffer from{};
  std::snprintf(to.data(), to.size(), "%s/%s", destination.c_str(), name);
  std::snprintf(from.data(), from.size(), "%s/%s", source.c_str(), name);
  if (std::remove(to.data()) != 0) {
    const int number = errno;
    LOGW("remove %s fail[%d], errstr => %s", to.data(), number, errorText(number).c_str());
  }
  if (std::rename(from.data(), to.data()) != 0) {
    const int number = errno;
    LOGW("rename %s => %s  fail[%d], errstr => %s", from.data(), to.data(), number,
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
