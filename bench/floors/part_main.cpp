// bench-part WHAT SIDE ARGUMENT...: runs one part of the service (SIDE service) or its floor (SIDE
// floor) once and prints the seconds and by how many KiB the memory grew at its peak.
//   download service URL FILE    checksum SIDE FILE    unzip SIDE ARCHIVE FOLDER
//   decrypt service FILE OUTPUT SECRET
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "communicate_scene/download.h"
#include "lib/file_text.h"
#include "support/bus.h"
#include "support/hex.h"
#include "support/process.h"
#include "unzip_loop.h"
#include "util/aes/job_aes.h"
#include "util/base64.h"
#include "util/http_download_kiv.h"
#include "util/task_unzip.h"

namespace bench {
namespace {

using Words = std::vector<std::string>;

// One buffer, read whole, one-shot digest.
std::string md5Of(const std::string& path) {
  struct stat info {};
  require(stat(path.c_str(), &info) == 0, "no file");
  const auto size = static_cast<std::size_t>(info.st_size);
  const auto bytes = std::make_unique_for_overwrite<char[]>(size);
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  require(read(file, bytes.get(), size) == info.st_size, "a file is short");
  close(file);
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  EVP_Digest(bytes.get(), size, digest.data(), nullptr, EVP_md5(), nullptr);
  return hexOf({reinterpret_cast<const char*>(digest.data()), 16});
}

std::string theSecret;

void decrypt(const std::string& from, const std::string& to) {
  std::string text;
  std::string plain;
  require(jobm::readFile(from, text) && jobm::isBase64(text), "no package");
  require(jobm::aesJobDecrypt(std::move(text), plain) == 0 && jobm::writeFile(to, plain),
          "not decrypted");
}

// What is to be measured; empty for unknown words.
std::function<void()> partOf(const Words& words) {
  const bool isFloor = words[1] == "floor";
  if (words[0] == "download" && words.size() == 4) {
    jobm::curl_init();
    return [=] { require(jobm::http_download(words[2], words[3]) == 0, "not downloaded"); };
  }
  if (words[0] == "checksum") {
    return [isFloor, path = words[2], sum = md5Of(words[2])] {
      const bool isRight = isFloor ? md5Of(path) == sum : jobm::checkFileMd5sum(path, sum) == 1;
      require(isRight, "the sum is wrong");
    };
  }
  if (words[0] == "unzip" && words.size() == 4) {
    if (isFloor) return [=] { unzipLoop(words[2], words[3]); };
    return [=] { require(jobm::unzipTask(words[2], words[3]) == 0, "not unpacked"); };
  }
  if (words[0] == "decrypt" && words.size() == 5) {
    theSecret = words[4];
    jobm::setDeviceSecretReader([] { return theSecret; });
    return [=] { decrypt(words[2], words[3]); };
  }
  return {};
}

}  // namespace
}  // namespace bench

int main(int count, char** arguments) {
  const bench::Words words(arguments + 1, arguments + count);
  const std::function<void()> part = words.size() < 3 ? nullptr : bench::partOf(words);
  bench::require(part != nullptr, "usage: bench-part WHAT SIDE ARGUMENT...");
  bench::resetPeak(getpid());
  const double before = bench::usageOf(getpid()).resident;
  const double begin = bench::now();
  part();
  const double seconds = bench::now() - begin;
  std::printf("%.9f %.0f\n", seconds, bench::usageOf(getpid()).peak - before);
  return EXIT_SUCCESS;
}
