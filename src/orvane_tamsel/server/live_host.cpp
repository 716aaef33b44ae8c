#include "orvane_tamsel/server/live_host.h"

#include <sys/stat.h>

#include <chrono>
#include <ctime>
#include <stdexcept>

#include <spdlog/spdlog.h>

#include "orvane_tamsel/index/index_folder.h"
#include "orvane_tamsel/index/schema.h"
#include "orvane_tamsel/index/sqlite_db.h"
#include "orvane_tamsel/index/sqlite_embedder.h"
#include "orvane_tamsel/index/sqlite_repository.h"
#include "orvane_tamsel/indexer/index_writer.h"
#include "orvane_tamsel/indexer/indexer.h"
#include "orvane_tamsel/server/repository_check.h"
#include "orvane_tamsel/tool_handlers/explore.h"
#include "orvane_tamsel/tool_handlers/tools.h"
#include "orvane_tamsel/workers/wordnet_embedder.h"

namespace orvane_tamsel::server {

namespace {

std::int64_t now_seconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

// The repository itself cannot be opened; the message names the path and why.
struct Unservable : std::runtime_error {
  using std::runtime_error::runtime_error;
};

std::uint64_t inode_of(const std::filesystem::path& file) {
  struct stat st {};
  return ::stat(file.c_str(), &st) == 0 ? static_cast<std::uint64_t>(st.st_ino) : 0;
}

}  // namespace

LiveHost::LiveHost(std::filesystem::path root) : root_(std::move(root)), watch_(root_) {}

LiveHost::~LiveHost() {
  finish();
}

void LiveHost::start() {
  started_ = true;
  {
    std::lock_guard lock(ready_mutex_);
    ready_ = false;
  }
  indexing_ = std::thread([this] { first_index(); });
}

void LiveHost::first_index() {
  start_error_ = nullptr;
  start_error_told_ = false;
  try {
    index_at_start();
  } catch (...) {
    start_error_ = std::current_exception();
    std::lock_guard lock(progress_mutex_);
    latest_.indexing = false;
  }
  std::lock_guard lock(ready_mutex_);
  ready_ = true;
  ready_changed_.notify_all();
}

bool LiveHost::ready_within(std::chrono::milliseconds wait) {
  std::unique_lock lock(ready_mutex_);
  return !started_ || ready_changed_.wait_for(lock, wait, [this] { return ready_; });
}

bool LiveHost::wait_until_ready(std::stop_token stop) {
  if (!started_) return true;
  std::unique_lock lock(ready_mutex_);
  return ready_changed_.wait(lock, stop, [this] { return ready_; });
}

void LiveHost::finish() {
  if (indexing_.joinable()) indexing_.join();
}

void LiveHost::index_at_start() {
  using Clock = std::chrono::steady_clock;
  auto last = Clock::now();
  if (auto problem = repository_problem(root_); !problem.empty()) throw Unservable(problem);
  index::ensure_index_folder(root_);
  progress(0, 0, "looking for the files to index");
  auto report = indexer::update_index(root_, {}, [this, &last](const indexer::Progress& p) {
    auto now = Clock::now();
    if (now - last < std::chrono::milliseconds(500) && p.done != p.total) return;
    last = now;
    spdlog::info("serve: indexing {}/{} {}", p.done, p.total, p.path);
    progress(p.done, p.total,
             "indexing " + std::to_string(p.done) + "/" + std::to_string(p.total) + " files");
  });
  updated_at_ = now_seconds();
  progress(report.indexed, report.indexed, "indexed " + std::to_string(report.indexed) + " files");
  {
    std::lock_guard lock(progress_mutex_);
    latest_.indexing = false;
  }
  spdlog::info("serve: {}", indexer::summary_line(report));
  watch_.arm(report.folders);
  index_inode_ = inode_of(index::index_file(root_));
  repository_ = index::open_repository(root_);
  embedder_ = index::open_learned_embedder(root_);
  memories_ = std::make_unique<index::MemoryStore>(root_);
}

void LiveHost::reopen_if_replaced() {
  auto inode = inode_of(index::index_file(root_));
  if (inode == index_inode_ || inode == 0) return;
  spdlog::info("serve: the index was rebuilt: opening it again");
  retriever_.reset();
  repository_ = index::open_repository(root_);
  embedder_ = index::open_learned_embedder(root_);
  index_inode_ = inode;
}

void LiveHost::refresh() {
  // An unchanged repository costs no walk; after any change the walk compares times and sizes.
  // An index a reader found damaged is rebuilt by the update.
  if (watch_.quiet() && !indexer::marked_damaged(root_)) return reopen_if_replaced();
  try {
    auto report = indexer::update_index(root_);
    updated_at_ = now_seconds();
    watch_.arm(report.folders);
    if (report.parsed > 0 || report.removed > 0) {
      spdlog::info("serve: refreshed: {}", indexer::summary_line(report));
    }
  } catch (const std::exception& e) {
    // A refresh that fails (another writer, a vanished file) leaves the last
    // index in use.
    spdlog::warn("serve: the index could not be brought up to date: {}", e.what());
  }
  reopen_if_replaced();
}

void LiveHost::progress(std::int64_t done, std::int64_t total, const std::string& message) {
  std::lock_guard lock(progress_mutex_);
  latest_ = {done, total, message, true};
  if (progress_) progress_(done, total, message);
}

void LiveHost::report_progress(ProgressSink sink) {
  std::lock_guard lock(progress_mutex_);
  progress_ = std::move(sink);
  if (progress_ && latest_.indexing) progress_(latest_.done, latest_.total, latest_.message);
}

std::string LiveHost::indexed_at() const {
  std::time_t t = updated_at_;
  if (t == 0) return {};
  std::tm tm{};
  ::gmtime_r(&t, &tm);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &tm);
  return text;
}

Json LiveHost::call_tool(const std::string& name, const Json& arguments) {
  if (!started_) start();
  finish();
  // A first index that failed (another writer kept the index past the wait, a file in the way of
  // the index folder) is tried again by each call after the one that reported it.
  if (start_error_ && start_error_told_) first_index();
  if (start_error_) {
    start_error_told_ = true;
    try {
      std::rethrow_exception(start_error_);
    } catch (const Unservable& e) {
      throw tool_handlers::ToolError(
          e.what() + std::string(", so there is no index to answer from"),
          Json{{"hint",
                "start the server with --repo set to the repository's folder (in the client's "
                "configuration), or fix the folder: each call looks again"}});
    } catch (const std::exception& e) {
      throw tool_handlers::ToolError(
          std::string("the repository could not be indexed: ") + e.what(),
          Json{{"hint", "fix the cause and call again: the index is built then"}});
    }
  }
  refresh();
  if (!retriever_)
    retriever_ = std::make_unique<workers::HybridRetriever>(*repository_, std::nullopt, embedder_,
                                                            workers::word_sense_embedder());
  tool_handlers::ToolContext context{*repository_, retriever_.get(), memories_.get(), {}};
  context.explore = [this](const Json& a) {
    return tool_handlers::handle_explore(
        *repository_, a["query"].get<std::string>(), a["scope"].get<std::string>(),
        a["depth"].get<std::string>(), a["token_budget"].get<long long>(), retriever_.get(),
        memories_.get());
  };
  try {
    return tool_handlers::call_tool(name, arguments, context);
  } catch (const index::SqliteError& e) {
    if (!e.unreadable()) throw;
    indexer::mark_damaged(root_);
    throw tool_handlers::ToolError(
        std::string("the index is damaged (") + e.what() + "): it is rebuilt before the next call",
        Json{{"hint", "call again; `tamsel index` also rebuilds it; memories are kept"}});
  }
}

}  // namespace orvane_tamsel::server
