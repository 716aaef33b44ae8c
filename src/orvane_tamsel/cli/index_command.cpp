// `tamsel index`: builds or updates a repository's index, showing progress on a terminal.

#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "orvane_tamsel/cli/commands.h"
#include "orvane_tamsel/index/index_folder.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/indexer/parse_floor.h"

namespace orvane_tamsel::cli {

namespace {

constexpr int BAR_WIDTH = 30;
constexpr int PLAIN_STEPS = 10;  // plain output: one line per tenth of the work

struct IndexArgs {
  std::string repo = ".";
  std::int64_t max_file_size = 1 << 20;
  bool parse_only = false;
};

void show_progress(const indexer::Progress& p, bool terminal) {
  if (p.total == 0) return;
  if (terminal) {
    int filled = static_cast<int>(BAR_WIDTH * p.done / p.total);
    std::string path = p.path.size() > 50 ? "..." + p.path.substr(p.path.size() - 47) : p.path;
    std::cerr << "\r\033[K[" << std::string(filled, '#') << std::string(BAR_WIDTH - filled, ' ')
              << "] " << p.done << "/" << p.total << " " << path << std::flush;
    if (p.done == p.total) std::cerr << "\r\033[K" << std::flush;
    return;
  }
  auto step = [&](std::int64_t n) { return n * PLAIN_STEPS / p.total; };
  if (p.done == p.total || step(p.done) != step(p.done - 1)) {
    std::cerr << "parsed " << p.done << "/" << p.total << " files\n";
  }
}

bool interrupted_before(const std::filesystem::path& root) {
  std::error_code ec;
  auto file = index::index_file(root);
  if (!std::filesystem::exists(file, ec)) return false;
  try {
    index::Database db(file, index::Database::Mode::read);
    return index::build_unfinished(db);
  } catch (const std::exception&) {
    return false;  // the build says what is wrong with the index
  }
}

}  // namespace

void add_index_command(CLI::App& app, Action& action) {
  auto args = std::make_shared<IndexArgs>();
  auto* cmd = app.add_subcommand("index", "Build or bring up to date the index of a repository");
  cmd->add_option("repo,--repo", args->repo, "Repository folder (default: the current directory)");
  cmd->add_option("--max-file-size", args->max_file_size,
                  "Skip files larger than this many bytes (default: 1048576)")
      ->check(CLI::PositiveNumber);
  // For the benchmark: the parsing floor, without queries or storage. Hidden from --help.
  cmd->add_flag("--parse-only", args->parse_only)->group("");
  cmd->callback([&action, args] {
    action = [args] {
      std::filesystem::path root(args->repo);
      if (!std::filesystem::is_directory(root)) {
        std::cerr << "tamsel index: " << args->repo
                  << " is not a directory; pass an existing repository folder\n";
        return 1;
      }
      if (args->parse_only) {
        std::cerr << "parsed " << indexer::parse_only(root, args->max_file_size) << " files\n";
        return 0;
      }
      bool terminal = ::isatty(STDERR_FILENO) == 1;
      indexer::IndexOptions options;
      options.max_file_size = args->max_file_size;
      try {
        index::ensure_index_folder(root);
        if (interrupted_before(root)) {
          std::cerr << "resuming the interrupted first build: the files it stored are kept\n";
        }
        auto report = indexer::update_index(
            root, options, [terminal](const indexer::Progress& p) { show_progress(p, terminal); });
        std::cerr << indexer::summary_line(report) << "\n";
      } catch (const std::exception& e) {
        std::cerr
            << "tamsel index: " << e.what()
            << "\nthe previous index is unchanged; fix the cause and run tamsel index again\n";
        return 1;
      }
      return 0;
    };
  });
}

}  // namespace orvane_tamsel::cli
