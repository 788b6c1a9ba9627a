// The helpers log in the name of the one public function.
#define LOG_FUNCTION "unzipTask"
#include "util/task_unzip.h"

#include <fcntl.h>
#include <gateway/log_macros.h>
#include <minizip/unzip.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <unordered_set>
#include <utility>

#include "archive_file.h"
#include "free_space.h"
#include "lib/comm_path.h"

namespace jobm {
namespace {

/// Results of unzipTask.
enum Result {
  kDone = 0,
  kNoArchive = 1,
  kNoGlobalInfo = 2,
  kNoFileInfo = 3,
  kEntryNotOpened = 4,
  kNotCreated = 5,
  kDamaged = 6,
  kNotReached = 7,
  kNoFirst = 8,
};

constexpr std::size_t kNameBytes = 512;
constexpr std::size_t kCopyBytes = 8192;
/// What a file that has no content takes up, and a directory, roughly.
constexpr std::uint64_t kEmptyCost = 4096;
constexpr mode_t kUnpackedMode = 0775;
/// The greatest number of entries that an archive without the ZIP64 record can state. Some
/// archivers omit that record and write this for every larger number, too.
constexpr uLong kUncounted = 0xFFFF;

struct CloseArchive {
  void operator()(unzFile archive) const { unzClose(archive); }
};
using ArchivePtr = std::unique_ptr<std::remove_pointer_t<unzFile>, CloseArchive>;

struct CloseEntry {
  void operator()(unzFile archive) const { unzCloseCurrentFile(archive); }
};
/// The entry that is open for reading in an archive.
using OpenEntry = std::unique_ptr<std::remove_pointer_t<unzFile>, CloseEntry>;

/// A file being written. close() says whether all of it was.
class OutputFile {
 public:
  explicit OutputFile(const std::string& path)
      // No link in the last component is followed: what was there has been deleted, and what has
      // come since is not ours.
      : file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666)) {}
  ~OutputFile() { close(); }
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  explicit operator bool() const { return file >= 0; }
  int get() const { return file; }

  bool write(const char* data, std::size_t length) const {
    while (length > 0) {
      const ssize_t written = ::write(file, data, length);
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) return false;
      data += written;
      length -= static_cast<std::size_t>(written);
    }
    return true;
  }

  bool close() {
    const int closing = std::exchange(file, -1);
    return closing < 0 || ::close(closing) == 0;
  }

 private:
  int file;
};

struct Entry {
  std::string name;
  std::string path;  // where it goes
  unz_file_info info{};
  bool isDirectory() const { return !name.empty() && name.back() == '/'; }
};

/// Where an archive is unpacked to.
struct Destination {
  std::string path;
  std::filesystem::path real;  // without links
  std::unordered_set<std::string>
      known{};  // directories found to be inside: most hold many entries
  Reserve reserve{};
  bool writeFailed = false;
};

Destination makeDestination(const std::string& path) {
  std::error_code failed;
  return {path, std::filesystem::weakly_canonical(std::filesystem::absolute(path, failed), failed)};
}

int notCreated(const std::string& path, int error) {
  LOGI("could not open destination file %s errno = %d : %s\n", path.c_str(), error,
       std::generic_category().message(error).c_str());
  return kNotCreated;
}

/// True for a relative name without "..".
bool staysBelow(std::string_view name) {
  if (!name.empty() && name.front() == '/') return false;
  while (true) {
    const std::size_t slash = name.find('/');
    if (name.substr(0, slash) == "..") return false;
    if (slash == std::string_view::npos) return true;
    name.remove_prefix(slash + 1);
  }
}

/// True when `directory`, which need not exist, is inside the destination after every link on its
/// way has been resolved.
bool isInside(const Destination& destination, const std::string& directory) {
  std::error_code failed;
  const auto absolute = std::filesystem::absolute(directory, failed);
  const auto real = std::filesystem::weakly_canonical(absolute, failed);
  if (failed) return false;
  const auto rest = real.lexically_relative(destination.real);
  return !rest.empty() && *rest.begin() != "..";
}

bool isOpenable(const std::string& directory) {
  const int opened = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (opened < 0) return false;
  close(opened);
  return true;
}

std::string parentOf(std::string_view path) { return std::string(path.substr(0, path.rfind('/'))); }

bool readEntry(unzFile archive, const Destination& destination, Entry& entry) {
  // One byte more than the reader is told of: it doesn't terminate a name that fills the buffer.
  std::array<char, kNameBytes + 1> name{};
  if (unzGetCurrentFileInfo(archive, &entry.info, name.data(), kNameBytes, nullptr, 0, nullptr,
                            0) != UNZ_OK) {
    LOGI("could not read file info\n");
    return false;
  }
  entry.name = name.data();
  entry.path = destination.path + "/" + entry.name;
  return true;
}

int damaged(int code) {
  LOGI("error %d\n", code);
  return kDamaged;
}

int notWritten(Destination& destination) {
  destination.writeFailed = true;
  return damaged(UNZ_ERRNO);
}

/// Takes note of a directory that was made for an entry, and of those above it.
int countDirectories(Destination& destination, const std::string& directory, const Entry& entry) {
  const auto levels = std::count(entry.name.begin(), entry.name.end(), '/');
  const std::uint64_t cost = static_cast<std::uint64_t>(levels) * kEmptyCost;
  return destination.reserve.isKept(directory, cost) ? kDone : notWritten(destination);
}

int makeDirectory(Destination& destination, const Entry& entry) {
  const std::string path = entry.path.substr(0, entry.path.size() - 1);
  const std::string parent = parentOf(path);
  if (!destination.known.contains(parent) && !isInside(destination, parent)) {
    return notCreated(entry.path, EPERM);
  }
  // Fails mostly because it exists; any other reason shows when its files are created.
  return mkdir(path.c_str(), kUnpackedMode) == 0 ? countDirectories(destination, path, entry)
                                                 : kDone;
}

int makeDirectoryOfFile(Destination& destination, const Entry& entry) {
  const std::string directory = parentOf(entry.path);
  LOGI("dirName = %s\n", directory.c_str());
  if (destination.known.contains(directory)) return kDone;
  if (!isInside(destination, directory)) return notCreated(entry.path, EPERM);
  destination.known.insert(directory);
  if (isOpenable(directory)) return kDone;
  mkDir(directory);
  return countDirectories(destination, directory, entry);
}

/// First pass, one entry. The only place where names are checked: no file is created before all of
/// them have passed.
int prepareEntry(unzFile archive, Destination& destination) {
  Entry entry;
  if (!readEntry(archive, destination, entry)) return kNoFileInfo;
  LOGI("unzipTask filename = %s internal 0x%08x external 0x%08x", entry.path.c_str(),
       static_cast<unsigned>(entry.info.internal_fa),
       static_cast<unsigned>(entry.info.external_fa));
  if (!staysBelow(entry.name)) return notCreated(entry.path, EPERM);
  return entry.isDirectory() ? makeDirectory(destination, entry)
                             : makeDirectoryOfFile(destination, entry);
}

int deleteExisting(const std::string& path) {
  struct stat found {};
  if (lstat(path.c_str(), &found) != 0) {
    // Nothing is there; a path that can't be used at all shows when the file is created.
    if (errno == ENOENT || errno == ENOTDIR || errno == ENAMETOOLONG) return kDone;
    const int error = errno;
    LOGI("lstat file %s fail , errno = %d : %s\n", path.c_str(), error,
         std::generic_category().message(error).c_str());
    return kNotReached;
  }
  if (!S_ISDIR(found.st_mode)) static_cast<void>(unlink(path.c_str()));
  return kDone;
}

bool write(Destination& destination, const OutputFile& file, const char* data, int length) {
  const auto bytes = static_cast<std::size_t>(length);
  return file.write(data, bytes) && destination.reserve.isKept(file.get(), bytes);
}

/// Copies the open entry's data, and all of it, to `file`.
int copyData(unzFile archive, const Entry& entry, Destination& destination,
             const OutputFile& file) {
  std::array<char, kCopyBytes> buffer;
  std::uint64_t total = 0;
  while (true) {
    const int got =
        unzReadCurrentFile(archive, buffer.data(), static_cast<unsigned>(buffer.size()));
    if (got < 0) return damaged(got);
    if (got == 0) break;
    if (!write(destination, file, buffer.data(), got)) return notWritten(destination);
    total += static_cast<std::uint64_t>(got);
  }
  // The reader takes truncated data for the end of the entry.
  return static_cast<uLong>(total) == entry.info.uncompressed_size ? kDone
                                                                   : damaged(UNZ_BADZIPFILE);
}

/// Archivers on Unix store the mode in the upper half: the sign bit is the top bit of a regular
/// file's type.
bool isUnixFile(const Entry& entry) {
  const auto attributes = static_cast<std::uint32_t>(entry.info.external_fa);
  return (attributes & 0x80000000U) != 0 && (attributes & 0x4000U) == 0;
}

int writeFileOf(unzFile archive, const Entry& entry, Destination& destination) {
  if (const int result = deleteExisting(entry.path); result != kDone) return result;
  OutputFile file(entry.path);
  if (!file) return notCreated(entry.path, errno);
  if (!destination.reserve.isKept(file.get(), kEmptyCost)) return notWritten(destination);
  if (const int result = copyData(archive, entry, destination, file); result != kDone) {
    return result;
  }
  if (isUnixFile(entry) && fchmod(file.get(), kUnpackedMode) != 0) {
    LOGW("%s have no excute rights and set rights of excute failed.\r\n", entry.path.c_str());
  }
  return file.close() ? kDone : notWritten(destination);
}

/// Second pass, one entry.
int extractEntry(unzFile archive, Destination& destination) {
  Entry entry;
  if (!readEntry(archive, destination, entry)) return kNoFileInfo;
  if (entry.isDirectory()) return kDone;
  if (unzOpenCurrentFile(archive) != UNZ_OK) {
    LOGI("could not open file\n");
    return kEntryNotOpened;
  }
  OpenEntry opened(archive);
  if (const int result = writeFileOf(archive, entry, destination); result != kDone) return result;
  // The checksum is compared here.
  const int closed = unzCloseCurrentFile(opened.release());
  return closed == UNZ_OK ? kDone : damaged(closed);
}

/// True when there was no next entry because the directory is over: in its place begins one of the
/// records that follow a directory.
bool isPastDirectory(ArchiveFile& file) {
  std::array<char, 4> mark{};
  const bool isRead = file.seek(static_cast<std::int64_t>(file.lastSeek()), SEEK_SET) &&
                      file.read(mark.data(), mark.size()) == mark.size();
  const std::string_view text(mark.data(), mark.size());
  return isRead && (text == "PK\x05\x06" || text == "PK\x06\x06");
}

/// Calls `visit` for every entry, from the current one on. If the archive doesn't know how many it
/// has, they end where its directory does.
template <typename Visit>
int forEachEntry(unzFile archive, ArchiveFile& file, uLong entries, Destination& destination,
                 const Visit& visit) {
  if (entries == 0) return kDone;
  for (uLong visited = 1;; ++visited) {
    if (const int result = visit(archive, destination); result != kDone) return result;
    if (visited >= entries && entries != kUncounted) return kDone;
    if (unzGoToNextFile(archive) == UNZ_OK) continue;
    if (visited >= entries && isPastDirectory(file)) return kDone;
    LOGI("cound not read next file\n");
    return kNotReached;
  }
}

/// Both passes.
int extractAll(unzFile archive, ArchiveFile& file, Destination& destination) {
  unz_global_info global{};
  if (unzGetGlobalInfo(archive, &global) != UNZ_OK) {
    LOGI("could not read file global info\n");
    return kNoGlobalInfo;
  }
  const uLong entries = global.number_entry;
  const int prepared = forEachEntry(archive, file, entries, destination, prepareEntry);
  if (prepared != kDone) return prepared;
  if (unzGoToFirstFile(archive) != UNZ_OK) {
    LOGI("unzGoToFirstFile error\n");
    return kNoFirst;
  }
  return forEachEntry(archive, file, entries, destination, extractEntry);
}

}  // namespace

int unzipTask(const std::string& archivePath, const std::string& destinationPath,
              bool* writeFailed) {
  LOGI("unzipTask src = %s des =%s\n", archivePath.c_str(), destinationPath.c_str());
  // On the heap because of its buffers. Must outlive the archive.
  const auto file = std::make_unique<ArchiveFile>(archivePath);
  zlib_filefunc64_def functions = file->functions();
  const ArchivePtr archive(unzOpen2_64(archivePath.c_str(), &functions));
  if (!archive) {
    LOGI("%s unzOpen value NULL \n", archivePath.c_str());
    return kNoArchive;
  }
  Destination destination = makeDestination(destinationPath);
  const int result = extractAll(archive.get(), *file, destination);
  if (writeFailed != nullptr) *writeFailed = destination.writeFailed;
  return result;
}

}  // namespace jobm
