#pragma once
// Brings the index of a repository up to date: walk, parse what changed, write in one transaction.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace orvane_tamsel::indexer {

struct IndexOptions {
  std::int64_t max_file_size = 1 << 20;  // larger files are skipped ("too large")
  // A first build commits what it parsed every so many files or seconds, whichever comes first,
  // so that an interruption keeps it: the next build resumes from there.
  std::int64_t batch_files = 2000;
  double batch_seconds = 20;
  // Called after each such commit with the files written so far in this run.
  std::function<void(std::int64_t)> after_batch;
};

struct Progress {
  std::int64_t done = 0;
  std::int64_t total = 0;
  std::string path;  // the file being parsed
};

struct IndexReport {
  std::int64_t indexed = 0;                     // files in the index after the run
  std::int64_t parsed = 0;                      // files parsed in this run (new or changed)
  std::int64_t removed = 0;                     // files dropped from the index in this run
  std::map<std::string, std::int64_t> skipped;  // reason -> count
  std::int64_t symbols = 0;
  std::int64_t calls = 0;
  std::int64_t unresolved_calls = 0;
  std::int64_t documented = 0;                            // names the reference pages document
  std::int64_t documented_linked = 0;                     // ... linked to a symbol
  std::map<std::string, std::int64_t> documented_missed;  // why the others were not -> count
  std::int64_t pages_read = 0;                            // reference pages read in this run
  std::int64_t pages_passed_over = 0;  // .txt files read no further than their head
  bool resumed = false;                // an interrupted first build was finished
  std::int64_t kept = 0;  // ... and this many files it had stored were not parsed again
  double seconds = 0;
  std::vector<std::string> folders;  // folders walked, to watch for the next change
};

// Safe to call on every request: an unchanged repository re-parses nothing.
IndexReport update_index(const std::filesystem::path& repository_root,
                         const IndexOptions& options = {},
                         const std::function<void(const Progress&)>& on_progress = {});

// One line for stderr: files indexed, skipped per reason, symbols, calls, seconds.
std::string summary_line(const IndexReport& report);

}  // namespace orvane_tamsel::indexer
