#include "lib/comm_path.h"

#include <dirent.h>
#include <gateway/log_macros.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "lib/try_three_times.h"

namespace jobm {
namespace {

constexpr std::size_t kMaxPath = 512;
constexpr mode_t kDirectoryMode = 0755;

struct DirectoryCloser {
  void operator()(DIR* directory) const { closedir(directory); }
};
using DirectoryPtr = std::unique_ptr<DIR, DirectoryCloser>;

bool exists(const char* path) { return access(path, F_OK) == 0; }

bool isDots(const char* name) {
  return std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0;
}

std::string lowerCase(std::string_view word) {
  std::string lower(word);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

void logRemoveError(const std::string& path) { LOGE("Remove error path = %s\n", path.c_str()); }

// Looks at the path itself, not at what a link leads to.
bool isDirectory(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool isLink(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
}

// Deletes one entry of a directory that is being removed. What can't be removed shows when the
// directory itself can't.
void removeEntry(const std::string& path) {
  static_cast<void>(isDirectory(path) ? rmDir(path) : unlink(path.c_str()));
}

bool makeLast(const char* path) { return mkdir(path, kDirectoryMode) == 0 || errno == EEXIST; }

// `path` is changed meanwhile.
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
  // Mostly only the last directories are missing, or none: no need to look at every parent.
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
  // Not examined: who needs the directory finds out when it is used.
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
  // A link in the place of a directory would empty whatever it points to.
  if (isLink(path)) return removed(unlink(path.c_str()), path);
  DirectoryPtr directory(opendir(path.c_str()));
  if (!directory) {
    LOGI("cannot open directory, destDir = %s\n", path.c_str());
    return -1;
  }
  while (const dirent* entry = readdir(directory.get())) {
    if (!isDots(entry->d_name)) removeEntry(path + "/" + entry->d_name);
  }
  directory.reset();
  return removed(rmdir(path.c_str()), path);
}

}  // namespace jobm
