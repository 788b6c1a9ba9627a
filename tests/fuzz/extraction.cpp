// Archives, unpacked where symbolic links already lead outside.
#include <comm_path.h>
#include <file_text.h>
#include <task_unzip.h>
#include <unistd.h>

#include <filesystem>

#include "neighbours.h"
#include "support.h"

namespace {

constexpr const char* kArchive = "/tarnvale/archive.zip";
constexpr const char* kOutside = "/tarnvale/outside";
constexpr const char* kUnpacked = "/tarnvale/unpacked";

void prepare() {
  jobm::rmDir(kUnpacked);
  jobm::mkDir(kUnpacked);
  jobm::mkDir(kOutside);
  const std::string folder = kUnpacked;
  fuzz::require(symlink(kOutside, (folder + "/link").c_str()) == 0 &&
                    symlink("/tarnvale/outside/file", (folder + "/filelink").c_str()) == 0,
                "the links are there");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  prepare();
  jobm::writeFile(kArchive, std::string(reinterpret_cast<const char*>(data), size));
  fuzz::world().writableRoot = kUnpacked;
  const int result = jobm::unzipTask(kArchive, kUnpacked);
  fuzz::world().writableRoot.clear();
  fuzz::require(result >= 0 && result <= 8, "the result is one of the nine");
  fuzz::require(std::filesystem::is_empty(kOutside), "no link is followed to outside");
  return 0;
}
