// `tamsel status`: what the index of a repository holds, read without updating it.

#include <chrono>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>

#include "orvane_tamsel/cli/commands.h"
#include "orvane_tamsel/index/index_folder.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/stats.h"

namespace orvane_tamsel::cli {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

// Skipped files listed by name; the counts per reason cover them all.
constexpr int LISTED_SKIPS = 50;

struct StatusArgs {
  std::string repo = ".";
  bool json = false;
};

std::string utc_text(fs::file_time_type when) {
  auto system = std::chrono::file_clock::to_sys(when);
  std::time_t t = std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(system));
  std::tm tm{};
  ::gmtime_r(&t, &tm);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return text;
}

Json status_of(const fs::path& root) {
  Json out = Json::object();
  out["repo"] = fs::canonical(root).string();
  auto file = index::index_file(root);
  std::error_code ec;
  if (!fs::exists(file, ec)) {
    out["indexed"] = false;
    out["hint"] = "run `tamsel index` in the repository to build its index";
    return out;
  }
  index::Database db(file, index::Database::Mode::read);
  auto stats = index::read_stats(db);
  out["indexed"] = true;
  if (index::build_unfinished(db)) {
    // Files are there, but their calls are not linked and the lookup tables are not built.
    out["partial"] = true;
    out["hint"] = "the first build was interrupted; run `tamsel index` to finish it";
  }
  out["files"] = stats.files;
  Json languages = Json::object();
  auto by_language = db.prepare(
      "SELECT language, count(*) FROM files GROUP BY language ORDER BY count(*) DESC, language");
  while (by_language.step()) languages[by_language.text(0)] = by_language.integer(1);
  out["languages"] = std::move(languages);
  out["symbols"] = stats.symbols;
  out["calls_resolved"] = stats.calls;
  out["calls_unresolved"] = stats.unresolved_calls;
  // Names the reference pages document that no symbol was found for are counted, not hidden.
  out["documented_names"] = stats.documented;
  out["documented_names_linked"] = stats.documented_linked;
  out["documented_names_missed"] = stats.documented_missed;
  // The last write of the index: the database or its log, whichever is newer.
  auto updated = fs::last_write_time(file);
  auto log = fs::path(file.string() + "-wal");
  if (fs::exists(log, ec)) updated = std::max(updated, fs::last_write_time(log));
  out["last_update"] = utc_text(updated);
  std::uintmax_t bytes = 0;
  for (const auto& entry : fs::directory_iterator(index::index_folder(root), ec)) {
    if (entry.is_regular_file(ec)) bytes += entry.file_size(ec);
  }
  out["index_bytes"] = bytes;
  std::int64_t skipped_total = 0;
  Json reasons = Json::object();
  for (const auto& [reason, count] : stats.skipped) {
    reasons[reason] = count;
    skipped_total += count;
  }
  out["skipped"] = skipped_total;
  if (skipped_total > 0) out["skipped_by_reason"] = std::move(reasons);
  Json listed = Json::array();
  auto skips = db.prepare("SELECT path, reason FROM skipped ORDER BY path LIMIT ?");
  skips.bind(1, LISTED_SKIPS);
  while (skips.step()) {
    Json row = Json::object();
    row["path"] = skips.text(0);
    row["reason"] = skips.text(1);
    listed.push_back(std::move(row));
  }
  if (!listed.empty()) out["skipped_files"] = std::move(listed);
  return out;
}

int run(const StatusArgs& args) {
  fs::path root(args.repo);
  if (!fs::is_directory(root)) {
    std::cerr << "tamsel status: " << args.repo
              << " is not a directory; pass an existing repository folder with --repo\n";
    return 1;
  }
  Json status;
  try {
    status = status_of(root);
  } catch (const std::exception& e) {
    std::cerr << "tamsel status: the index cannot be read: " << e.what()
              << "\nrun tamsel index --repo " << args.repo << " to rebuild it\n";
    return 1;
  }
  print_answer(status, args.json, args.repo);
  return 0;
}

}  // namespace

void add_status_command(CLI::App& app, Action& action) {
  auto args = std::make_shared<StatusArgs>();
  auto* cmd = app.add_subcommand(
      "status", "What the index holds: files per language, last update, skipped files, size");
  cmd->add_option("repo,--repo", args->repo, "Repository folder (default: the current directory)");
  cmd->add_flag("--json", args->json, "Print JSON (the default when the output is not a terminal)");
  cmd->callback([&action, args] { action = [args] { return run(*args); }; });
}

}  // namespace orvane_tamsel::cli
