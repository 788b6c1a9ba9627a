// Archives, unpacked where symbolic links already lead outside.
#include <filesystem>

#include "lib/comm_path.h"
#include "lib/file_text.h"
#include "support.h"
#include "util/task_unzip.h"

void fuzz::check(const std::string& input) {
  const std::string archive = "/tarnvale/archive.zip";
  const std::string outside = "/tarnvale/outside";
  const std::string kept = outside + "/kept";
  const std::string unpacked = "/tarnvale/unpacked";
  jobm::rmDir(unpacked);
  jobm::mkDir(unpacked);
  jobm::mkDir(outside);
  jobm::writeFile(kept, "");
  std::filesystem::create_symlink(outside, unpacked + "/link");
  std::filesystem::create_symlink(outside + "/file", unpacked + "/filelink");
  jobm::writeFile(archive, input);

  world.writableRoot = unpacked;
  const int result = jobm::unzipTask(archive, unpacked);
  require(result >= 0 && result <= 8, "the result is one of the nine");
  // Nothing came in there, and what was there is as it was.
  require(std::filesystem::is_empty(kept) && std::filesystem::remove(kept) &&
              std::filesystem::remove(outside),
          "no link is followed to outside");
}
