#pragma once
// A scratch copy of a test fixture that lives as long as the fuzzing process.

#include <unistd.h>

#include <filesystem>
#include <string>

namespace fuzz {

class ScratchRepo {
 public:
  explicit ScratchRepo(const std::string& fixture) {
    char tmpl[] = "/tmp/tamsel-fuzz-XXXXXX";
    root_ = ::mkdtemp(tmpl);
    root_ /= fixture;
    std::filesystem::copy(std::filesystem::path(TAMSEL_TEST_DATA) / fixture, root_,
                          std::filesystem::copy_options::recursive);
  }
  ~ScratchRepo() {
    std::error_code ec;
    std::filesystem::remove_all(root_.parent_path(), ec);
  }
  const std::filesystem::path& root() const { return root_; }

 private:
  std::filesystem::path root_;
};

}  // namespace fuzz
