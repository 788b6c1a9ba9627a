#include "lib/comm_path.h"

#include <gateway/log_macros.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "lib/try_three_times.h"

namespace jobm {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxPath = 512;
constexpr mode_t kDirectoryMode = 0755;

bool exists(const char* path) { return access(path, F_OK) == 0; }

std::string lowerCase(std::string_view word) {
  std::string lower(word);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

void logRemoveError(const std::string& path) { LOGE("Remove error path = %s\n", path.c_str()); }

// A link is one, wherever it leads.
bool isLink(const std::string& path) {
  std::error_code failed;
  return fs::is_symlink(fs::symlink_status(path, failed));
}

// Deletes one entry of a directory that is being removed. If that fails, the directory can't be
// removed either, which is reported.
void removeEntry(const fs::directory_entry& entry) {
  std::error_code failed;
  const std::string& path = entry.path().native();
  const bool isDirectory = fs::is_directory(entry.symlink_status(failed));
  static_cast<void>(isDirectory ? rmDir(path) : unlink(path.c_str()));
}

// The last component only.
bool makeLast(const char* path) { return mkdir(path, kDirectoryMode) == 0 || errno == EEXIST; }

// The last two, if only these are missing. `path` is cut meanwhile.
bool makeLastTwo(char* path) {
  char* slash = std::strrchr(path, '/');
  if (errno != ENOENT || slash == nullptr || slash == path) return false;
  *slash = '\0';
  const bool isParentThere = makeLast(path);
  *slash = '/';
  return isParentThere && makeLast(path);
}

int removed(int result, const std::string& path) {
  if (result != 0) LOGE("remove dir fail, destDir = %s\n", path.c_str());
  return result;
}

}  // namespace

bool isPathComponent(std::string_view name) {
  return name != "." && name != ".." && name.find('/') == std::string_view::npos &&
         name.find('\0') == std::string_view::npos;
}

std::string kindPath(std::string_view word) {
  if (!isPathComponent(word)) return {};
  return std::string(kDownloadRoot) + "/" + lowerCase(word);
}

std::string jobPath(std::string_view word, std::string_view name) {
  const std::string kind = kindPath(word);
  if (kind.empty() || name.empty() || !isPathComponent(name)) return {};
  return kind + "/" + std::string(name);
}

std::string generatePath(const std::string& path) {
  if (path.empty()) return {};
  if (tryThreeTimes([&] { return mkDir(path); }, [](int) {}) == 0) return path;
  LOGE("mkdir Error path = %s\n", path.c_str());
  return {};
}

std::string generateDir(std::string_view word, std::string_view name) {
  return generatePath(jobPath(word, name));
}

int mkDir(const std::string& path) {
  std::array<char, kMaxPath> buffer{};
  const std::size_t length = std::min(path.size(), buffer.size() - 1);
  std::memcpy(buffer.data(), path.data(), length);
  LOGI("Dir str = %s len =%d \n", buffer.data(), static_cast<int>(length));
  // Most often one or two directories are missing, or none: no need to look at every parent.
  if (makeLast(buffer.data()) || makeLastTwo(buffer.data())) return 0;
  for (std::size_t i = 1; i < length; ++i) {
    if (buffer[i] != '/') continue;
    buffer[i] = '\0';
    if (!exists(buffer.data())) {
      const int result = mkdir(buffer.data(), kDirectoryMode);
      if (result != 0) return result;
    }
    buffer[i] = '/';
  }
  // Its failure shows when somebody uses the directory.
  if (!exists(buffer.data())) static_cast<void>(mkdir(buffer.data(), kDirectoryMode));
  return 0;
}

int removeDir(const std::string& path) {
  const std::string command = "rm -rf " + path;
  return tryThreeTimes([&] { return std::system(command.c_str()); },
                       [&](int) { logRemoveError(path); });
}

int rmDirRetrying(const std::string& path, const std::string& shown) {
  return tryThreeTimes([&] { return rmDir(path); }, [&](int) { logRemoveError(shown); });
}

int rmDir(const std::string& path) {
  // Opened like a directory, a link would have the contents of its target deleted.
  if (isLink(path)) return removed(unlink(path.c_str()), path);
  std::error_code failed;
  fs::directory_iterator entries(path, failed);
  if (failed) {
    LOGI("cannot open directory, destDir = %s\n", path.c_str());
    return -1;
  }
  for (; entries != fs::directory_iterator(); entries.increment(failed)) removeEntry(*entries);
  return removed(rmdir(path.c_str()), path);
}

}  // namespace jobm
