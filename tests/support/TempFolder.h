/// A folder of the test's own, gone with the test.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace test {

class TempFolder {
 public:
  TempFolder() : folder(std::filesystem::temp_directory_path() / "jobm-test-XXXXXX") {
    if (mkdtemp(folder.data()) == nullptr) std::abort();
  }
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;

  /// The path of `name` in it.
  std::string operator/(const std::string& name) const { return folder + "/" + name; }
  const std::string& path() const { return folder; }

 private:
  std::string folder;
};

}  // namespace test
