#pragma once
// A throw-away repository (a copy of a fixture, or empty), removed when the test ends.

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace indexer_test {

class TempRepo {
 public:
  explicit TempRepo(const std::string& fixture = "") {
    char tmpl[] = "/tmp/tamsel-test-XXXXXX";
    root_ = ::mkdtemp(tmpl);
    if (!fixture.empty())
      std::filesystem::copy(std::filesystem::path(TAMSEL_TEST_DATA) / fixture, root_,
                            std::filesystem::copy_options::recursive);
  }
  ~TempRepo() {
    std::error_code ec;
    std::filesystem::remove_all(root_, ec);
  }
  TempRepo(const TempRepo&) = delete;
  TempRepo& operator=(const TempRepo&) = delete;

  const std::filesystem::path& root() const { return root_; }
  std::string repo() const { return root_.string(); }
  void write(const std::string& rel, const std::string& text) const {
    std::filesystem::create_directories((root_ / rel).parent_path());
    std::ofstream(root_ / rel, std::ios::binary) << text;
  }
  // This tree becomes a copy of `tree` without its index, so the next update builds from scratch.
  void copy_sources_of(const std::filesystem::path& tree) const {
    std::filesystem::remove_all(root_);
    std::filesystem::copy(tree, root_, std::filesystem::copy_options::recursive);
    std::filesystem::remove_all(root_ / ".tamsel");
  }

 private:
  std::filesystem::path root_;
};

}  // namespace indexer_test
