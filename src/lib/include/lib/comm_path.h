/// The working tree of downloaded jobs: how its paths are built, its directories made and removed.
/// Every function may be called from any thread.
#pragma once

#include <string>
#include <string_view>

namespace jobm {

/// The root of the working tree.
inline constexpr const char* kDownloadRoot = "/tarnvale/run/downloaded-job";

/// The kind word of scene deployment; also the executor label of this service's own status reports.
inline constexpr const char* kConfigManager = "ConfigManager";

/// True when `name` may become one component of a path: no slash, no NUL, neither "." nor "..". The
/// empty text passes, since a path with a doubled slash is harmless; callers that need a name check
/// for it.
bool isPathComponent(std::string_view name);

/// The directory of `name` under the kind `word` (lower-cased): root/word/name. Creates nothing.
/// Empty when word or name may not become a path component, or name is empty.
std::string jobPath(std::string_view word, std::string_view name);

/// The directory of everything of the kind `word` (lower-cased): root/word. Empty when the word may
/// not become a path component.
std::string kindPath(std::string_view word);

/// Creates jobPath(word, name) with all missing parents, in at most three attempts. Returns the
/// path, or the empty text when jobPath has none or it could not be created.
std::string generateDir(std::string_view word, std::string_view name);

/// Creates `path`, which this program built, with all missing parents in at most three attempts.
/// Returns the path, or the empty text when it could not be created.
[[nodiscard]] std::string generatePath(const std::string& path);

/// Creates `path` and every missing parent with mode 0755. Paths are cut to 511 bytes. Returns 0,
/// or -1 when a parent could not be created.
int mkDir(const std::string& path);

/// Deletes `path` and everything below it through the shell, unquoted: only for paths that this
/// program built itself. Returns the status of the last of at most three attempts.
/// Nothing calls this yet.
int removeDir(const std::string& path);

/// Deletes `path` and everything below it; links are deleted, never followed. Returns 0, or -1.
int rmDir(const std::string& path);

/// rmDir in at most three attempts, with an error line that shows `shown` after each failure.
/// Returns the last result.
int rmDirRetrying(const std::string& path, const std::string& shown);

}  // namespace jobm
